// Intrusive strong reference counting in the shape of Android's RefBase.
#pragma once

#include <atomic>
#include <cstdint>

namespace android {

class RefBase {
public:
  void incStrong(const void* id) const;
  void decStrong(const void* id) const;
  int32_t getStrongCount() const;

protected:
  RefBase();
  virtual ~RefBase();

private:
  RefBase(const RefBase&) = delete;
  RefBase& operator=(const RefBase&) = delete;
  mutable std::atomic<int32_t> m_strong;
};

}  // namespace android
