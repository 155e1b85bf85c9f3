// Opening files on the simulated device, with the faults of
// hostsim/file_faults.h applied.
#pragma once

#include <cstdio>

namespace hostsim {

// Opens an absolute device path (fopen's modes) under the device root, never
// outside it; without a root the path is opened as it is.
FILE* openHostFile(const char* devicePath, const char* mode);

}  // namespace hostsim
