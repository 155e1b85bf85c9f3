// Number spellings shared by every JSON input of the toolkit and the tool:
// where a float is expected, a JSON number, "nan", "inf", "-inf", or an
// exact bit pattern ("0x3f800000" for float32, 16 hex digits for float64).
#pragma once

#include <cstdint>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>

namespace calib {

std::optional<float> jsonFloat(const nlohmann::json& value);
std::optional<double> jsonDouble(const nlohmann::json& value);
// "0x" followed by 1 to maxDigits hex digits.
std::optional<uint64_t> hexBits(const std::string& text, size_t maxDigits);
// What jsonFloat accepts, for messages ("expected ... , got X").
extern const char* const kFloatSpellings;
extern const char* const kDoubleSpellings;

}  // namespace calib
