// File-system faults of the simulated device, for the dump paths: files the
// plugin opens through vyplatform::openDeviceFile and the host's dumpToFile
// behave as on a read-only or full partition.
#pragma once

#include <cstdint>

namespace hostsim {

struct FileFaults {
  bool readOnly = false;  // opening a device file for writing fails with EROFS
  // Bytes the device still takes, over all files opened while set; a write
  // that does not fit stores what fits and fails with ENOSPC. -1: no limit.
  int64_t spaceLeft = -1;
};
// Applies to files opened after the call; reset with {}.
void setFileFaults(const FileFaults& faults);
FileFaults fileFaults();

}  // namespace hostsim
