// The renderer's effect-script parser: a script it understands gives a
// chain, anything else gives an empty chain and a reason, never a crash.
#include <cstdlib>
#include <string_view>

#include "effect_script.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string_view script(reinterpret_cast<const char*>(data), size);
  const lumo::render::ScriptResult result = lumo::render::parseEffectScript(script);
  if (!result.ok && result.error.empty()) std::abort();
  double value = 0.0;
  (void)lumo::render::parseNumber(script, value);
  return 0;
}
