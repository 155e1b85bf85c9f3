// Session file parsing. Every problem is reported once, as
// "FILE:LINE: field "NAME": what was expected, what was found".
#include "session.h"

#include <calib/json_values.h>
#include <calib/text_encoding.h>
#include <lumo/contract.h>
#include <system/camera_metadata.h>
#include <system/camera_metadata_tags.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iostream>
#include <limits>
#include <nlohmann/json.hpp>

#include "failure.h"

namespace lumo {
namespace {

using calib::hexBits;
using nlohmann::json;

std::string shown(const json& value) { return calib::jsonExcerpt(value); }

constexpr size_t kMaxOutputNameBytes = 4095;

[[noreturn]] void fail(const std::string& where, const std::string& message) {
  throw Failure(where + message);
}

// Integer in [lo, hi] from a JSON integer or a "0x..." string.
int64_t integerValue(const json& v, int64_t lo, int64_t hi, const std::string& where) {
  const std::string range = " in " + std::to_string(lo) + ".." + std::to_string(hi);
  if (v.is_number_unsigned()) {
    const uint64_t u = v.get<uint64_t>();
    if (u > uint64_t(hi) || (lo > 0 && u < uint64_t(lo)))
      fail(where, "expected an integer" + range + ", got " + shown(v));
    return int64_t(u);
  }
  if (v.is_number_integer()) {
    const int64_t i = v.get<int64_t>();
    if (i < lo || i > hi) fail(where, "expected an integer" + range + ", got " + shown(v));
    return i;
  }
  if (v.is_string()) {
    if (auto bits = hexBits(v.get<std::string>(), 16)) {
      if (*bits <= uint64_t(hi)) return int64_t(*bits);
      // Hex spells the bit pattern of signed types too.
      if (lo < 0 && hi == std::numeric_limits<int32_t>::max() && *bits <= 0xFFFFFFFFull)
        return int64_t(int32_t(uint32_t(*bits)));
      if (lo < 0 && hi == std::numeric_limits<int64_t>::max()) return int64_t(*bits);
    }
  }
  fail(where, "expected an integer" + range + ", got " + shown(v));
}

uint32_t u32Value(const json& v, const std::string& where) {
  return uint32_t(integerValue(v, 0, 0xFFFFFFFFll, where));
}

std::string stringValue(const json& v, const std::string& where) {
  if (!v.is_string()) fail(where, "expected a string, got " + shown(v));
  return v.get<std::string>();
}

template <typename T>
void append(std::vector<uint8_t>& out, T value) {
  uint8_t bytes[sizeof(T)];
  std::memcpy(bytes, &value, sizeof(T));
  out.insert(out.end(), bytes, bytes + sizeof(T));
}

std::optional<uint32_t> standardTagNumber(const std::string& key) {
  if (key == "ANDROID_CONTROL_ZOOM_RATIO") return ANDROID_CONTROL_ZOOM_RATIO;
  if (key == "ANDROID_STATISTICS_FACE_RECTANGLES") return ANDROID_STATISTICS_FACE_RECTANGLES;
  if (auto bits = hexBits(key, 8)) return uint32_t(*bits);
  if (!key.empty() && key.find_first_not_of("0123456789") == std::string::npos &&
      key.size() <= 10) {
    const uint64_t v = std::stoull(key);
    if (v <= 0xFFFFFFFFull) return uint32_t(v);
  }
  return std::nullopt;
}

RawTag rawTag(const std::string& key, const json& entry, const SessionFrame& frame) {
  const std::string field = "meta.tags." + key;
  RawTag tag;
  tag.key = key;
  tag.number = standardTagNumber(key);
  if (!entry.is_object())
    fail(frame.where(field), "expected {\"type\": ..., \"values\": [...]}, got " + shown(entry));
  for (const auto& [name, value] : entry.items()) {
    if (name != "type" && name != "values")
      fail(frame.where(field + "." + name), "unknown field (known: type, values)");
  }
  const std::string typeWhere = frame.where(field + ".type");
  const std::string valuesWhere = frame.where(field + ".values");
  const char* kTypes = "u8, i32, u32, f32, i64, f64, string";
  if (!entry.contains("type")) fail(typeWhere, std::string("missing (one of ") + kTypes + ")");
  const std::string type = stringValue(entry["type"], typeWhere);
  static const std::pair<const char*, uint8_t> kCodes[] = {
      {"u8", TYPE_BYTE},   {"i32", TYPE_INT32},  {"u32", TYPE_INT32},  {"f32", TYPE_FLOAT},
      {"i64", TYPE_INT64}, {"f64", TYPE_DOUBLE}, {"string", TYPE_BYTE}};
  bool known = false;
  for (const auto& [name, code] : kCodes) {
    if (type == name) {
      tag.type = code;
      known = true;
    }
  }
  if (!known)
    fail(typeWhere, std::string("expected one of ") + kTypes + ", got " + shown(entry["type"]));
  if (!entry.contains("values")) fail(valuesWhere, "missing");
  json values = entry["values"];
  if (type == "string") {
    if (values.is_array() && values.size() == 1) values = values[0];
    const std::string text = stringValue(values, valuesWhere);
    tag.payload.assign(text.begin(), text.end());
    tag.payload.push_back(0);  // strings travel NUL-terminated
    tag.count = tag.payload.size();
    return tag;
  }
  if (!values.is_array()) fail(valuesWhere, "expected an array, got " + shown(values));
  for (size_t i = 0; i < values.size(); ++i) {
    const std::string w = frame.where(field + ".values[" + std::to_string(i) + "]");
    const json& v = values[i];
    if (type == "u8") {
      append(tag.payload, uint8_t(integerValue(v, 0, 255, w)));
    } else if (type == "i32") {
      append(tag.payload, int32_t(integerValue(v, std::numeric_limits<int32_t>::min(),
                                               std::numeric_limits<int32_t>::max(), w)));
    } else if (type == "u32") {
      append(tag.payload, u32Value(v, w));
    } else if (type == "f32") {
      append(tag.payload, floatValue(v, w));
    } else if (type == "i64") {
      append(tag.payload, int64_t(integerValue(v, std::numeric_limits<int64_t>::min(),
                                               std::numeric_limits<int64_t>::max(), w)));
    } else {
      append(tag.payload, doubleValue(v, w));
    }
  }
  tag.count = tag.payload.size() / metadataTypeBytes(tag.type);
  return tag;
}

FrameMeta parseMeta(const json& meta, const SessionFrame& entry) {
  if (!meta.is_object()) fail(entry.where("meta"), "expected an object, got " + shown(meta));
  FrameMeta out;
  std::optional<std::string> sceneName;
  for (const auto& [key, value] : meta.items()) {
    const std::string w = entry.where("meta." + key);
    if (key == "cct") {
      out.cct = u32Value(value, w);
    } else if (key == "lux") {
      out.lux = floatValue(value, w);
    } else if (key == "scene") {
      if (value.is_string() && !value.get<std::string>().starts_with("0x")) {
        const std::string name = value.get<std::string>();
        if (name == kPortraitScene || name == "portrait") {
          sceneName = name;
          out.scene = kCommonSceneId;
        } else if (auto id = sceneIdOfName(name)) {
          out.scene = *id;
        } else {
          fail(w, "expected a scene id or one of " + sceneNameList() + ", got " + shown(value));
        }
      } else {
        out.scene = u32Value(value, w);
      }
    } else if (key == "faces") {
      // Each face is four int32; keep the payload within what metadata can hold.
      out.faces = uint32_t(integerValue(value, 0, 1 << 20, w));
    } else if (key == "zoom") {
      out.zoom = floatValue(value, w);
    } else if (key == "image_name") {
      out.imageName = stringValue(value, w);
    } else if (key == "stylization") {
      out.stylization = uint8_t(integerValue(value, 0, 255, w));
    } else if (key == "tags") {
      if (!value.is_object()) fail(w, "expected an object of tags, got " + shown(value));
      for (const auto& [tagKey, tagEntry] : value.items())
        out.tags.push_back(rawTag(tagKey, tagEntry, entry));
    } else {
      fail(w, "unknown field (known: cct, lux, scene, faces, zoom, image_name, stylization, tags)");
    }
  }
  // A portrait is what the camera reports through faces, not through a scene id.
  if (sceneName && !out.faces) out.faces = 1;
  return out;
}

}  // namespace

const char* instanceName(InstanceKind kind) {
  return kind == InstanceKind::Preview ? "preview" : "snapshot";
}

std::string SessionFrame::where(const std::string& field) const {
  if (line == 0) {
    // A frame made from command-line options (`lumo run`): name the option.
    const std::string key = field.starts_with("meta.") ? field.substr(5) : field;
    return file + ": " + (key == "input" ? std::string("IMAGE") : "--" + key) + ": ";
  }
  return file + ":" + std::to_string(line) + ": field \"" + field + "\": ";
}

uint32_t processModeOf(const SessionFrame& frame) {
  if (frame.processMode) return *frame.processMode;
  return frame.instance == InstanceKind::Preview ? 1 : 0;
}

std::string modeLabel(uint32_t mode) {
  if (mode == 0) return "snapshot";
  if (mode == 1) return "preview";
  return "mode" + std::to_string(mode);
}

std::optional<uint32_t> sceneIdOfName(const std::string& name) {
  uint32_t id = 0;
  if (detectorIdOfScene(name.c_str(), id)) return id;
  return std::nullopt;
}

uint32_t unsignedArgument(const std::string& text, const std::string& where) {
  json value = json::parse(text, nullptr, false);
  if (value.is_discarded()) value = text;
  return u32Value(value, where);
}

float floatValue(const json& v, const std::string& where) {
  if (auto f = calib::jsonFloat(v)) return *f;
  fail(where, std::string("expected ") + calib::kFloatSpellings + ", got " + shown(v));
}

double doubleValue(const json& v, const std::string& where) {
  if (auto d = calib::jsonDouble(v)) return *d;
  fail(where, std::string("expected ") + calib::kDoubleSpellings + ", got " + shown(v));
}

SessionFrame parseFrameLine(const std::string& text, const std::string& file, size_t line) {
  SessionFrame entry;
  entry.file = file;
  entry.line = line;
  const std::string at = file + ":" + std::to_string(line) + ": ";
  json j;
  try {
    j = calib::parseJsonBounded(text);
  } catch (const calib::JsonTooDeep& e) {
    throw Failure(at + "malformed JSON: " + e.what());
  } catch (const json::parse_error& e) {
    std::string what = e.what();
    const auto colon = what.find("parse error");
    throw Failure(at +
                  "malformed JSON: " + (colon == std::string::npos ? what : what.substr(colon)));
  } catch (const json::out_of_range& e) {
    // A number literal too large for a double ("1e400") is well-formed JSON
    // that the parser still refuses, with an out_of_range error.
    std::string what = e.what();
    const auto bracket = what.find("] ");
    throw Failure(at + "number out of range: " +
                  (bracket == std::string::npos ? what : what.substr(bracket + 2)));
  }
  if (!j.is_object()) throw Failure(at + "expected one JSON object per line, got " + shown(j));
  if (!j.contains("instance") && !j.contains("process_mode"))
    throw Failure(entry.where("instance") + "missing (\"preview\" or \"snapshot\")");
  for (const auto& [key, value] : j.items()) {
    const std::string w = entry.where(key);
    if (key == "instance") {
      const std::string s = value.is_string() ? value.get<std::string>() : std::string();
      if (s == "preview")
        entry.instance = InstanceKind::Preview;
      else if (s == "snapshot")
        entry.instance = InstanceKind::Snapshot;
      else
        fail(w, "expected \"preview\" or \"snapshot\", got " + shown(value));
    } else if (key == "process_mode") {
      entry.processMode = u32Value(value, w);
    } else if (key == "frame") {
      entry.frame = u32Value(value, w);
      entry.numbered = true;
    } else if (key == "width") {
      entry.width = uint32_t(integerValue(value, 1, kMaxFrameSide, w));
    } else if (key == "height") {
      entry.height = uint32_t(integerValue(value, 1, kMaxFrameSide, w));
    } else if (key == "stride") {
      entry.stride = uint32_t(integerValue(value, 1, kMaxFrameSide, w));
    } else if (key == "scanline") {
      entry.scanline = uint32_t(integerValue(value, 1, kMaxFrameSide, w));
    } else if (key == "format") {
      const auto f = value.is_string() ? parseFormat(value.get<std::string>()) : std::nullopt;
      if (!f) fail(w, "expected \"nv21\", \"nv12\" or \"rgba\", got " + shown(value));
      entry.format = f;
    } else if (key == "input") {
      entry.input = stringValue(value, w);
      if (entry.input->empty()) fail(w, "expected a file name, got an empty string");
    } else if (key == "output") {
      entry.output = stringValue(value, w);
      if (entry.output->empty()) fail(w, "expected a file name, got an empty string");
      if (entry.output->size() > kMaxOutputNameBytes)
        fail(w, "a name of " + std::to_string(entry.output->size()) + " bytes; at most " +
                    std::to_string(kMaxOutputNameBytes) + " (the longest path Linux opens)");
    } else if (key == "meta") {
      entry.meta = parseMeta(value, entry);
    } else {
      fail(w,
           "unknown field (known: instance, process_mode, frame, width, height, stride, scanline, "
           "format, "
           "input, output, meta)");
    }
  }
  checkFrameMemory(entry);
  return entry;
}

uint64_t framePeakBytes(uint32_t width, uint32_t height, uint32_t stride, uint32_t scanline,
                        PixelFormat format) {
  const uint64_t picture = uint64_t(width) * height * 4;
  const uint64_t plane = uint64_t(std::max(stride, width)) * std::max(scanline, height);
  const uint64_t buffer = format == PixelFormat::RGBA ? plane * 4 : plane * 3 / 2;
  return 2 * picture + 2 * buffer;
}

uint64_t availableMemoryBytes() {
  std::ifstream in("/proc/meminfo");
  std::string key;
  uint64_t kib = 0;
  std::string unit;
  while (in >> key >> kib >> unit)
    if (key == "MemAvailable:") return kib * 1024;
  return 0;
}

std::string frameMemoryProblem(uint32_t width, uint32_t height, uint32_t stride, uint32_t scanline,
                               PixelFormat format, uint64_t available) {
  const uint64_t need = framePeakBytes(width, height, stride, scanline, format);
  if (available == 0 || need <= available) return {};
  char text[160];
  std::snprintf(text, sizeof(text),
                "a %ux%u frame needs about %.1f GB, more than the %.1f GB of memory available",
                width, height, double(need) / 1e9, double(available) / 1e9);
  return text;
}

void checkFrameMemory(const SessionFrame& frame) {
  if (!frame.width || !frame.height) return;
  const std::string problem =
      frameMemoryProblem(*frame.width, *frame.height, frame.stride.value_or(*frame.width),
                         frame.scanline.value_or(*frame.height),
                         frame.format.value_or(PixelFormat::NV21), availableMemoryBytes());
  if (!problem.empty()) fail(frame.where("width"), problem);
}

namespace {

std::vector<SessionFrame> readSessionLines(std::istream& in, const std::string& path) {
  std::vector<SessionFrame> frames;
  std::string text;
  size_t line = 0;
  uint32_t next = 0;
  while (std::getline(in, text)) {
    ++line;
    if (!text.empty() && text.back() == '\r') text.pop_back();
    // Editors on Windows start UTF-8 files with a byte-order mark: it is not
    // part of the JSON, so it is dropped. UTF-16 is refused by name.
    if (line == 1 && text.starts_with("\xEF\xBB\xBF")) text.erase(0, 3);
    if (line == 1)
      if (const std::string problem = calib::utf16Problem(text); !problem.empty())
        throw Failure(path + ":1: " + problem);
    if (text.find_first_not_of(" \t") == std::string::npos) continue;
    SessionFrame entry = parseFrameLine(text, path, line);
    if (!entry.numbered) entry.frame = next;
    next = entry.frame + 1;
    frames.push_back(std::move(entry));
  }
  if (in.bad()) throw Failure(path + ": cannot read session file");
  return frames;
}

}  // namespace

std::vector<SessionFrame> readSession(const std::string& path) {
  if (path == "-") return readSessionLines(std::cin, "stdin");
  std::ifstream in(path);
  if (!in) throw Failure(path + ": cannot open session file");
  return readSessionLines(in, path);
}

}  // namespace lumo
