// `lumo compare --calib NEW --against OLD SESSION...` and `lumo compare merge SHARD...`.
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <nlohmann/json.hpp>

#include "atomic_file.h"
#include "commands.h"
#include "compare_gate.h"
#include "compare_page.h"
#include "compare_shards.h"
#include "failure.h"
#include "host_options.h"
#include "interrupt.h"
#include "progress.h"

namespace lumo {
namespace {

struct CompareCommand {
  HostCommandOptions host;
  std::string calibNew, calibAgainst;
  std::vector<std::string> sessions;
  std::vector<std::string> shards;  // merge
  double threshold = 2.0;
  std::vector<std::string> failAbove, expectChanges;
  std::string shard;
  std::string output, html;
  bool keepGoing = false;
  size_t pictures = 6;
};

// Exit status 1 without another message: the reasons are printed already.
class GateFailed : public Failure {
public:
  GateFailed() : Failure("") {}
};

std::string readBytes(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) throw Failure(path + ": cannot read");
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

std::pair<uint32_t, uint32_t> parseShard(const std::string& text) {
  const auto slash = text.find('/');
  try {
    if (slash != std::string::npos) {
      const unsigned long i = std::stoul(text.substr(0, slash));
      const unsigned long n = std::stoul(text.substr(slash + 1));
      if (std::to_string(i) + "/" + std::to_string(n) == text && i >= 1 && i <= n && n <= 100000)
        return {uint32_t(i), uint32_t(n)};
    }
  } catch (const std::exception&) {
  }
  throw CLI::ValidationError("--shard", "expected I/N with 1 <= I <= N, got \"" + text + "\"");
}

void writeText(const std::string& path, const std::string& text) {
  writeFileAtomically(path, text.data(), text.size());
}

struct Gate {
  std::vector<ScoreLimit> limits;
  ExpectedChanges expected;
};

// Read before anything runs: a mistyped gate is a usage error.
Gate parseGate(const CompareCommand& o) {
  Gate gate;
  try {
    for (const std::string& f : o.failAbove) gate.limits.push_back(parseScoreLimit(f));
    for (const std::string& e : o.expectChanges) addExpectedChanges(gate.expected, e);
  } catch (const Failure& e) {
    throw CLI::ValidationError(e.what());
  }
  return gate;
}

// Prints, writes and gates one result: shared by a run and a merge, so a
// merge of shards says exactly what the unsharded run says.
void finish(const CompareResult& result, const CompareCommand& o, const Gate& gate) {
  const bool gateSet = !gate.limits.empty() || !o.expectChanges.empty();
  const auto failures = gateFailures(result, gate.limits, gate.expected, !o.expectChanges.empty());
  if (!o.output.empty()) writeText(o.output, compareJson(result, true).dump(1) + "\n");
  if (o.host.json)
    std::printf("%s\n", compareJson(result, false).dump(2).c_str());
  else
    std::printf("%s", compareTable(result).c_str());
  if (!o.html.empty()) {
    report::ComparePage page;
    page.calibNew = result.calibNew;
    page.calibAgainst = result.calibAgainst;
    page.threshold = result.threshold;
    page.gate = failures;
    page.gateSet = gateSet;
    std::vector<report::ComparePictures> pictures;
    pictures.reserve(result.pictures.size());
    for (const FramePictures& p : result.pictures)
      pictures.push_back({p.before, p.against, p.after, p.difference});
    for (const CompareFrame& f : result.frames) {
      report::CompareRow row;
      row.frame = f.key.session + ":" + std::to_string(f.key.line) + " (frame " +
                  std::to_string(f.frame) + ", " + f.instance + ")";
      row.scene = f.scene;
      row.mean = f.scores.mean;
      row.p95 = f.scores.p95;
      row.max = f.scores.max;
      row.share = f.scores.share;
      row.identical = f.scores.identical;
      row.problem = f.problem;
      row.choice = "same";
      if (!f.choiceChanges.empty()) {
        row.choice = "changed:";
        for (const std::string& c : f.choiceChanges) row.choice += " " + c;
        row.choice += " (against: " + f.choiceAgainst + "; new: " + f.choiceNew + ")";
      }
      for (size_t i = 0; i < result.pictures.size(); ++i)
        if (result.pictures[i].key == f.key) row.pictures = &pictures[i];
      page.rows.push_back(row);
    }
    writeText(o.html, report::comparePage(page));
  }
  size_t missing = 0;
  for (const CompareFrame& f : result.frames) missing += f.problem.empty() ? 0 : 1;
  for (const std::string& f : failures)
    std::fprintf(stderr, "lumo: compare: gate: %s\n", f.c_str());
  if (!failures.empty())
    std::fprintf(stderr, "lumo: compare: gate failed on %zu finding(s)\n", failures.size());
  if (missing) std::fprintf(stderr, "lumo: compare: %zu frame(s) had no input\n", missing);
  if (!failures.empty() || missing) throw GateFailed();
}

void addGateOptions(CLI::App& c, CompareCommand& o) {
  c.add_option("--fail-above", o.failAbove,
               "Fail (exit 1) when any frame's score crosses: METRIC>VALUE or METRIC>=VALUE, "
               "METRIC one of mean, p95, max (CIEDE2000) or share (0..1, or with %); repeatable")
      ->allow_extra_args(false);
  c.add_option("--expect-changes", o.expectChanges,
               "Fail (exit 1) when a frame outside these changes at all (pixels or the plugin's "
               "choice): scene=NAME[,NAME] by the scene the plugin took, lut=BLOCK[,BLOCK] by the "
               "LUT blocks it blended on either side; repeatable, any match allows")
      ->allow_extra_args(false);
  c.add_option("--html", o.html, "Also write an offline HTML page with the most changed frames");
  c.add_option("-o,--output", o.output,
               "Write the result document (JSON with the page's pictures) to this file; a shard "
               "writes its slice here for `lumo compare merge`");
}

}  // namespace

void addCompareCommand(CLI::App& app) {
  auto o = std::make_shared<CompareCommand>();
  CLI::App* c = app.add_subcommand(
      "compare",
      "Replay capture sessions under two calibration files and score how each frame's output "
      "changed (a regression gate for calibration edits)");
  c->add_option("--calib", o->calibNew, "The new calibration file")->check(CLI::ExistingFile);
  c->add_option("--against", o->calibAgainst, "The calibration file to compare against")
      ->check(CLI::ExistingFile);
  c->add_option("SESSION", o->sessions, "Session files (.jsonl)")->check(CLI::ExistingFile);
  addHostOptions(*c, o->host, false);
  c->remove_option(c->get_option("--png-max"));  // a compare encodes no output
  c->get_option("--device-root")
      ->description(
          "Existing folder standing for the device's root (logs; default $LUMO_DEVICE_ROOT). "
          "Each calibration runs from a private copy of the device tree made for the run and "
          "removed after it; dumps the plugin writes there are not kept");
  c->add_option("--threshold", o->threshold,
                "CIEDE2000 above which a pixel counts as changed in the share column (default 2.0)")
      ->check(CLI::Range(0.0, 1000.0));
  c->add_option("--shard", o->shard,
                "Run only slice I of N (1-based; by a hash of session file name and line, so the "
                "slices do not depend on the order of sessions) and write it with -o");
  c->add_flag("--keep-going", o->keepGoing,
              "Run the frames whose inputs are there when others' are missing (still exit 1)");
  c->add_option("--pictures", o->pictures,
                "Most changed frames shown with pictures on the page (default 6)")
      ->check(CLI::Range(0, 100));
  addGateOptions(*c, *o);
  c->footer(
      "Exit status: 0 every frame ran and the gate passed; 1 the gate failed, an input was "
      "missing or the run failed; 2 usage. Byte-identical calibrations end at once with 0. "
      "See docs/compare.md for the workflow and for sharding across machines.");

  auto m = std::make_shared<CompareCommand>();
  CLI::App* merge = c->add_subcommand(
      "merge", "Merge the shard files of one sharded compare into the result of one whole run");
  merge->add_option("SHARD", m->shards, "Shard files written by compare --shard I/N -o FILE")
      ->required()
      ->check(CLI::ExistingFile);
  merge->add_flag("--json", m->host.json, "Print the result as JSON");
  addGateOptions(*merge, *m);
  merge->callback([m] {
    const Gate gate = parseGate(*m);
    std::vector<ShardFile> shards;
    for (const std::string& path : m->shards) {
      const nlohmann::json doc = nlohmann::json::parse(readBytes(path), nullptr, false);
      if (doc.is_discarded()) throw Failure(path + ": not JSON (a shard file from compare -o)");
      shards.push_back({path, compareFromJson(doc, path)});
    }
    finish(mergeShards(shards), *m, gate);
  });

  c->callback([o, merge] {
    if (merge->parsed()) return;
    if (o->calibNew.empty() || o->calibAgainst.empty())
      throw CLI::RequiredError("--calib and --against");
    if (o->sessions.empty()) throw CLI::RequiredError("SESSION");
    const Gate gate = parseGate(*o);
    CompareOptions options;
    if (!o->shard.empty()) {
      options.shard = parseShard(o->shard);
      if (o->output.empty())
        throw CLI::ValidationError("--shard", "a shard writes its slice with -o FILE");
    }
    if (readBytes(o->calibNew) == readBytes(o->calibAgainst)) {
      std::printf("%s and %s are byte-identical: no frame can change\n", o->calibNew.c_str(),
                  o->calibAgainst.c_str());
      return;
    }
    applyHostSetup(o->host.setup);
    options.calibNew = o->calibNew;
    options.calibAgainst = o->calibAgainst;
    options.pluginPath = o->host.plugin;
    options.threshold = o->threshold;
    options.keepGoing = o->keepGoing;
    options.jobs = o->host.jobs;
    options.pictureCount = o->pictures;
    if (o->host.stylization >= 0) options.stylization = uint8_t(o->host.stylization);
    options.makePictures = [](const Image& input, const Image& against, const Image& after) {
      const report::ComparePictures p = report::comparePictures(input, against, after);
      return FramePictures{{}, p.before, p.against, p.after, p.difference};
    };
    CompareResult result;
    try {
      InterruptGuard interrupt;
      Progress progress(stderrIsTerminal());
      result = compareSessions(o->sessions, options, [&](size_t done, size_t total) {
        progress.update(done, total);
        InterruptGuard::check();  // nothing is written before the end
      });
    } catch (const Interrupted& e) {
      endBySignal(e.signal());
    }
    finish(result, *o, gate);
  });
}

}  // namespace lumo
