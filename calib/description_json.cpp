// Reading the JSON description of a calibration file, and exporting one.
#include <calib/cube_lut.h>
#include <calib/description_json.h>
#include <calib/image_lut.h>
#include <calib/json_values.h>
#include <calib/looks.h>
#include <calib/lut_source.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <nlohmann/json.hpp>
#include <stdexcept>

#include "atomic_file.h"

namespace calib {
namespace {

using nlohmann::json;
namespace fs = std::filesystem;

// A reference from a CCT band to a block: by name or by index.
struct BlockRef {
  std::string name;
  int index = -1;
  std::string field;
};

class Parser {
public:
  Parser(std::string file, std::string baseDir, std::vector<LookSource>* sources)
      : m_file(std::move(file)), m_base(std::move(baseDir)), m_sources(sources) {}

  [[noreturn]] void fail(const std::string& field, const std::string& message) const {
    throw std::invalid_argument(m_file + ": field \"" + field + "\": " + message);
  }

  void keys(const json& object, const std::string& field,
            std::initializer_list<const char*> known) const {
    if (!object.is_object()) fail(field, "expected an object");
    // No structured binding: clang (the fuzz build) cannot capture one in the lambda.
    for (const auto& item : object.items()) {
      const std::string& key = item.key();
      if (key.starts_with("_")) continue;
      if (std::none_of(known.begin(), known.end(), [&](const char* k) { return key == k; })) {
        std::string list;
        for (const char* k : known) list += std::string(list.empty() ? "" : ", ") + k;
        fail(join(field, key), "unknown field (known: " + list + ")");
      }
    }
  }

  static std::string join(const std::string& field, const std::string& key) {
    return field.empty() ? key : field + "." + key;
  }

  uint16_t u16(const json& v, const std::string& field) const {
    if (!v.is_number_integer() || v.get<int64_t>() < 0 || v.get<int64_t>() > 65535)
      fail(field, "expected an integer in 0..65535, got " + jsonExcerpt(v));
    return uint16_t(v.get<int64_t>());
  }

  std::string text(const json& v, const std::string& field) const {
    if (!v.is_string()) fail(field, "expected a string");
    return v.get<std::string>();
  }

  const json& member(const json& object, const char* key, const std::string& field) const {
    if (!object.contains(key)) fail(join(field, key), "missing");
    return object.at(key);
  }

  std::vector<LuxBand> luxBands(const json& list, const std::string& field, const char* refKey,
                                std::vector<BlockRef>& refs) const {
    if (!list.is_array()) fail(field, "expected an array of lux bands");
    std::vector<LuxBand> out;
    for (size_t i = 0; i < list.size(); ++i) {
      const std::string lf = field + "[" + std::to_string(i) + "]";
      keys(list[i], lf, {"start", "end", "cct"});
      LuxBand band;
      band.start = u16(member(list[i], "start", lf), lf + ".start");
      band.end = u16(member(list[i], "end", lf), lf + ".end");
      const json& ccts = member(list[i], "cct", lf);
      if (!ccts.is_array()) fail(lf + ".cct", "expected an array of CCT bands");
      for (size_t k = 0; k < ccts.size(); ++k) {
        const std::string cf = lf + ".cct[" + std::to_string(k) + "]";
        keys(ccts[k], cf, {"start", "end", refKey});
        CctBand cct;
        cct.start = u16(member(ccts[k], "start", cf), cf + ".start");
        cct.end = u16(member(ccts[k], "end", cf), cf + ".end");
        const json& ref = member(ccts[k], refKey, cf);
        BlockRef r;
        r.field = join(cf, refKey);
        if (ref.is_string())
          r.name = ref.get<std::string>();
        else
          r.index = u16(ref, r.field);
        refs.push_back(r);
        band.ccts.push_back(cct);
      }
      out.push_back(std::move(band));
    }
    return out;
  }

