// Per-frame camera metadata as the plugin reads it: payload readers that
// refuse short payloads and the lux conversion. Tag names, payload offsets
// and the scene table are the host contract's (lumo/contract.h).
#pragma once

#include <lumo/contract.h>
#include <system/camera_metadata.h>

#include <cstddef>
#include <cstdint>
#include <string>

namespace lumo {

// Bytes of an entry's payload (count values of its type).
size_t payloadBytes(const camera_metadata_ro_entry_t& entry);

// Copies `width` bytes at `offset` of the payload into `out`. false when the
// tag is absent or its payload is too short to hold them: a truncated
// record counts as a missing one.
bool readPayload(const camera_metadata_ro_entry_t& entry, size_t offset, size_t width, void* out);

bool readU32(const camera_metadata_ro_entry_t& entry, size_t offset, uint32_t& out);
bool readFloat(const camera_metadata_ro_entry_t& entry, size_t offset, float& out);

// The text of a byte-string entry, up to its first NUL or its end.
bool readString(const camera_metadata_ro_entry_t& entry, std::string& out);

// The lux index as the trigger takes it: truncated toward zero to int32
// (NaN giving 0, saturating beyond the int32 range), then its low 16 bits.
uint16_t luxFromIndex(float luxIndex);

}  // namespace lumo
