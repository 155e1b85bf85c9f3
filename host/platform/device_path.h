// Maps an absolute device path ("/odm/...", "/data/vendor/...") to the path
// this process must open. On a phone that is the path itself; elsewhere the
// host may root device paths in a folder of its choosing.
#pragma once

#include <cstdio>
#include <string>

namespace vyplatform {

#if defined(__ANDROID__)
inline std::string devicePath(const char* path) { return path; }
// Opens a device path with fopen's modes.
inline FILE* openDeviceFile(const char* path, const char* mode) { return std::fopen(path, mode); }
#else
std::string devicePath(const char* path);
// Opens a device path with fopen's modes. Off the phone the host may make
// the file system behave as a read-only or full one would.
FILE* openDeviceFile(const char* path, const char* mode);
#endif

}  // namespace vyplatform