  LutBlock look(const json& entry, const std::string& field) const {
    keys(entry, field, {"generate", "cube", "lut", "layout"});
    const char* source = entry.contains("cube") ? "cube" : entry.contains("lut") ? "lut" : nullptr;
    if (source != nullptr) {
      if (entry.contains("generate") || (entry.contains("cube") && entry.contains("lut")))
        fail(field, "give one of \"generate\", \"cube\" or \"lut\"");
      fs::path p = text(entry[source], join(field, source));
      if (p.is_relative()) p = fs::path(m_base) / p;
      try {
        const std::string layout =
            entry.contains("layout") ? text(entry["layout"], join(field, "layout")) : "";
        if (!layout.empty() && !isImageLutPath(p.string()))
          fail(join(field, "layout"), "only picture LUTs (.png, .jpg) have a layout");
        LutImport imported = importLut(p.string(), layout);
        if (m_sources != nullptr)
          m_sources->push_back(
              {field, p.string(), describeImport(imported), lutProblems(imported)});
        return std::move(imported.lut);
      } catch (const std::exception& e) {
        fail(join(field, source), e.what());
      }
    }
    if (!entry.contains("generate")) fail(field, "expected \"generate\", \"cube\" or \"lut\"");
    try {
      return generateLook(lookFromJson(entry["generate"], "generate"));
    } catch (const std::invalid_argument& e) {
      const std::string what = e.what();
      const auto colon = what.find(": ");
      fail(join(field, what.substr(0, colon)), what.substr(colon + 2));
    }
  }

  ShadingBlock shading(const json& entry, const std::string& field) const {
    if (!entry.is_array() || entry.size() != kShadingBlockFloats)
      fail(field,
           "expected an array of 8 floats (SmoothStartValue, SmoothEndValue, "
           "SmoothCoordScale, SmoothValueScale, LightDarkPreserveK, LightDarkPreserveB, "
           "LightDarkPreserveV, LightDarkPreserveT)");
    ShadingBlock out{};
    for (size_t i = 0; i < kShadingBlockFloats; ++i) {
      const auto f = jsonFloat(entry[i]);
      if (!f)
        fail(field + "[" + std::to_string(i) + "]", std::string("expected ") + kFloatSpellings);
      out[i] = *f;
    }
    return out;
  }

  // Resolves the references of one tree into block indices and builds its pool.
  template <typename Block, typename Make>
  std::vector<Block> pool(const json* defs, const std::string& key, std::vector<BlockRef>& refs,
                          Make make) const {
    std::vector<Block> blocks;
    if (defs == nullptr) {
      if (!refs.empty()) fail(refs.front().field, "refers to \"" + key + "\", which is missing");
      return blocks;
    }
    if (defs->is_array()) {
      for (size_t i = 0; i < defs->size(); ++i)
        blocks.push_back(make((*defs)[i], key + "[" + std::to_string(i) + "]"));
      for (const BlockRef& r : refs)
        if (!r.name.empty()) fail(r.field, "\"" + key + "\" is an array: refer to blocks by index");
      return blocks;
    }
    if (!defs->is_object()) fail(key, "expected an object of named blocks or an array");
    // Number blocks by their last use so the tree's last band holds the highest index.
    std::map<std::string, size_t> lastUse;
    for (size_t i = 0; i < refs.size(); ++i) {
      if (refs[i].name.empty())
        fail(refs[i].field, "\"" + key + "\" are named: refer to them by name");
      if (!defs->contains(refs[i].name))
        fail(refs[i].field, "no entry \"" + refs[i].name + "\" in \"" + key + "\"");
      lastUse[refs[i].name] = i;
    }
    std::vector<std::pair<size_t, std::string>> order;
    for (const auto& [name, use] : lastUse) order.emplace_back(use, name);
    std::sort(order.begin(), order.end());
    std::map<std::string, int> indexOf;
    for (const auto& [use, name] : order) {
      indexOf[name] = int(blocks.size());
      blocks.push_back(make(defs->at(name), key + "." + name));
    }
    for (BlockRef& r : refs) r.index = indexOf[r.name];
    return blocks;
  }

