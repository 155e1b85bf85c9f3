// Reading shared by every JSON input of the toolkit and the tool: parsing
// with bounded nesting, excerpts of values for messages, and the number
// spellings: where a float is expected, a JSON number, "nan", "inf", "-inf",
// or an exact bit pattern ("0x3f800000" for float32, 16 hex digits for
// float64).
#pragma once

#include <cstdint>
#include <iosfwd>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <stdexcept>
#include <string>

namespace calib {

// Printing, comparing and copying a value recurse once per level, so text
// nested deeper than this is refused while it is parsed; real inputs nest a
// handful of levels.
constexpr int kMaxJsonDepth = 64;
struct JsonTooDeep : std::runtime_error {
  JsonTooDeep();  // "nested deeper than 64 levels"
};
// json::parse with its errors (parse_error, out_of_range), and JsonTooDeep.
nlohmann::json parseJsonBounded(const std::string& text);
nlohmann::json parseJsonBounded(std::istream& in);
// The value as JSON text, cut to `limit` characters ending in "..." when
// longer; only the part shown is ever serialised.
std::string jsonExcerpt(const nlohmann::json& value, size_t limit = 60);

std::optional<float> jsonFloat(const nlohmann::json& value);
std::optional<double> jsonDouble(const nlohmann::json& value);
// "0x" followed by 1 to maxDigits hex digits.
std::optional<uint64_t> hexBits(const std::string& text, size_t maxDigits);
// What jsonFloat accepts, for messages ("expected ... , got X").
extern const char* const kFloatSpellings;
extern const char* const kDoubleSpellings;

}  // namespace calib
