// Finds and loads the OpenColorIO module: next to the program's libraries
// (bin/../lib, where the build puts it), else where the build made it.
#include <dlfcn.h>

#include <filesystem>
#include <stdexcept>
#include <string>
#include <vector>

#include "ocio/ocio_module.h"

namespace calib::ocio {
namespace {

std::string besideThisCode() {
  Dl_info info{};
  if (dladdr(reinterpret_cast<void*>(&module), &info) == 0 || info.dli_fname == nullptr) return {};
  std::error_code ec;
  const auto self = std::filesystem::canonical(info.dli_fname, ec);
  if (ec) return {};
  return (self.parent_path().parent_path() / "lib" / LUMO_OCIO_MODULE_NAME).string();
}

const Module& load() {
  std::string tried;
  std::vector<std::string> paths{besideThisCode()};
  if (paths.front() != LUMO_OCIO_MODULE_PATH) paths.push_back(LUMO_OCIO_MODULE_PATH);
  for (const std::string& path : paths) {
    if (path.empty()) continue;
    // Kept loaded for the life of the process, like a linked library.
    void* handle = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (handle == nullptr) {
      tried += std::string(tried.empty() ? "" : "; ") + dlerror();
      continue;
    }
    using Entry = const Module* (*)();
    if (auto entry = reinterpret_cast<Entry>(dlsym(handle, "lumoOcioModule"))) return *entry();
    tried += (tried.empty() ? "" : "; ") + path + ": no lumoOcioModule";
  }
  throw std::runtime_error("cannot load the OpenColorIO module " +
                           std::string(LUMO_OCIO_MODULE_NAME) + ": " + tried);
}

}  // namespace

const Module& module() {
  static const Module& loaded = load();
  return loaded;
}

}  // namespace calib::ocio
