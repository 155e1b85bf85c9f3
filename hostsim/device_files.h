// Opening files on the simulated device, with the faults of
// hostsim/file_faults.h applied.
#pragma once

#include <cstdio>
#include <string>

namespace hostsim {

// `path` is already mapped under the device root.
FILE* openHostFile(const std::string& path, const char* mode);

}  // namespace hostsim
