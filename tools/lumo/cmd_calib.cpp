// `lumo calib build|check|dump|export`: the calibration-file toolkit.
#include <calib/calibration_dump.h>
#include <calib/calibration_reader.h>
#include <calib/description_json.h>
#include <lumo/contract.h>

#include <cstdio>
#include <filesystem>
#include <memory>
#include <nlohmann/json.hpp>

#include "atomic_file.h"
#include "calib_diff.h"
#include "calib_findings.h"
#include "calib_lint.h"
#include "commands.h"
#include "failure.h"
#include "lut_doctor.h"

namespace lumo {
namespace {

calib::ReadResult readOrFail(const std::string& path) {
  if (!std::filesystem::is_regular_file(path)) throw Failure(path + ": no such file");
  return calib::readCalibrationFile(path);
}

// How each look read from a file was brought onto the lattice, and what looks wrong with it.
void printLookSources(const std::vector<calib::LookSource>& sources) {
  for (const calib::LookSource& s : sources) {
    // The field holds the look's name from the description: any bytes at all.
    const std::string field = escapeBytes(s.field), file = escapeBytes(s.path);
    std::printf("%s: %s: %s\n", field.c_str(), file.c_str(), escapeBytes(s.summary).c_str());
    for (const calib::Finding& p : s.problems)
      std::printf("%s\n", escapeBytes(calib::findingLine(s.field + ": " + s.path, p)).c_str());
  }
}

void addBuild(CLI::App& calibApp) {
  auto desc = std::make_shared<std::string>();
  auto out = std::make_shared<std::string>();
  CLI::App* c = calibApp.add_subcommand(
      "build", "Write a calibration file from a JSON description (looks, shadings, band trees)");
  c->add_option("DESCRIPTION", *desc, "JSON description")->required();
  c->add_option("-o,--output", *out, "Calibration file to write")->required();
  c->footer(
      "Description: {\"looks\": {NAME: {\"generate\": {exposure, temperature, tint, contrast, "
      "saturation, shadows, highlights, fade, gamma}} | {\"lut\": FILE}}, \"shadings\": {NAME: "
      "[8 floats]}, \"scenes\": [{\"name\": SCENE, \"lux\": [{\"start\": N, \"end\": N, \"cct\": "
      "[{\"start\": N, \"end\": N, \"lut\": NAME}]}]}], \"zooms\": [{\"ratio\": R, \"lux\": [... "
      "\"shading\": NAME ...]}]}. Scene names the camera reports: " +
      sceneNameList() +
      ". Bands ascend without overlap. The file is checked as "
      "`calib check` would before it is written. Full description: docs/lumo.md (lumo calib); "
      "`calib export` of an existing file gives a worked example. LUT files: any format "
      "OpenColorIO reads (.cube in both dialects, .3dl, .clf, .ctf, .csp, .spi3d, ...), any "
      "lattice of 2 to 129 points, and picture LUTs (.png, .jpg: Hald CLUT or 2D tiles, layout "
      "detected, or forced with \"layout\": \"hald\"|\"tiles\"|\"tiles-up\"|\"strip\"), evaluated "
      "at the 17-point lattice; each is reported with its "
      "resampling error (maximum and mean in code values over a 52^3 grid) and what `lumo lut "
      "doctor` finds wrong with it. Formats: docs/calibration.md.");
  c->callback([desc, out] {
    calib::CalibrationFile file;
    std::vector<uint8_t> bytes;
    std::vector<calib::LookSource> sources;
    try {
      file = calib::readDescription(*desc, &sources);
      bytes = calib::serialize(file);
    } catch (const std::invalid_argument& e) {
      throw Failure(escapeBytes(e.what()));  // it may quote a look's name
    }
    // What `calib check` would reject is not written; what it warns about is said here.
    const calib::ReadResult checked = calib::readCalibration(bytes);
    for (const std::string& line : findingLines(*out, checked))
      std::fprintf(stderr, "lumo: %s\n", line.c_str());
    if (!checked.ok())
      throw Failure(*desc + ": not built: the file would break the format (" +
                    std::to_string(errorCount(checked)) + " errors above)");
    std::string error;
    if (!calib::writeFile(file, *out, &error))
      throw Failure(error.starts_with(*out) ? error : *out + ": " + error);
    printLookSources(sources);
    std::printf("%s: %zu scenes, %zu zoom ratios, %zu LUTs, %zu shadings\n", out->c_str(),
                file.scenes.size(), file.zooms.size(), file.luts.size(), file.shadings.size());
  });
}

void addCheck(CLI::App& calibApp) {
  auto files = std::make_shared<std::vector<std::string>>();
  auto json = std::make_shared<bool>(false);
  auto strict = std::make_shared<bool>(false);
  CLI::App* c = calibApp.add_subcommand(
      "check",
      "Validate calibration files; every problem with its offset, record and what was "
      "expected. Exit 1 when a file has errors");
  c->add_option("FILE", *files, "Calibration files")->required();
  c->add_flag("--json", *json, "Report as JSON");
  c->add_flag("--strict", *strict, "Treat warnings as errors");
  c->callback([files, json, strict] {
    bool failed = false;
    nlohmann::json report = nlohmann::json::array();
    for (const std::string& path : *files) {
      const calib::ReadResult r = readOrFail(path);
      const bool bad = !r.ok() || (*strict && !r.issues.empty());
      failed = failed || bad;
      // A picture or a text file given by mistake gets one line saying so
      // before the findings its bytes produce.
      const std::string foreign = r.ok() ? std::string() : foreignFileKind(path);
      if (*json) {
        nlohmann::json entry = findingsJson(r);
        entry["file"] = escapeBytes(path);
        if (!foreign.empty()) entry["looks_like"] = foreign;
        entry["ok"] = !bad;
        report.push_back(entry);
      } else {
        if (!foreign.empty())
          std::printf("%s: not a calibration file: it looks like %s\n", escapeBytes(path).c_str(),
                      foreign.c_str());
        for (const std::string& line : findingLines(path, r)) std::printf("%s\n", line.c_str());
        std::printf("%s: %s\n", escapeBytes(path).c_str(), bad ? "FAILED" : "ok");
      }
    }
    if (*json) std::printf("%s\n", report.dump(2).c_str());
    if (failed) throw Failure("calibration file check failed");
  });
}

void addDump(CLI::App& calibApp) {
  auto file = std::make_shared<std::string>();
  CLI::App* c = calibApp.add_subcommand("dump", "Print a calibration file as text");
  c->add_option("FILE", *file, "Calibration file")->required();
  c->callback([file] {
    const calib::ReadResult r = readOrFail(*file);
    if (!r.ok()) {
      for (const std::string& line : findingLines(*file, r))
        std::fprintf(stderr, "%s\n", line.c_str());
      throw Failure(*file + ": not dumped: not a readable calibration file (" +
                    std::to_string(errorCount(r)) + " errors; see `lumo calib check`)");
    }
    std::fputs(escapeBytes(calib::dumpText(r, *file), true).c_str(), stdout);
  });
}

void addExport(CLI::App& calibApp) {
  auto file = std::make_shared<std::string>();
  auto json = std::make_shared<std::string>();
  auto cubeDir = std::make_shared<std::string>();
  CLI::App* c = calibApp.add_subcommand(
      "export",
      "Export a calibration file back to a JSON description and .cube LUTs; "
      "`calib build` on the result writes the same bytes");
  c->add_option("FILE", *file, "Calibration file")->required();
  c->add_option("--json", *json, "JSON description to write")->required();
  c->add_option("--cube-dir", *cubeDir, "Folder for lut_NNN.cube files (default: beside the JSON)");
  c->callback([file, json, cubeDir] {
    const calib::ReadResult r = readOrFail(*file);
    if (!r.ok()) {
      for (const std::string& line : findingLines(*file, r))
        std::fprintf(stderr, "%s\n", line.c_str());
      throw Failure(*file + ": not exported: the file breaks the format");
    }
    const auto jsonDir = std::filesystem::path(*json).parent_path();
    const std::string dir = jsonDir.empty() ? "." : jsonDir.string();
    nlohmann::json description;
    try {
      description = calib::exportDescription(r.file, dir, cubeDir->empty() ? dir : *cubeDir);
    } catch (const std::exception& e) {
      throw Failure(e.what());
    }
    const std::string text = description.dump(2) + "\n";
    writeFileAtomically(*json, text.data(), text.size());
    std::printf("%s: %zu LUTs as .cube files\n", json->c_str(), r.file.luts.size());
  });
}

void addLint(CLI::App& calibApp) {
  auto files = std::make_shared<std::vector<std::string>>();
  auto json = std::make_shared<bool>(false);
  auto strict = std::make_shared<bool>(false);
  CLI::App* c = calibApp.add_subcommand(
      "lint",
      "What a valid calibration file allows but is probably a mistake; each finding names the "
      "record. Exit 1 when a file breaks the format (see `calib check`), or with --strict on "
      "any finding");
  c->add_option("FILE", *files, "Calibration files")->required();
  c->add_flag("--json", *json, "Report as JSON");
  c->add_flag("--strict", *strict, "Exit 1 when any finding fires");
  c->footer(
      "Rules: single-cct (a scene whose every lux band has one CCT band: the look never follows "
      "white balance); no-low-lux (a scene or zoom block whose lowest lux band starts at 50 lux "
      "or more); never-chosen (a scene or zoom block repeating an earlier name or ratio, a LUT "
      "or shading block no CCT band refers to); missing-scene (a scene the camera reports with "
      "no block); zoom-order (zoom ratios not ascending in file order); shared-block (one block "
      "in two separate patches of a grid whose neighbouring blocks differ: an index copied into "
      "the wrong cell?). Details: "
      "docs/calibration.md.");
  c->callback([files, json, strict] {
    bool failed = false;
    nlohmann::json report = nlohmann::json::array();
    for (const std::string& path : *files) {
      const calib::ReadResult r = readOrFail(path);
      if (!r.ok()) {
        for (const std::string& line : findingLines(path, r))
          std::fprintf(stderr, "%s\n", line.c_str());
        throw Failure(path + ": not linted: the file breaks the format (" +
                      std::to_string(errorCount(r)) + " errors; see `lumo calib check`)");
      }
      const std::vector<calib::Finding> findings = lintCalibration(r.file);
      failed = failed || (*strict && !findings.empty());
      if (*json) {
        nlohmann::json entry = lintJson(findings);
        entry["file"] = escapeBytes(path);
        report.push_back(entry);
      } else {
        for (const calib::Finding& f : findings)
          std::printf("%s\n", escapeBytes(calib::findingLine(path, f)).c_str());
        std::printf("%s: %s\n", escapeBytes(path).c_str(),
                    counted(findings.size(), "finding").c_str());
      }
    }
    if (*json) std::printf("%s\n", report.dump(2).c_str());
    if (failed) throw Failure("calib lint: findings with --strict");
  });
}

void addDiff(CLI::App& calibApp) {
  auto a = std::make_shared<std::string>();
  auto b = std::make_shared<std::string>();
  auto json = std::make_shared<bool>(false);
  CLI::App* c = calibApp.add_subcommand(
      "diff",
      "What changed from calibration file A to B, per scene, band and zoom ratio; for LUT "
      "blocks the colour difference on the reference chart");
  c->add_option("A", *a, "Calibration file before")->required();
  c->add_option("B", *b, "Calibration file after")->required();
  c->add_flag("--json", *json, "Report as JSON");
  c->footer(
      "Scenes are matched by name and zoom blocks by ratio, as the plugin finds them; lux and CCT "
      "bands by position. Reported: header texts, added and removed scenes, zoom ratios and "
      "bands, changed band limits, a cell pointing at another block, and changed block contents. "
      "A LUT block whose contents changed is measured on the 24-patch reference chart: CIEDE2000 "
      "mean and maximum, with the three worst patches. Exit 0 whether or not the files differ; 1 "
      "when either breaks the format.");
  c->callback([a, b, json] {
    calib::ReadResult ra = readOrFail(*a), rb = readOrFail(*b);
    for (const auto* r : {&ra, &rb})
      if (!r->ok())
        throw Failure((r == &ra ? *a : *b) +
                      ": not compared: the file breaks the format (see `lumo calib check`)");
    const std::vector<DiffEntry> entries = diffCalibration(ra.file, rb.file);
    if (*json) {
      std::printf("%s\n", diffJson(entries).dump(2).c_str());
      return;
    }
    for (const DiffEntry& e : entries) std::printf("%s\n", diffLine(e).c_str());
    std::printf("%s\n", counted(entries.size(), "change").c_str());
  });
}

}  // namespace

void addCalibCommand(CLI::App& app) {
  CLI::App* c =
      app.add_subcommand("calib", "Calibration files: build, check, dump, export, lint, diff");
  c->require_subcommand(1);
  addBuild(*c);
  addCheck(*c);
  addDump(*c);
  addExport(*c);
  addLint(*c);
  addDiff(*c);
}

}  // namespace lumo
