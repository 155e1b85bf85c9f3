// Matching the looks of a description against a file's LUT pool.
#include "look_names.h"

#include <calib/looks.h>
#include <calib/lut_source.h>

#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <stdexcept>

namespace lumo {

void addLookNames(const calib::CalibrationFile& file, const std::string& descriptionPath,
                  std::map<size_t, std::string>& names) {
  namespace fs = std::filesystem;
  std::ifstream in(descriptionPath);
  if (!in) throw std::runtime_error(descriptionPath + ": cannot open the looks description");
  const nlohmann::json j = nlohmann::json::parse(in, nullptr, false);
  if (j.is_discarded() || !j.is_object() || !j.contains("looks") || !j["looks"].is_object())
    throw std::runtime_error(descriptionPath +
                             ": not a looks description (expected a JSON object with a "
                             "\"looks\" object, as `lumo calib build` reads)");
  const fs::path base = fs::path(descriptionPath).parent_path();
  for (const auto& [name, entry] : j["looks"].items()) {
    if (!entry.is_object()) continue;  // "_comment" keys
    calib::LutBlock lut;
    try {
      const char* key = entry.contains("cube") ? "cube" : entry.contains("lut") ? "lut" : nullptr;
      if (key != nullptr)
        lut = calib::importLut((base / entry[key].get<std::string>()).string(),
                               entry.value("layout", ""))
                  .lut;
      else
        lut = calib::generateLook(
            calib::lookFromJson(entry.value("generate", nlohmann::json::object()), name));
    } catch (const std::exception&) {
      continue;  // a look that cannot be made again names no block
    }
    for (size_t i = 0; i < file.luts.size(); ++i)
      if (file.luts[i] == lut) names.emplace(i, name);
  }
}

}  // namespace lumo
