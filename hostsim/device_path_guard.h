// Keeps the plugin's device paths inside the device root. Dump names come
// from camera metadata, so a name like "../../x" or a symlink planted in the
// dump folder must not reach the rest of the machine running the simulator.
#pragma once

#include <string>

namespace hostsim {

// A device path resolved under `root`: "." and ".." are taken by name (no
// symlink is ever followed, so that is what the file system would do too) and
// a path climbing above the root is refused.
struct BeneathRoot {
  bool refused = false;
  std::string relative;  // components joined by '/', no leading '/'
  bool trailingSlash = false;
};
BeneathRoot resolveBeneath(const char* devicePath);

// The host path of an absolute device path under a non-empty root, or "" (which
// every open, stat and chmod fails on) when the path leaves the root or passes
// through a symlink below it.
std::string confinedHostPath(const std::string& root, const char* devicePath);

// open(2) of a device path under a non-empty root, one component at a time
// from a descriptor of the root, never following a symlink; -1 with errno
// EACCES when the path is refused.
int openBeneathRoot(const std::string& root, const char* devicePath, int flags);

}  // namespace hostsim
