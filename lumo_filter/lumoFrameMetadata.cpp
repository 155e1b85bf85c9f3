// Payload readers and the lux conversion of the frame metadata the plugin consumes.
#include "lumoFrameMetadata.h"

#include <cmath>
#include <cstring>
#include <limits>

namespace lumo {

size_t payloadBytes(const camera_metadata_ro_entry_t& entry) {
  const size_t unit = metadataTypeBytes(entry.type);
  if (unit == 0 || entry.count > std::numeric_limits<size_t>::max() / unit) return 0;
  return entry.count * unit;
}

bool readPayload(const camera_metadata_ro_entry_t& entry, size_t offset, size_t width, void* out) {
  if (entry.count == 0 || entry.data.u8 == nullptr) return false;
  const size_t bytes = payloadBytes(entry);
  if (offset > bytes || width > bytes - offset) return false;
  std::memcpy(out, entry.data.u8 + offset, width);
  return true;
}

bool readU32(const camera_metadata_ro_entry_t& entry, size_t offset, uint32_t& out) {
  return readPayload(entry, offset, sizeof(out), &out);
}

bool readFloat(const camera_metadata_ro_entry_t& entry, size_t offset, float& out) {
  return readPayload(entry, offset, sizeof(out), &out);
}

bool readString(const camera_metadata_ro_entry_t& entry, std::string& out) {
  if (entry.count == 0 || entry.data.u8 == nullptr) return false;
  const char* text = reinterpret_cast<const char*>(entry.data.u8);
  out.assign(text, strnlen(text, payloadBytes(entry)));
  return true;
}

uint16_t luxFromIndex(float luxIndex) {
  int32_t truncated = 0;
  if (std::isnan(luxIndex)) {
    truncated = 0;
  } else if (luxIndex >= 2147483648.0f) {
    truncated = std::numeric_limits<int32_t>::max();
  } else if (luxIndex <= -2147483648.0f) {
    truncated = std::numeric_limits<int32_t>::min();
  } else {
    truncated = static_cast<int32_t>(luxIndex);
  }
  return static_cast<uint16_t>(static_cast<uint32_t>(truncated) & 0xFFFFu);
}

}  // namespace lumo
