// Shared host options and the per-frame result printing.
#include "host_options.h"

#include <calib/json_values.h>
#include <lumo/contract.h>

#include <algorithm>
#include <cstdio>
#include <nlohmann/json.hpp>
#include <thread>

#include "failure.h"
#include "image_files.h"
#include "interrupt.h"
#include "progress.h"

namespace lumo {

CLI::Validator logLevelNames() {
  return CLI::IsMember({"verbose", "debug", "info", "warn", "error", "silent"});
}

CLI::Validator propertyArgument() {
  return CLI::Validator(
      [](std::string& text) -> std::string {
        const auto eq = text.find('=');
        if (eq == std::string::npos || eq == 0) return "expected KEY=VALUE, got " + text;
        return {};
      },
      "KEY=VALUE");
}

void addHostOptions(CLI::App& c, HostCommandOptions& o, bool withOut) {
  c.add_option("--plugin", o.plugin,
               "Plugin library to load (default: liblumo_filter.so in the "
               "lib folder beside the tool)");
  // An existing folder only: a mistyped root would otherwise be created empty
  // and the plugin would quietly run without its calibration.
  c.add_option("--device-root", o.setup.deviceRoot,
               std::string("Existing folder standing for the device's root: ") + kParamFilePath +
                   " and " + kDumpFolder + " dumps live under it (default: $LUMO_DEVICE_ROOT)")
      ->check(CLI::ExistingDirectory);
  // One value per --prop, so a following positional is never taken for a property.
  c.add_option("--prop", o.setup.props,
               "System property KEY=VALUE, set before the plugin loads (repeatable)")
      ->allow_extra_args(false)
      ->check(propertyArgument());
  c.add_option("--props", o.setup.propsFile,
               "File of KEY=VALUE property lines (getprop's "
               "[key]: [value] works too)")
      ->check(CLI::ExistingFile);
  if (withOut) c.add_option("--out", o.outDir, "Folder for output images (default: .)");
  c.add_option("--log-level", o.setup.logLevel,
               "Lowest Android log priority shown: verbose, debug, info, warn, error, silent "
               "(default: warn on stderr, verbose in a --logcat file)")
      ->check(logLevelNames());
  c.add_option("--logcat", o.setup.logcatFile,
               "Write the Android log (logcat threadtime lines) "
               "to this file instead of stderr");
  c.add_option("--offline-log", o.setup.offlineLog, "Write the host's offline log to this file");
  c.add_option("--stylization", o.stylization,
               "Session stylisation type for frames that give none (0..255; unset: no tag)")
      ->check(CLI::Range(0, 255));
  c.add_flag("--json", o.json, "Print the per-frame results as JSON");
  o.jobs = std::max(1u, std::thread::hardware_concurrency());
  c.add_option("--jobs", o.jobs,
               "Threads around the plugin: frames read ahead and outputs written behind it on "
               "N-1 threads each; the plugin sees the same calls in the same order whatever N "
               "(default: the number of cores)")
      ->check(CLI::Range(1u, 64u));
  c.add_flag_callback(
      "--png-max", [] { setPngCompression(PngCompression::Smallest); },
      "Write PNG outputs at maximum compression (zlib level 9, every filter; about four times "
      "slower). Default: zlib level 1, files about 6% larger");
}

namespace {

void printReports(const std::vector<FrameReport>& reports, bool json) {
  if (json) {
    nlohmann::json out = nlohmann::json::array();
    for (const FrameReport& f : reports) {
      nlohmann::json entry = {{"frame", f.frame},
                              {"instance", modeLabel(f.processMode)},
                              {"process_mode", f.processMode},
                              {"enabled", f.enabled},
                              {"result", f.result},
                              {"aiscene", f.aiscene},
                              {"width", f.width},
                              {"height", f.height},
                              {"format", formatName(f.format)},
                              {"output", f.output}};
      entry.update(outcomeJson(f.outcome));
      out.push_back(entry);
    }
    std::printf("%s\n", nlohmann::json({{"frames", out}})
                            .dump(2, ' ', false, nlohmann::json::error_handler_t::replace)
                            .c_str());
    return;
  }
  std::printf("%-7s %-9s %-15s %-36s %s\n", "frame", "instance", "aiscene", "plugin", "output");
  for (const FrameReport& f : reports) {
    std::printf("%-7u %-9s %-15s %-36s %s\n", f.frame, modeLabel(f.processMode).c_str(),
                f.aiscene.empty() ? "-" : f.aiscene.c_str(), reasonText(f.outcome.reason),
                f.output.c_str());
    for (const std::string& line : outcomeLines(f.outcome))
      std::printf("%-7s %s\n", "", line.c_str());
  }
}

}  // namespace

std::vector<FrameReport> runFrames(const std::vector<SessionFrame>& frames,
                                   const HostCommandOptions& o, const std::string& sessionDir,
                                   bool keepInputs, bool print) {
  applyHostSetup(o.setup);
  ReplayOptions r;
  r.pluginPath = o.plugin;
  r.outDir = o.outDir;
  r.sessionDir = sessionDir;
  r.keepInputs = keepInputs;
  r.jobs = o.jobs;
  if (o.stylization >= 0) r.stylization = uint8_t(o.stylization);
  std::vector<FrameReport> reports, finished;
  int signal = 0;
  try {
    InterruptGuard interrupt;
    Progress progress(stderrIsTerminal() && frames.size() > 1);
    try {
      reports = replaySession(frames, r, [&](const FrameReport& report, size_t done, size_t total) {
        finished.push_back(report);
        progress.update(done, total);
        InterruptGuard::check();  // unwinding removes the staged outputs
      });
    } catch (const Failure&) {
      // A call the signal cut short fails with its own message; the signal is the news.
      if (InterruptGuard::pending() == 0) throw;
      InterruptGuard::check();
    }
  } catch (const Interrupted& e) {
    signal = e.signal();
  }
  if (signal != 0) {
    // The outputs named are not there: the whole session's outputs are written or none.
    if (print && o.json) printReports(finished, true);
    std::fflush(stdout);
    std::fprintf(stderr, "lumo: interrupted after %zu of %zu frames; nothing written\n",
                 finished.size(), frames.size());
    endBySignal(signal);
  }
  if (print) printReports(reports, o.json);
  return reports;
}

float parseFloatArgument(const std::string& text, const std::string& option) {
  nlohmann::json value = nlohmann::json::parse(text, nullptr, false);
  if (value.is_discarded() || !value.is_number()) value = text;
  if (auto f = calib::jsonFloat(value)) return *f;
  throw CLI::ValidationError(option,
                             std::string("expected ") + calib::kFloatSpellings + ", got " + text);
}

}  // namespace lumo
