// android::sp, the strong pointer to a RefBase object.
#pragma once

#include <utility>

namespace android {

template <typename T>
class sp {
public:
  sp() : m_ptr(nullptr) {}
  sp(T* other) : m_ptr(other) {  // NOLINT(google-explicit-constructor): Android API
    if (m_ptr) m_ptr->incStrong(this);
  }
  sp(const sp& other) : m_ptr(other.m_ptr) {
    if (m_ptr) m_ptr->incStrong(this);
  }
  sp(sp&& other) noexcept : m_ptr(other.m_ptr) { other.m_ptr = nullptr; }
  ~sp() {
    if (m_ptr) m_ptr->decStrong(this);
  }
  sp& operator=(const sp& other) {
    sp tmp(other);
    std::swap(m_ptr, tmp.m_ptr);
    return *this;
  }
  sp& operator=(sp&& other) noexcept {
    std::swap(m_ptr, other.m_ptr);
    return *this;
  }
  sp& operator=(T* other) {
    sp tmp(other);
    std::swap(m_ptr, tmp.m_ptr);
    return *this;
  }
  void clear() {
    if (m_ptr) {
      m_ptr->decStrong(this);
      m_ptr = nullptr;
    }
  }
  T* get() const { return m_ptr; }
  T* operator->() const { return m_ptr; }
  T& operator*() const { return *m_ptr; }
  explicit operator bool() const { return m_ptr != nullptr; }

private:
  T* m_ptr;
};

}  // namespace android