  CalibrationFile parse(const json& j) const {
    keys(j, "",
         {"trigger_control", "param_type", "param_range", "lut3d_size", "looks", "shadings",
          "scenes", "zooms", "param_data_offset", "lut_data_offset", "trailing_bytes"});
    CalibrationFile out;
    if (j.contains("trigger_control"))
      out.triggerControl = text(j["trigger_control"], "trigger_control");
    if (j.contains("param_type")) out.paramType = text(j["param_type"], "param_type");
    if (j.contains("param_range")) out.paramRange = text(j["param_range"], "param_range");
    if (j.contains("lut3d_size")) out.lut3dSize = u16(j["lut3d_size"], "lut3d_size");
    if (j.contains("param_data_offset"))
      out.paramDataOffset = u16(j["param_data_offset"], "param_data_offset");
    if (j.contains("lut_data_offset"))
      out.lutDataOffset = u16(j["lut_data_offset"], "lut_data_offset");
    if (j.contains("trailing_bytes")) {
      const json& t = j["trailing_bytes"];
      if (t.is_number_integer() && t.get<int64_t>() >= 0 && t.get<int64_t>() <= (1 << 24)) {
        out.trailingBytes.assign(size_t(t.get<int64_t>()), 0);
      } else if (t.is_array()) {
        for (size_t i = 0; i < t.size(); ++i) {
          if (!t[i].is_number_integer() || t[i].get<int64_t>() < 0 || t[i].get<int64_t>() > 255)
            fail("trailing_bytes[" + std::to_string(i) + "]", "expected a byte value 0..255");
          out.trailingBytes.push_back(uint8_t(t[i].get<int64_t>()));
        }
      } else {
        fail("trailing_bytes", "expected a count of zero bytes or an array of byte values");
      }
    }

    std::vector<BlockRef> lutRefs, shadingRefs;
    entries(j, "scenes", {"name", "lux", "declared_size"},
            [&](const json& e, const std::string& f) {
              SceneBlock block;
              block.name = text(member(e, "name", f), f + ".name");
              if (block.name.size() >= kSceneNameBytes)
                fail(f + ".name", "at most 63 bytes fit, got " + std::to_string(block.name.size()));
              block.luxBands = luxBands(member(e, "lux", f), f + ".lux", "lut", lutRefs);
              block.declaredSize = declaredSize(e, f);
              out.scenes.push_back(std::move(block));
            });
    entries(j, "zooms", {"ratio", "lux", "declared_size"},
            [&](const json& e, const std::string& f) {
              ZoomBlock block;
              const auto ratio = jsonFloat(member(e, "ratio", f));
              if (!ratio) fail(f + ".ratio", std::string("expected ") + kFloatSpellings);
              block.ratio = *ratio;
              block.luxBands = luxBands(member(e, "lux", f), f + ".lux", "shading", shadingRefs);
              block.declaredSize = declaredSize(e, f);
              out.zooms.push_back(std::move(block));
            });
    out.luts = pool<LutBlock>(j.contains("looks") ? &j["looks"] : nullptr, "looks", lutRefs,
                              [this](const json& s, const std::string& f) { return look(s, f); });
    out.shadings = pool<ShadingBlock>(
        j.contains("shadings") ? &j["shadings"] : nullptr, "shadings", shadingRefs,
        [this](const json& s, const std::string& f) { return shading(s, f); });
    assign(out.scenes, lutRefs);
    assign(out.zooms, shadingRefs);
    return out;
  }

private:
  // Each object of the array `key`, when there is one, with its field path ("scenes[2]").
  template <typename Each>
  void entries(const json& j, const char* key, std::initializer_list<const char*> allowed,
               Each each) const {
    if (!j.contains(key)) return;
    const json& array = j[key];
    if (!array.is_array()) fail(key, "expected an array");
    for (size_t i = 0; i < array.size(); ++i) {
      const std::string field = std::string(key) + "[" + std::to_string(i) + "]";
      keys(array[i], field, allowed);
      each(array[i], field);
    }
  }

  std::optional<uint16_t> declaredSize(const json& block, const std::string& field) const {
    if (!block.contains("declared_size")) return std::nullopt;
    return u16(block["declared_size"], field + ".declared_size");
  }

