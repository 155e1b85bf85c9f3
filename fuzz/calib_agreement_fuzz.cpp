// The plugin's loader and the strict reader on the same bytes: whenever the
// reader passes a file, the loader must hold exactly what the reader decoded.
// (The reader may reject what the loader takes; docs/calibration.md lists
// those cases.)
#include <calib/calibration_reader.h>
#include <lumo/contract.h>

#include <cstdio>
#include <cstdlib>

#include "calib_agreement.h"
#include "fuzz_support.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  lumofuzz::quietLogs();
  const calib::ReadResult read = calib::readCalibration(std::vector<uint8_t>(data, data + size));
  if (!read.ok()) return 0;
  const ParamUtil store(lumofuzz::writeScratch(lumo::kParamFileName, data, size));
  const std::string difference = lumotest::storeDisagreement(store, read);
  if (!difference.empty()) {
    std::fprintf(stderr, "the reader passes the file but the loader differs: %s\n",
                 difference.c_str());
    std::abort();
  }
  return 0;
}
