// The .cube import path: the input is a .cube file handed to readCube, which
// scans its header and resamples it (through OpenColorIO) onto our lattice.
#include <OpenColorIO/OpenColorIO.h>
#include <calib/cube_lut.h>

#include <cstdlib>
#include <stdexcept>

#include "fuzz_support.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string& path = lumofuzz::writeScratch("look.cube", data, size);
  // OpenColorIO caches files by path; each input is a new file.
  OCIO_NAMESPACE::ClearAllCaches();
  try {
    calib::CubeInfo info;
    const calib::LutBlock lut = calib::readCube(path, &info);
    if (lut.size() != calib::kLutBlockBytes) std::abort();
  } catch (const std::runtime_error&) {
    // Refused with a message: the expected outcome for most inputs.
  }
  return 0;
}
