// Maps an absolute device path ("/odm/...", "/data/vendor/...") to the path
// this process must open. On a phone that is the path itself; elsewhere the
// host may root device paths in a folder of its choosing.
#pragma once

#include <string>

namespace vyplatform {

#if defined(__ANDROID__)
inline std::string devicePath(const char* path) { return path; }
#else
std::string devicePath(const char* path);
#endif

}  // namespace vyplatform
