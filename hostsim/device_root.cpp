// Device-root mapping: "/odm/x" becomes "<root>/odm/x" off the phone, and
// never anything outside <root>.
#include <hostsim/device_root.h>
#include <platform/device_path.h>

#include <cstdlib>
#include <mutex>
#include <string>

#include "device_path_guard.h"

namespace hostsim {
namespace {

std::mutex& rootMutex() {
  static std::mutex m;
  return m;
}

std::string& rootValue() {
  static std::string root = [] {
    const char* env = std::getenv("LUMO_DEVICE_ROOT");
    return std::string(env ? env : "");
  }();
  return root;
}

}  // namespace

void setDeviceRoot(const std::string& root) {
  std::lock_guard<std::mutex> lock(rootMutex());
  std::string r = root;
  while (r.size() > 1 && r.back() == '/') r.pop_back();
  rootValue() = r;
}

std::string deviceRoot() {
  std::lock_guard<std::mutex> lock(rootMutex());
  return rootValue();
}

}  // namespace hostsim

namespace vyplatform {

std::string devicePath(const char* path) {
  std::string root = hostsim::deviceRoot();
  if (root.empty() || path == nullptr || path[0] != '/') return path ? path : "";
  return hostsim::confinedHostPath(root, path);
}

}  // namespace vyplatform
