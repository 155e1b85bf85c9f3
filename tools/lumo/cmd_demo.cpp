// `lumo demo`: the bundled calibration over generated sample frames through
// both plugin instances, with before/after pictures, the parameter dumps
// and a table of what the plugin chose.
#include <calib/calibration_reader.h>
#include <lumo/contract.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>

#include "commands.h"
#include "exif_dump.h"
#include "failure.h"
#include "host_options.h"
#include "look_names.h"

namespace lumo {
namespace {

namespace fs = std::filesystem;

struct DemoFrame {
  InstanceKind instance;
  const char* picture;  // generated scene
  const char* scene;    // what the scene detector says
  float lux;
  uint32_t cct;
  float zoom;
};

// Chosen so every scene name, both lux bands, both CCT bands, the gaps
// between them (blends) and all three zoom ratios show up.
const DemoFrame kFrames[] = {
    {InstanceKind::Preview, "chart", kCommonScene, 60, 3500, 1.0f},
    {InstanceKind::Preview, "chart", kCommonScene, 800, 6500, 1.0f},
    {InstanceKind::Preview, "sunset", kSunsetScene, 80, 2900, 1.0f},
    {InstanceKind::Preview, "plants", kPlantsScene, 500, 5200, 2.0f},
    {InstanceKind::Preview, "night", kNightScene, 10, 4200, 1.0f},
    {InstanceKind::Snapshot, "food", kFoodScene, 450, 4000, 1.0f},
    {InstanceKind::Snapshot, "portrait", kPortraitScene, 120, 4200, 1.0f},
    {InstanceKind::Snapshot, "sunset", kSunsetScene, 300, 3300, 3.0f},
    {InstanceKind::Snapshot, "chart", kCommonScene, 220, 4500, 2.0f},
    {InstanceKind::Snapshot, "night", kNightScene, 50, 5000, 2.0f},
    {InstanceKind::Snapshot, "plants", kPlantsScene, 90, 6000, 1.0f},
};

fs::path shareDir() {
  std::error_code ec;
  const auto self = fs::read_symlink("/proc/self/exe", ec);
  return self.parent_path().parent_path() / "share" / "lumo";
}

// Names of the calibration file's LUT blocks, from the bundled looks
// description; without it the table shows block numbers.
std::map<size_t, std::string> lookNames(const calib::CalibrationFile& file, const fs::path& json) {
  std::map<size_t, std::string> names;
  try {
    addLookNames(file, json.string(), names);
  } catch (const std::runtime_error&) {
  }
  return names;
}

std::string describeChoice(const std::vector<uint8_t>& lut, const calib::CalibrationFile& file,
                           const std::map<size_t, std::string>& names) {
  if (lut.size() != calib::kLutBlockBytes) return "-";
  size_t best = 0;
  double bestDiff = 1e300;
  for (size_t i = 0; i < file.luts.size(); ++i) {
    double diff = 0;
    for (size_t k = 0; k < lut.size(); ++k) diff += std::abs(int(lut[k]) - int(file.luts[i][k]));
    if (diff < bestDiff) {
      bestDiff = diff;
      best = i;
    }
  }
  if (file.luts.empty()) return "-";
  const auto it = names.find(best);
  const std::string name = it != names.end() ? it->second : "lut " + std::to_string(best);
  return bestDiff == 0 ? name : "blend, mostly " + name;
}

}  // namespace

void addDemoCommand(CLI::App& app) {
  auto o = std::make_shared<HostCommandOptions>();
  o->outDir = "demo-out";
  auto calibration = std::make_shared<std::string>();
  auto size = std::make_shared<std::vector<uint32_t>>(std::vector<uint32_t>{640, 480});
  CLI::App* c = app.add_subcommand(
      "demo",
      "Render the bundled calibration over generated sample frames through both "
      "instances; writes before/after PNG pairs and the parameter dumps into one folder");
  c->add_option("--out", o->outDir, "Output folder (default: demo-out)");
  c->add_option("--calibration", *calibration,
                "Calibration file (default: the bundled one in share/lumo beside the build)");
  c->add_option("--size", *size, "Frame width and height (default: 640 480)")
      ->expected(2)
      ->check(CLI::Range(16, 8192));
  c->add_option("--plugin", o->plugin, "Plugin library (default: the one beside the tool)");
  c->add_option("--log-level", o->setup.logLevel, "Lowest Android log priority on stderr")
      ->check(logLevelNames());
  c->add_flag("--json", o->json, "Print the table as JSON");
  c->callback([o, calibration, size] {
    const fs::path calib =
        calibration->empty() ? shareDir() / kParamFileName : fs::path(*calibration);
    if (!fs::is_regular_file(calib))
      throw Failure(calib.string() +
                    ": no calibration file (build the tree, or pass --calibration)");
    const calib::ReadResult parsed = calib::readCalibrationFile(calib.string());
    const auto names = lookNames(parsed.file, shareDir() / "demo_looks.json");

    // A private simulated device: the calibration under /odm, dumps under /data.
    char rootTemplate[] = "/tmp/lumo-demo-XXXXXX";
    if (::mkdtemp(rootTemplate) == nullptr) throw Failure("cannot create a temporary device root");
    const fs::path root = rootTemplate;
    struct Cleanup {
      fs::path p;
      ~Cleanup() {
        std::error_code ec;
        fs::remove_all(p, ec);
      }
    } cleanup{root};
    const fs::path deviceCalib = root / fs::path(kParamFilePath).relative_path();
    fs::create_directories(deviceCalib.parent_path());
    fs::copy_file(calib, deviceCalib);
    o->setup.deviceRoot = root.string();
    o->setup.props = {std::string(kPropDumpMode) + "=3"};

    std::vector<SessionFrame> frames;
    uint32_t n = 0;
    for (const DemoFrame& d : kFrames) {
      SessionFrame f;
      f.file = "demo";
      f.line = n + 1;
      f.frame = n;
      f.instance = d.instance;
      f.width = (*size)[0] & ~1u;
      f.height = (*size)[1] & ~1u;
      f.input = std::string("generated:") + d.picture;
      char name[96];
      std::snprintf(name, sizeof(name), "%02u_%s_%s.png", n, instanceName(d.instance), d.scene);
      f.output = name;
      f.meta.lux = d.lux;
      f.meta.cct = d.cct;
      f.meta.zoom = d.zoom;
      f.meta.stylization = 1;
      const std::string scene = d.scene;
      if (scene == kPortraitScene)
        f.meta.faces = 1;
      else
        f.meta.scene = sceneIdOfName(scene);
      if (d.instance == InstanceKind::Snapshot) {
        std::snprintf(name, sizeof(name), "DEMO_%02u_%s", n, d.scene);
        f.meta.imageName = name;
      }
      frames.push_back(f);
      ++n;
    }
    const auto reports = runFrames(frames, *o, ".", true, false);

    // Collect the parameter dumps into the output folder.
    std::map<uint32_t, ExifBlock> chosen;
    const fs::path dumps = root / fs::path(kDumpFolder).relative_path();
    for (const auto& entry : fs::directory_iterator(dumps)) {
      const std::string file = entry.path().filename().string();
      if (!file.ends_with(kExifSuffix)) continue;
      fs::copy_file(entry.path(), fs::path(o->outDir) / file, fs::copy_options::overwrite_existing);
      const auto blocks = readExifDump(entry.path().string());
      for (size_t i = 0; i < frames.size(); ++i) {
        const SessionFrame& f = frames[i];
        if (f.instance == InstanceKind::Snapshot && file.starts_with(*f.meta.imageName + "_") &&
            !blocks.empty())
          chosen[f.frame] = blocks.back();
      }
      for (const ExifBlock& b : blocks)
        if (b.frameNum) chosen[*b.frameNum] = b;
    }

    nlohmann::json table = nlohmann::json::array();
    if (!o->json)
      std::printf("%-3s %-9s %-15s %-6s %-5s %-5s | %-15s %-28s %s\n", "#", "instance", "scene tag",
                  "lux", "cct", "zoom", "plugin aiscene", "look", "after / before");
    for (size_t i = 0; i < frames.size(); ++i) {
      const SessionFrame& f = frames[i];
      const FrameReport& r = reports[i];
      const auto it = chosen.find(f.frame);
      const std::string aiscene = it != chosen.end() ? it->second.aiscene : r.aiscene;
      // The dump records the selection even for frames the plugin then copied.
      const std::string look = !r.outcome.filtered ? reasonText(r.outcome.reason)
                               : it != chosen.end()
                                   ? describeChoice(it->second.lut, parsed.file, names)
                                   : "(no dump)";
      const std::string shading = it != chosen.end() ? it->second.shading : "";
      if (o->json) {
        table.push_back({{"frame", f.frame},
                         {"instance", instanceName(f.instance)},
                         {"scene", kFrames[i].scene},
                         {"lux", *f.meta.lux},
                         {"cct", *f.meta.cct},
                         {"zoom", *f.meta.zoom},
                         {"enabled", r.enabled},
                         {"plugin", outcomeJson(r.outcome)},
                         {"aiscene", aiscene},
                         {"look", look},
                         {"shading", shading},
                         {"after", r.output},
                         {"before", r.before}});
      } else {
        std::printf("%-3u %-9s %-15s %-6.0f %-5u %-5.1f | %-15s %-28s %s\n", f.frame,
                    instanceName(f.instance), kFrames[i].scene, double(*f.meta.lux), *f.meta.cct,
                    double(*f.meta.zoom), aiscene.empty() ? "-" : aiscene.c_str(), look.c_str(),
                    fs::path(r.output).filename().c_str());
      }
    }
    if (o->json)
      std::printf("%s\n", nlohmann::json({{"frames", table}}).dump(2).c_str());
    else
      std::printf("pictures and parameter dumps in %s/\n", o->outDir.c_str());
  });
}

}  // namespace lumo
