// `lumo calib check`'s strict reader: every input must give either a
// decoded file or issues with offsets inside the input, never a crash.
#include <calib/calibration_dump.h>
#include <calib/calibration_reader.h>

#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::vector<uint8_t> bytes(data, data + size);
  const calib::ReadResult result = calib::readCalibration(bytes);
  size_t shown = 0;
  for (const calib::Issue& issue : result.issues) {
    // An issue points into the file, or past its end only to say where a
    // record was expected that the file is too short for.
    if (issue.offset > size && issue.message.rfind("file ends at byte", 0) != 0) std::abort();
    // A broken tree can give tens of thousands of issues of a few kinds;
    // formatting the first ones covers the formatter without slowing the run.
    if (shown++ < 64) (void)calib::findingLine("fuzz.bin", issue);
  }
  if (result.ok()) (void)calib::dumpText(result, "fuzz.bin");
  return 0;
}
