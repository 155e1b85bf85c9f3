// Android system properties: a process-wide name=value store.
#include <cutils/properties.h>
#include <hostsim/properties.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <map>
#include <mutex>
#include <string>

namespace {

std::mutex& storeMutex() {
  static std::mutex m;
  return m;
}

std::map<std::string, std::string>& store() {
  static std::map<std::string, std::string> s;
  return s;
}

bool lookup(const char* key, std::string& value) {
  if (key == nullptr) return false;
  std::lock_guard<std::mutex> lock(storeMutex());
  auto it = store().find(key);
  if (it == store().end()) return false;
  value = it->second;
  return true;
}

}  // namespace

extern "C" int property_get(const char* key, char* value, const char* default_value) {
  std::string v;
  const char* src = nullptr;
  if (lookup(key, v) && !v.empty()) {
    src = v.c_str();
  } else {
    src = default_value;
  }
  if (src == nullptr) {
    value[0] = '\0';
    return 0;
  }
  // Android truncates to PROPERTY_VALUE_MAX - 1 characters.
  size_t n = std::strlen(src);
  if (n > PROPERTY_VALUE_MAX - 1) n = PROPERTY_VALUE_MAX - 1;
  std::memcpy(value, src, n);
  value[n] = '\0';
  return static_cast<int>(n);
}

extern "C" int32_t property_get_int32(const char* key, int32_t default_value) {
  std::string v;
  if (!lookup(key, v) || v.empty()) return default_value;
  errno = 0;
  char* end = nullptr;
  long long parsed = std::strtoll(v.c_str(), &end, 0);
  if (errno != 0 || end == v.c_str() || *end != '\0' || parsed < INT32_MIN || parsed > INT32_MAX) {
    return default_value;
  }
  return static_cast<int32_t>(parsed);
}

extern "C" int property_set(const char* key, const char* value) {
  if (key == nullptr || value == nullptr) return -1;
  if (std::strlen(value) >= PROPERTY_VALUE_MAX) return -1;
  std::lock_guard<std::mutex> lock(storeMutex());
  store()[key] = value;
  return 0;
}

namespace hostsim {

void clearProperties() {
  std::lock_guard<std::mutex> lock(storeMutex());
  store().clear();
}

std::map<std::string, std::string> allProperties() {
  std::lock_guard<std::mutex> lock(storeMutex());
  return store();
}

}  // namespace hostsim
