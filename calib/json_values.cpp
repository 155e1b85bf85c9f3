// Bounded parsing, excerpts and float spellings of JSON inputs.
#include <calib/json_values.h>

#include <bit>
#include <limits>
#include <nlohmann/json.hpp>

namespace calib {

const char* const kFloatSpellings =
    "a number, \"nan\", \"inf\", \"-inf\" or a bit pattern such as \"0x3f800000\"";
const char* const kDoubleSpellings =
    "a number, \"nan\", \"inf\", \"-inf\" or a bit pattern such as \"0x3ff0000000000000\"";

namespace {

using nlohmann::json;

bool tooDeep(int depth, json::parse_event_t event, json&) {
  const bool opens =
      event == json::parse_event_t::object_start || event == json::parse_event_t::array_start;
  if (opens && depth >= kMaxJsonDepth) throw JsonTooDeep();
  return true;
}

void appendExcerpt(const json& v, size_t limit, std::string& out) {
  if (out.size() > limit) return;
  if (v.is_string()) {
    // A cut string may end inside a UTF-8 sequence: that byte is replaced.
    const json cut = v.get_ref<const std::string&>().substr(0, limit + 1 - out.size());
    out += cut.dump(-1, ' ', false, json::error_handler_t::replace);
  } else if (v.is_array()) {
    out += '[';
    for (auto it = v.begin(); it != v.end() && out.size() <= limit; ++it) {
      if (it != v.begin()) out += ',';
      appendExcerpt(*it, limit, out);
    }
    out += ']';
  } else if (v.is_object()) {
    out += '{';
    for (auto it = v.begin(); it != v.end() && out.size() <= limit; ++it) {
      if (it != v.begin()) out += ',';
      appendExcerpt(json(it.key()), limit, out);
      out += ':';
      appendExcerpt(it.value(), limit, out);
    }
    out += '}';
  } else {
    out += v.dump();
  }
}

std::optional<double> namedFloat(const std::string& s) {
  if (s == "nan") return std::numeric_limits<double>::quiet_NaN();
  if (s == "inf") return std::numeric_limits<double>::infinity();
  if (s == "-inf") return -std::numeric_limits<double>::infinity();
  return std::nullopt;
}

}  // namespace

JsonTooDeep::JsonTooDeep()
    : std::runtime_error("nested deeper than " + std::to_string(kMaxJsonDepth) + " levels") {}

json parseJsonBounded(const std::string& text) { return json::parse(text, tooDeep); }

json parseJsonBounded(std::istream& in) { return json::parse(in, tooDeep); }

std::string jsonExcerpt(const json& value, size_t limit) {
  std::string out;
  appendExcerpt(value, limit, out);
  if (out.size() > limit) out = out.substr(0, limit - 3) + "...";
  return out;
}

std::optional<uint64_t> hexBits(const std::string& s, size_t maxDigits) {
  if (s.size() < 3 || s.size() > 2 + maxDigits || s[0] != '0' || (s[1] != 'x' && s[1] != 'X'))
    return std::nullopt;
  uint64_t v = 0;
  for (size_t i = 2; i < s.size(); ++i) {
    const char c = s[i];
    int d;
    if (c >= '0' && c <= '9')
      d = c - '0';
    else if (c >= 'a' && c <= 'f')
      d = c - 'a' + 10;
    else if (c >= 'A' && c <= 'F')
      d = c - 'A' + 10;
    else
      return std::nullopt;
    v = (v << 4) | uint64_t(d);
  }
  return v;
}

std::optional<float> jsonFloat(const nlohmann::json& v) {
  if (v.is_number()) return static_cast<float>(v.get<double>());
  if (!v.is_string()) return std::nullopt;
  const std::string s = v.get<std::string>();
  if (auto d = namedFloat(s)) return static_cast<float>(*d);
  if (auto bits = hexBits(s, 8)) return std::bit_cast<float>(static_cast<uint32_t>(*bits));
  return std::nullopt;
}

std::optional<double> jsonDouble(const nlohmann::json& v) {
  if (v.is_number()) return v.get<double>();
  if (!v.is_string()) return std::nullopt;
  const std::string s = v.get<std::string>();
  if (auto d = namedFloat(s)) return d;
  if (auto bits = hexBits(s, 16)) return std::bit_cast<double>(*bits);
  return std::nullopt;
}

}  // namespace calib
