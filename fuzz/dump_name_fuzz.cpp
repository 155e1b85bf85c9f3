// Geometry and pixel format read from a raw dump's file name (any bytes,
// as a user's folder may hold).
#include <string>

#include "dump_name.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string name(reinterpret_cast<const char*>(data), size);
  (void)lumo::formatFromName(name);
  (void)lumo::geometryFromName("dumps/" + name);
  return 0;
}
