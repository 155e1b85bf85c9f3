// Per-frame and per-session camera metadata: typed entries found by vendor
// tag name or by tag number.
#pragma once

#include <system/camera_metadata.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

class VyMetadata {
public:
  VyMetadata();
  ~VyMetadata();
  VyMetadata(const VyMetadata& other);
  VyMetadata& operator=(const VyMetadata& other);

  // Entry for a vendor tag name or a tag number. An absent tag yields an
  // entry with count 0 and null data. `data` stays valid until the entry is
  // updated or erased, or the metadata object is destroyed.
  camera_metadata_ro_entry_t find(const char* tagName) const;
  camera_metadata_ro_entry_t find(uint32_t tagId) const;

  // Writers used by the framework side. `count` values of `type` are copied
  // from `data`. Return 0, or -1 for an unknown type or name.
  int update(const char* tagName, uint8_t type, const void* data, size_t count);
  int update(uint32_t tagId, uint8_t type, const void* data, size_t count);
  int erase(const char* tagName);
  int erase(uint32_t tagId);
  size_t entryCount() const;

  // Number the host gives a vendor tag name (registered on first use, the
  // same in every metadata object of the process).
  static uint32_t vendorTagId(const char* tagName);
  // Name of a registered vendor tag, empty for anything else.
  static std::string vendorTagName(uint32_t tagId);

private:
  struct Impl;
  std::unique_ptr<Impl> m_impl;
};
