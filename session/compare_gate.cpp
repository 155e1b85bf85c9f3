// Gate checks and the table of a comparison.
#include "compare_gate.h"

#include <algorithm>
#include <cstdio>
#include <regex>

#include "failure.h"

namespace lumo {
namespace {

double metricOf(const PictureScores& s, const std::string& metric) {
  if (metric == "mean") return s.mean;
  if (metric == "p95") return s.p95;
  if (metric == "max") return s.max;
  return s.share;
}

std::string frameName(const CompareFrame& f) {
  return f.key.session + ":" + std::to_string(f.key.line) + " (frame " + std::to_string(f.frame) +
         ")";
}

std::string number(double v, int decimals) {
  char text[32];
  std::snprintf(text, sizeof(text), "%.*f", decimals, v);
  return text;
}

bool changed(const CompareFrame& f) { return !f.scores.identical || !f.choiceChanges.empty(); }

}  // namespace

ScoreLimit parseScoreLimit(const std::string& text) {
  static const std::regex form(R"(\s*(mean|p95|max|share)\s*(>=|>)\s*([0-9]*\.?[0-9]+)\s*(%?)\s*)");
  std::smatch m;
  if (!std::regex_match(text, m, form))
    throw Failure(
        "--fail-above: expected METRIC>VALUE or METRIC>=VALUE with METRIC one of mean, "
        "p95, max, share (for example p95>2.0 or share>1%), got \"" +
        text + "\"");
  ScoreLimit limit{m[1].str(), m[2].str() == ">=", std::stod(m[3].str()), text};
  if (m[4].length() > 0) {
    if (limit.metric != "share")
      throw Failure("--fail-above: only share takes a percentage, got \"" + text + "\"");
    limit.value /= 100;
  }
  return limit;
}

void addExpectedChanges(ExpectedChanges& expected, const std::string& text) {
  const auto eq = text.find('=');
  const std::string kind = text.substr(0, eq);
  if (eq == std::string::npos || (kind != "scene" && kind != "lut") || eq + 1 == text.size())
    throw Failure(
        "--expect-changes: expected scene=NAME[,NAME...] or lut=BLOCK[,BLOCK...], got \"" + text +
        "\"");
  size_t at = eq + 1;
  while (at <= text.size()) {
    const size_t comma = std::min(text.find(',', at), text.size());
    const std::string item = text.substr(at, comma - at);
    if (item.empty()) throw Failure("--expect-changes: empty name in \"" + text + "\"");
    if (kind == "scene") {
      expected.scenes.push_back(item);
    } else {
      if (item.find_first_not_of("0123456789") != std::string::npos || item.size() > 6)
        throw Failure("--expect-changes: lut=: expected a block number, got \"" + item + "\"");
      expected.luts.push_back(std::stoi(item));
    }
    at = comma + 1;
  }
}

std::vector<std::string> gateFailures(const CompareResult& r, const std::vector<ScoreLimit>& limits,
                                      const ExpectedChanges& expected, bool expectSet) {
  std::vector<std::string> failures;
  for (const CompareFrame& f : r.frames) {
    if (!f.problem.empty()) continue;
    for (const ScoreLimit& l : limits) {
      const double v = metricOf(f.scores, l.metric);
      if (l.orEqual ? v >= l.value : v > l.value)
        failures.push_back(frameName(f) + ": " + l.metric + " " + number(v, 4) + " crosses " +
                           l.text);
    }
    if (!expectSet || !changed(f)) continue;
    const bool inScene =
        std::find(expected.scenes.begin(), expected.scenes.end(), f.scene) != expected.scenes.end();
    const bool inLut = std::any_of(f.luts.begin(), f.luts.end(), [&](int l) {
      return std::find(expected.luts.begin(), expected.luts.end(), l) != expected.luts.end();
    });
    if (!inScene && !inLut) {
      std::string what = f.scores.identical ? "the plugin's choice changed" : "its pixels changed";
      failures.push_back(frameName(f) + ": " + what + " outside the expected changes (scene " +
                         (f.scene.empty() ? "-" : f.scene) + ")");
    }
  }
  return failures;
}

std::string compareTable(const CompareResult& r) {
  size_t changedFrames = 0, missing = 0;
  for (const CompareFrame& f : r.frames) {
    if (!f.problem.empty())
      ++missing;
    else if (changed(f))
      ++changedFrames;
  }
  std::string out = "new " + r.calibNew + " against " + r.calibAgainst + ": " +
                    std::to_string(r.frames.size()) + " frames, " + std::to_string(changedFrames) +
                    " changed" + (missing ? ", " + std::to_string(missing) + " missing" : "") +
                    " (CIEDE2000; share above " + number(r.threshold, 2) + ")\n";
  char line[2048];
  std::snprintf(line, sizeof(line), "%-32s %6s %-9s %-15s %7s %7s %7s %7s  %s\n", "session:line",
                "frame", "instance", "scene", "mean", "p95", "max", "share%", "choice");
  out += line;
  for (const CompareFrame& f : r.frames) {
    const std::string where = f.key.session + ":" + std::to_string(f.key.line);
    if (!f.problem.empty()) {
      std::snprintf(line, sizeof(line), "%-32s %6u %-9s missing: %s\n", where.c_str(), f.frame,
                    f.instance.c_str(), f.problem.c_str());
      out += line;
      continue;
    }
    std::string choice = "same";
    if (!f.choiceChanges.empty()) {
      choice = "changed:";
      for (const std::string& c : f.choiceChanges) choice += " " + c;
    }
    std::snprintf(line, sizeof(line), "%-32s %6u %-9s %-15s %7.4f %7.4f %7.4f %7.2f  %s\n",
                  where.c_str(), f.frame, f.instance.c_str(),
                  f.scene.empty() ? "-" : f.scene.c_str(), f.scores.mean, f.scores.p95,
                  f.scores.max, 100 * f.scores.share, choice.c_str());
    out += line;
    if (!f.choiceChanges.empty()) {
      out += "    against: " + f.choiceAgainst + "\n";
      out += "    new:     " + f.choiceNew + "\n";
    }
  }
  return out;
}

}  // namespace lumo