  template <typename Block>
  static void assign(std::vector<Block>& blocks, const std::vector<BlockRef>& refs) {
    size_t r = 0;
    for (Block& b : blocks)
      for (LuxBand& lux : b.luxBands)
        for (CctBand& cct : lux.ccts) cct.index = uint16_t(refs[r++].index);
  }

  std::string m_file;
  std::string m_base;
  std::vector<LookSource>* m_sources;
};

json floatJson(float v) {
  if (std::isnan(v)) {
    uint32_t bits;
    std::memcpy(&bits, &v, 4);
    char hex[16];
    std::snprintf(hex, sizeof(hex), "0x%08x", bits);
    return hex;
  }
  if (std::isinf(v)) return v > 0 ? "inf" : "-inf";
  return double(v);
}

json bandsJson(const std::vector<LuxBand>& bands, const char* refKey) {
  json out = json::array();
  for (const LuxBand& lux : bands) {
    json ccts = json::array();
    for (const CctBand& c : lux.ccts)
      ccts.push_back({{"start", c.start}, {"end", c.end}, {refKey, c.index}});
    out.push_back({{"start", lux.start}, {"end", lux.end}, {"cct", ccts}});
  }
  return out;
}

}  // namespace

CalibrationFile parseDescription(const json& description, const std::string& file,
                                 const std::string& baseDir, std::vector<LookSource>* sources) {
  return Parser(file, baseDir, sources).parse(description);
}

CalibrationFile readDescription(const std::string& path, std::vector<LookSource>* sources) {
  std::ifstream in(path);
  if (!in) throw std::invalid_argument(path + ": cannot open");
  json j;
  try {
    j = parseJsonBounded(in);
  } catch (const JsonTooDeep& e) {
    throw std::invalid_argument(path + ": malformed JSON: " + e.what());
  } catch (const json::parse_error& e) {
    throw std::invalid_argument(path + ": malformed JSON: " + e.what());
  }
  const fs::path base = fs::path(path).parent_path();
  return parseDescription(j, path, base.empty() ? "." : base.string(), sources);
}

json exportDescription(const CalibrationFile& file, const std::string& jsonDir,
                       const std::string& cubeDir) {
  json out;
  out["trigger_control"] = file.triggerControl;
  out["param_type"] = file.paramType;
  out["param_range"] = file.paramRange;
  out["lut3d_size"] = file.lut3dSize;
  if (file.paramDataOffset) out["param_data_offset"] = *file.paramDataOffset;
  if (file.lutDataOffset) out["lut_data_offset"] = *file.lutDataOffset;
  if (!file.trailingBytes.empty()) out["trailing_bytes"] = file.trailingBytes;
  std::error_code ec;
  fs::create_directories(cubeDir, ec);
  json looks = json::array();
  for (size_t i = 0; i < file.luts.size(); ++i) {
    char name[32];
    std::snprintf(name, sizeof(name), "lut_%03zu.cube", i);
    const fs::path cube = fs::path(cubeDir) / name;
    const std::string text = cubeText(file.luts[i], name);
    lumo::writeFileAtomically(cube.string(), text.data(), text.size());
    looks.push_back({{"cube", fs::relative(cube, jsonDir.empty() ? "." : jsonDir).string()}});
  }
  out["looks"] = looks;
  json shadings = json::array();
  for (const ShadingBlock& s : file.shadings) {
    json values = json::array();
    for (float v : s) values.push_back(floatJson(v));
    shadings.push_back(values);
  }
  out["shadings"] = shadings;
  json scenes = json::array();
  for (const SceneBlock& s : file.scenes) {
    json b = {{"name", s.name}, {"lux", bandsJson(s.luxBands, "lut")}};
    if (s.declaredSize) b["declared_size"] = *s.declaredSize;
    scenes.push_back(b);
  }
  out["scenes"] = scenes;
  json zooms = json::array();
  for (const ZoomBlock& z : file.zooms) {
    json b = {{"ratio", floatJson(z.ratio)}, {"lux", bandsJson(z.luxBands, "shading")}};
    if (z.declaredSize) b["declared_size"] = *z.declaredSize;
    zooms.push_back(b);
  }
  out["zooms"] = zooms;
  return out;
}

}  // namespace calib
