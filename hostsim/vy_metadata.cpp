// Camera metadata: typed entries keyed by tag number. Vendor tags get their
// numbers from one process-wide name registry, so every metadata object of
// the process agrees on them.
#include <lumo/contract.h>
#include <vyalgo2/VyMetadata.h>

#include <cstring>
#include <map>
#include <mutex>
#include <vector>

namespace {

// Vendor tag numbers live above the standard sections, as on the phone.
constexpr uint32_t kFirstVendorTag = 0x80000000u;

struct TagRegistry {
  std::mutex mutex;
  std::map<std::string, uint32_t> ids;
  std::map<uint32_t, std::string> names;
};

TagRegistry& registry() {
  static TagRegistry r;
  return r;
}

// Known id of a name, 0 (never a vendor id) when the name is unknown and
// `create` is false.
uint32_t tagIdOf(const char* name, bool create) {
  if (name == nullptr) return 0;
  TagRegistry& r = registry();
  std::lock_guard<std::mutex> lock(r.mutex);
  auto it = r.ids.find(name);
  if (it != r.ids.end()) return it->second;
  if (!create) return 0;
  uint32_t id = kFirstVendorTag + static_cast<uint32_t>(r.ids.size());
  r.ids.emplace(name, id);
  r.names.emplace(id, name);
  return id;
}

camera_metadata_ro_entry_t absentEntry(uint32_t tag) {
  camera_metadata_ro_entry_t e{};
  e.tag = tag;
  e.count = 0;
  e.data.u8 = nullptr;
  return e;
}

}  // namespace

struct VyMetadata::Impl {
  struct Entry {
    uint8_t type = TYPE_BYTE;
    size_t count = 0;
    // 8-byte elements keep every payload type aligned.
    std::vector<uint64_t> storage;
  };
  std::map<uint32_t, Entry> entries;
};

VyMetadata::VyMetadata() : m_impl(new Impl) {}
VyMetadata::~VyMetadata() = default;
VyMetadata::VyMetadata(const VyMetadata& other) : m_impl(new Impl(*other.m_impl)) {}

VyMetadata& VyMetadata::operator=(const VyMetadata& other) {
  if (this != &other) *m_impl = *other.m_impl;
  return *this;
}

camera_metadata_ro_entry_t VyMetadata::find(const char* tagName) const {
  uint32_t id = tagIdOf(tagName, false);
  if (id == 0) return absentEntry(0);
  return find(id);
}

camera_metadata_ro_entry_t VyMetadata::find(uint32_t tagId) const {
  auto it = m_impl->entries.find(tagId);
  if (it == m_impl->entries.end()) return absentEntry(tagId);
  camera_metadata_ro_entry_t e{};
  e.index = static_cast<size_t>(std::distance(m_impl->entries.begin(), it));
  e.tag = tagId;
  e.type = it->second.type;
  e.count = it->second.count;
  e.data.u8 =
      it->second.count == 0 ? nullptr : reinterpret_cast<const uint8_t*>(it->second.storage.data());
  return e;
}

int VyMetadata::update(const char* tagName, uint8_t type, const void* data, size_t count) {
  if (tagName == nullptr || tagName[0] == '\0') return -1;
  if (lumo::metadataTypeBytes(type) == 0) return -1;
  return update(tagIdOf(tagName, true), type, data, count);
}

int VyMetadata::update(uint32_t tagId, uint8_t type, const void* data, size_t count) {
  size_t unit = lumo::metadataTypeBytes(type);
  if (unit == 0 || (data == nullptr && count != 0)) return -1;
  if (count > SIZE_MAX / unit) return -1;
  Impl::Entry entry;
  entry.type = type;
  entry.count = count;
  size_t bytes = count * unit;
  entry.storage.assign((bytes + sizeof(uint64_t) - 1) / sizeof(uint64_t), 0);
  if (bytes != 0) std::memcpy(entry.storage.data(), data, bytes);
  m_impl->entries[tagId] = std::move(entry);
  return 0;
}

int VyMetadata::erase(const char* tagName) {
  uint32_t id = tagIdOf(tagName, false);
  if (id == 0) return -1;
  return erase(id);
}

int VyMetadata::erase(uint32_t tagId) { return m_impl->entries.erase(tagId) == 1 ? 0 : -1; }

size_t VyMetadata::entryCount() const { return m_impl->entries.size(); }

uint32_t VyMetadata::vendorTagId(const char* tagName) { return tagIdOf(tagName, true); }

std::string VyMetadata::vendorTagName(uint32_t tagId) {
  TagRegistry& r = registry();
  std::lock_guard<std::mutex> lock(r.mutex);
  auto it = r.names.find(tagId);
  return it == r.names.end() ? std::string() : it->second;
}
