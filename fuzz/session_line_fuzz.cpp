// One line of a capture session (a JSON object describing a frame): either
// a frame or a Failure that names the file, line and field.
#include <cstdlib>
#include <string>

#include "failure.h"
#include "session.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  try {
    const lumo::SessionFrame frame = lumo::parseFrameLine(text, "fuzz.jsonl", 7);
    for (const lumo::RawTag& tag : frame.meta.tags) {
      // A raw tag's payload holds exactly its values.
      if (tag.type > 5) std::abort();
      static const size_t kTypeBytes[] = {1, 4, 4, 8, 8, 8};
      if (tag.payload.size() != tag.count * kTypeBytes[tag.type]) std::abort();
    }
  } catch (const lumo::Failure& failure) {
    if (std::string(failure.what()).rfind("fuzz.jsonl:7: ", 0) != 0) std::abort();
  }
  return 0;
}
