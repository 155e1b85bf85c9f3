// The effect-script language: effects joined by '@', each written as
// "Name;key=value;key=value;". Numbers are decimal text as printf prints
// them, including "nan", "-nan", "inf" and "-inf".
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "effect_chain.h"

namespace lumo::render {

struct ScriptResult {
  bool ok = false;  // false: not understood; `chain` is empty and `error` says why
  EffectChain chain;
  std::string error;
  std::vector<std::string> warnings;  // understood, but something was ignored or disabled
};

ScriptResult parseEffectScript(std::string_view script);

// Whole-text decimal number (leading and trailing blanks allowed); false
// when anything else is in the text.
bool parseNumber(std::string_view text, double& value);

}  // namespace lumo::render
