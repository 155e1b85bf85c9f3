// `lumo report`: one self-contained HTML page showing what a calibration
// holds, what the plugin's selection makes of it, and what the plugin did
// with each frame of a session.
#include <calib/calibration_reader.h>
#include <lumo/contract.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <memory>
#include <nlohmann/json.hpp>

#include "atomic_file.h"
#include "calib_findings.h"
#include "commands.h"
#include "coverage.h"
#include "diff_section.h"
#include "failure.h"
#include "fit_section.h"
#include "frame_source.h"
#include "host_options.h"
#include "host_setup.h"
#include "image_files.h"
#include "look_names.h"
#include "picture_crop.h"
#include "pictures.h"
#include "report_command.h"
#include "sections.h"

namespace lumo {
namespace {

namespace fs = std::filesystem;
using namespace report;

// Longest side of the pictures a frame panel shows; JPEG quality of them.
constexpr uint32_t kPictureSide = 320;
constexpr int kPictureQuality = 80;
// Room kept for everything but the frame pictures.
constexpr size_t kPageReserveBytes = 1u << 20;

struct ReportOptions {
  HostCommandOptions host;
  std::string calib;
  std::string session;
  std::string against;             // the baseline --calib is compared with
  std::vector<std::string> looks;  // descriptions that name LUT blocks
  std::string fit;                 // the JSON record of `lut fit --json`
  std::string output;
};

void progress(const std::string& what) { std::fprintf(stderr, "lumo: report: %s\n", what.c_str()); }

// A temporary folder removed with everything in it.
struct TempDir {
  TempDir() {
    char name[] = "/tmp/lumo-report-XXXXXX";
    if (::mkdtemp(name) == nullptr) throw Failure("cannot create a temporary folder");
    path = name;
  }
  ~TempDir() {
    std::error_code ec;
    fs::remove_all(path, ec);
  }
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;
  fs::path path;
};

// Band limits worth seeing: an open-ended last band (up to 65535) would
// otherwise squeeze everything else into a corner of the map.
constexpr double kOpenEnd = 60000;

double maxLuxOf(const calib::CalibrationFile& file) {
  double top = 100;
  const auto take = [&](const std::vector<calib::LuxBand>& bands) {
    for (const auto& l : bands) {
      top = std::max(top, double(l.start));
      if (l.end < kOpenEnd) top = std::max(top, double(l.end));
    }
  };
  for (const auto& s : file.scenes) take(s.luxBands);
  for (const auto& z : file.zooms) take(z.luxBands);
  return std::min(65535.0, top * 4);
}

std::pair<double, double> cctRangeOf(const calib::CalibrationFile& file) {
  double lo = 2000, hi = 8000;
  const auto take = [&](const std::vector<calib::LuxBand>& bands) {
    for (const auto& l : bands)
      for (const auto& c : l.ccts) {
        lo = std::min(lo, double(c.start));
        hi = std::max(hi, double(c.start));
        if (c.end < kOpenEnd) hi = std::max(hi, double(c.end));
      }
  };
  for (const auto& s : file.scenes) take(s.luxBands);
  for (const auto& z : file.zooms) take(z.luxBands);
  return {std::max(0.0, lo - 500), std::min(65535.0, hi + 2000)};
}

void addCalibrationSections(const calib::CalibrationFile& file, const SelectionProbe& probe,
                            const BlockNames& looks, std::vector<Section>& sections,
                            std::string& styles) {
  progress("calibration: " + std::to_string(file.scenes.size()) + " scenes, " +
           std::to_string(file.luts.size()) + " LUT swatches");
  sections.push_back(calibrationSection(file, styles, looks));
  progress("coverage: sampling the plugin's selection");
  const auto lux = luxAxis(maxLuxOf(file), 96);
  const auto [cctLo, cctHi] = cctRangeOf(file);
  const auto cct = cctAxis(cctLo, cctHi, 48);
  std::vector<CoverageMap> scenes, zooms;
  std::vector<std::string> names;
  for (const auto& s : file.scenes)
    if (std::find(names.begin(), names.end(), s.name) == names.end()) names.push_back(s.name);
  for (const std::string& name : names) scenes.push_back(probe.sceneMap(name, lux, cct));
  std::vector<float> ratios;
  for (const auto& z : file.zooms)
    if (std::find(ratios.begin(), ratios.end(), z.ratio) == ratios.end()) ratios.push_back(z.ratio);
  for (const float r : ratios) zooms.push_back(probe.zoomMap(r, lux, cct));
  sections.push_back(
      coverageSection(scenes, zooms, coverageFindings(file, scenes, zooms, &probe), looks));
}

std::string pictureUri(const Image& rgba) {
  return dataUri("image/jpeg", jpegBytes(thumbnail(rgba, kPictureSide), kPictureQuality));
}

// The frame's input as the plugin got it: the copy the replay kept, or the
// input loaded again the way the replay loads it.
Image beforePicture(const SessionFrame& frame, const FrameReport& report,
                    const std::string& sessionDir) {
  if (!report.before.empty()) return toRgba(readImage(report.before));
  FrameImage source = loadFrameImage(frame, sessionDir);
  shrinkPicture(source.buffer, source.width, source.height);
  return toRgba(source.buffer);
}

std::vector<ReplayFrame> replayFrames(const std::vector<SessionFrame>& frames,
                                      const std::vector<FrameReport>& reports,
                                      const std::string& sessionDir, size_t budget) {
  std::vector<ReplayFrame> out;
  std::map<uint32_t, std::optional<std::array<int, 4>>> previous;
  size_t used = 0;
  for (size_t i = 0; i < frames.size() && i < reports.size(); ++i) {
    const SessionFrame& s = frames[i];
    const FrameReport& r = reports[i];
    ReplayFrame f;
    f.frame = r.frame;
    f.instance = modeLabel(r.processMode);
    if (s.meta.lux) f.lux = *s.meta.lux;
    if (s.meta.cct) f.cct = *s.meta.cct;
    if (s.meta.zoom) f.zoom = *s.meta.zoom;
    f.scene = r.aiscene;
    f.filtered = r.outcome.filtered;
    f.outcome = reasonText(r.outcome.reason);
    f.detail = r.outcome.detail;
    f.lutIndex = r.outcome.lutIndex;
    f.lutWeight = r.outcome.lutWeight;
    f.shading = r.outcome.shading;
    f.script = r.outcome.script;
    if (r.outcome.heldSize) f.heldScript = heldSizeText(*r.outcome.heldSize);
    auto& last = previous[r.processMode];
    f.selectionChanged = f.lutIndex && f.lutIndex != last;
    if (f.lutIndex) last = f.lutIndex;
    if (used < budget) {
      try {
        f.before = pictureUri(beforePicture(s, r, sessionDir));
        f.after = pictureUri(toRgba(readImage(r.output)));
        used += f.before.size() + f.after.size();
      } catch (const Failure& e) {
        f.before.clear();
        f.pictureNote = std::string("pictures not readable: ") + e.what();
      }
    } else {
      f.pictureNote = "pictures left out to keep the page within " +
                      std::to_string(kPageBudgetBytes >> 20) + " MiB";
    }
    out.push_back(std::move(f));
  }
  return out;
}

void addReplaySections(const ReportOptions& o, const SelectionProbe* probe,
                       std::vector<Section>& sections) {
  const auto frames = readSession(o.session);
  if (frames.empty()) throw Failure(o.session + ": no frames in the session");
  TempDir out;
  HostCommandOptions host = o.host;
  host.outDir = (out.path / "frames").string();
  // Outputs go to the temporary folder under names of the tool's choosing.
  std::vector<SessionFrame> renamed = frames;
  for (size_t i = 0; i < renamed.size(); ++i) renamed[i].output = "f" + std::to_string(i) + ".png";
  const auto dir = fs::path(o.session).parent_path();
  const std::string sessionDir = dir.empty() ? "." : dir.string();
  progress("replay: " + std::to_string(frames.size()) + " frames");
  const auto reports = runFrames(renamed, host, sessionDir, true, false);
  addSessionSections(frames, reports, sessionDir, probe, sections);
}

}  // namespace

void addSessionSections(const std::vector<SessionFrame>& frames,
                        const std::vector<FrameReport>& reports, const std::string& sessionDir,
                        const SelectionProbe* probe, std::vector<Section>& sections) {
  sections.push_back(replaySection(
      replayFrames(frames, reports, sessionDir, kPageBudgetBytes - kPageReserveBytes)));

  // The strip: the first filtered frame, its LUT as the plugin blends it.
  for (size_t i = 0; i < reports.size(); ++i) {
    const FrameReport& r = reports[i];
    if (!r.outcome.filtered || r.outcome.script.empty() || probe == nullptr) continue;
    const FrameMeta& m = frames[i].meta;
    const uint16_t lux = uint16_t(std::clamp(m.lux.value_or(0.0f), 0.0f, 65535.0f));
    const uint16_t cct = uint16_t(std::min<uint32_t>(m.cct.value_or(0), 65535));
    std::vector<uint8_t> lut;
    if (!probe->blendedLut(r.aiscene, lux, cct, lut)) continue;
    std::vector<StrengthPicture> strip;
    try {
      const Image before = thumbnail(beforePicture(frames[i], r, sessionDir), kPictureSide);
      for (const double s : kStrengths)
        strip.push_back({s, dataUri("image/jpeg",
                                    jpegBytes(applyScript(before, r.outcome.script, lut.data(), s),
                                              kPictureQuality))});
    } catch (const std::exception&) {
      continue;  // a picture the tool cannot read again, or a script the renderer refuses
    }
    sections.push_back(strengthSection(
        "frame " + std::to_string(r.frame) + " (" + modeLabel(r.processMode) + ", scene " +
            r.aiscene +
            ") through its own effect script, the LUT blended by the plugin's selection "
            "for its lux and CCT, at five LUT strengths",
        strip));
    return;
  }
}

namespace {

void addChartStrip(const calib::CalibrationFile& file, std::vector<Section>& sections) {
  for (const auto& s : file.scenes)
    for (const auto& l : s.luxBands)
      for (const auto& c : l.ccts) {
        if (c.index >= file.luts.size()) continue;
        const Image chart = report::referenceChart();
        std::vector<StrengthPicture> strip;
        for (const double k : kStrengths)
          strip.push_back(
              {k, dataUri("image/png", pngBytes(applyLut(chart, file.luts[c.index].data(), k)))});
        sections.push_back(strengthSection("the reference chart through block " +
                                               std::to_string(c.index) + " (scene " + s.name +
                                               ", its first cell) at five LUT strengths",
                                           strip));
        return;
      }
}

// Block names from the looks descriptions, the first description naming a block winning.
BlockNames blockNames(const calib::CalibrationFile& file, const std::vector<std::string>& looks) {
  BlockNames names;
  for (const std::string& description : looks) {
    try {
      addLookNames(file, description, names);
    } catch (const std::runtime_error& e) {
      throw Failure(e.what());
    }
  }
  return names;
}

// The calibration part of a page; the probe stays for the session part.
struct CalibrationPart {
  calib::ReadResult parsed;
  BlockNames names;
  std::unique_ptr<SelectionProbe> probe;
};

CalibrationPart addCalibration(const std::string& path, const std::vector<std::string>& looks,
                               std::vector<Section>& sections, std::string& styles) {
  CalibrationPart part;
  if (!fs::is_regular_file(path)) throw Failure(path + ": no such file");
  part.parsed = calib::readCalibrationFile(path);
  if (!part.parsed.ok()) {
    for (const std::string& line : findingLines(path, part.parsed))
      std::fprintf(stderr, "%s\n", line.c_str());
    throw Failure(path + ": no report: not a readable calibration file (" +
                  std::to_string(errorCount(part.parsed)) + " errors; see `lumo calib check`)");
  }
  part.probe = std::make_unique<SelectionProbe>(path);
  part.names = blockNames(part.parsed.file, looks);
  addCalibrationSections(part.parsed.file, *part.probe, part.names, sections, styles);
  return part;
}

void finishPage(std::vector<Section>& sections, const std::string& styles,
                const CalibrationPart* calibration, const std::string& title,
                const std::string& output) {
  const bool hasStrip = std::any_of(sections.begin(), sections.end(),
                                    [](const Section& s) { return s.id == "strength"; });
  if (!hasStrip && calibration != nullptr) addChartStrip(calibration->parsed.file, sections);
  const std::string html = page(title, sections, styles);
  writeFileAtomically(output, html.data(), html.size());
  std::printf("%s: %zu sections, %zu KiB (budget %zu KiB)\n", output.c_str(), sections.size(),
              html.size() >> 10, kPageBudgetBytes >> 10);
}

// The record `lut fit --json` prints, as the fit section takes it.
FitRecord readFitRecord(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  nlohmann::json j;
  try {
    j = nlohmann::json::parse(in);
    FitRecord r;
    r.name = j.value("output", fs::path(path).stem().string());
    r.edge = j.at("lattice_size").get<int>();
    if (r.edge < 2 || r.edge > 129) throw Failure(path + ": lattice_size: 2..129 expected");
    r.smooth = j.at("smooth").get<double>();
    r.emptyCells = j.at("coverage").at("empty_cells").get<std::vector<uint32_t>>();
    r.heldOutBy = j.at("held_out_by").get<std::string>();
    for (auto [key, into] : {std::pair{"training", &r.training}, {"held_out", &r.heldOut}}) {
      const nlohmann::json& e = j.at(key);
      *into = {e.at("pixels").get<size_t>(), e.at("mean").get<double>(), e.at("p95").get<double>(),
               e.at("max").get<double>()};
    }
    for (auto [key, into] : {std::pair{"by_hue", &r.byHue}, {"by_lightness", &r.byLightness}})
      for (const nlohmann::json& b : j.at(key))
        into->push_back({b.at("label").get<std::string>(), b.at("pixels").get<size_t>(),
                         b.at("mean").get<double>(), b.at("p95").get<double>()});
    r.notes = j.at("notes").get<std::vector<std::string>>();
    return r;
  } catch (const nlohmann::json::exception& e) {
    throw Failure(path + ": not the JSON of `lumo lut fit --json`: " + e.what());
  }
}

void writeReport(ReportOptions& o) {
  if (o.calib.empty() && o.session.empty() && o.fit.empty())
    throw CLI::ValidationError("--calib/--session/--fit",
                               "give a calibration file, a session, a fit or several");
  std::vector<Section> sections;
  std::string styles;
  TempDir device;
  std::string calibPath = o.calib;
  if (!o.session.empty() && calibPath.empty()) {
    applyHostSetup(o.host.setup);
    calibPath = calibrationFilePath();
    if (!fs::exists(calibPath)) calibPath.clear();
  } else if (!o.session.empty() && o.host.setup.deviceRoot.empty()) {
    // The session runs against the calibration the page shows.
    const fs::path deviceCalib = device.path / fs::path(kParamFilePath).relative_path();
    fs::create_directories(deviceCalib.parent_path());
    fs::copy_file(calibPath, deviceCalib);
    o.host.setup.deviceRoot = device.path.string();
  }
  if (!o.against.empty() && o.calib.empty())
    throw CLI::ValidationError("--against", "needs --calib to compare with");
  CalibrationPart calibration;
  if (!calibPath.empty()) calibration = addCalibration(calibPath, o.looks, sections, styles);
  if (!o.against.empty()) {
    const calib::ReadResult baseline = calib::readCalibrationFile(o.against);
    if (!baseline.ok())
      throw Failure(o.against + ": no diff: not a readable calibration file (" +
                    std::to_string(errorCount(baseline)) + " errors; see `lumo calib check`)");
    progress("diff: the chart through every cell of both files");
    // The page shows --calib; --against is what it changed from. Two files
    // of the same name are told apart by the paths as given.
    const bool sameName = fs::path(o.calib).filename() == fs::path(o.against).filename();
    const auto shown = [&](const std::string& p) {
      return sameName ? p : fs::path(p).filename().string();
    };
    sections.push_back(diffSection(baseline.file, calibration.parsed.file, shown(o.against),
                                   shown(o.calib), styles, blockNames(baseline.file, o.looks),
                                   calibration.names));
  }
  if (!o.session.empty()) addReplaySections(o, calibration.probe.get(), sections);
  if (!o.fit.empty()) sections.push_back(fitSection(readFitRecord(o.fit)));
  const std::string title =
      !o.fit.empty() && o.calib.empty() && o.session.empty()
          ? "Lumo report: " + fs::path(o.fit).filename().string()
          : "Lumo report: " +
                (o.calib.empty() ? std::string() : fs::path(o.calib).filename().string()) +
                (!o.calib.empty() && !o.session.empty() ? ", " : "") +
                (o.session.empty() ? std::string() : fs::path(o.session).filename().string());
  finishPage(sections, styles, calibPath.empty() ? nullptr : &calibration, title, o.output);
}

}  // namespace

void writeSessionReport(const std::vector<SessionFrame>& frames,
                        const std::vector<FrameReport>& reports, const std::string& sessionDir,
                        const std::string& sessionName, const std::string& output) {
  std::vector<Section> sections;
  std::string styles;
  const std::string calibPath = calibrationFilePath();
  CalibrationPart calibration;
  const bool withCalibration = fs::is_regular_file(calibPath);
  if (withCalibration) calibration = addCalibration(calibPath, {}, sections, styles);
  addSessionSections(frames, reports, sessionDir, calibration.probe.get(), sections);
  finishPage(sections, styles, withCalibration ? &calibration : nullptr,
             "Lumo report: " + sessionName, output);
}

void addReportCommand(CLI::App& app) {
  auto o = std::make_shared<ReportOptions>();
  CLI::App* c = app.add_subcommand(
      "report",
      "Write one self-contained HTML page: a calibration's cells, swatches and shading curves, "
      "the plugin's selection over lux and CCT, and a session's frames with before/after");
  c->add_option("--calib", o->calib, "Calibration file to show")->check(CLI::ExistingFile);
  c->add_option("--session", o->session, "Session to replay and show (.jsonl)")
      ->check(CLI::ExistingFile);
  c->add_option("--against", o->against,
                "Baseline calibration file: adds a diff section of what changed from it to "
                "--calib (CIEDE2000 per cell on the colour checker, changes in words, worst "
                "cells side by side)")
      ->check(CLI::ExistingFile);
  c->add_option("--looks", o->looks,
                "Looks description (the JSON `lumo calib build` reads) whose look names label "
                "the LUT blocks they match byte for byte; may be given more than once")
      ->check(CLI::ExistingFile);
  c->add_option("--fit", o->fit,
                "JSON record of `lumo lut fit --json`: adds a section with the fitted look's "
                "lattice coverage and its error by hue and lightness")
      ->check(CLI::ExistingFile);
  c->add_option("-o,--output", o->output, "HTML file to write")->required();
  addHostOptions(*c, o->host, false);
  c->footer(
      "The page needs no network: charts are inline SVG, pictures data URIs, at most 4 MiB. "
      "With --session and --calib (and no --device-root) the session runs against that "
      "calibration. See docs/report.md.");
  c->callback([o] { writeReport(*o); });
}

}  // namespace lumo
