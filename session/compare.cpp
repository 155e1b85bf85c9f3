// Running two calibrations over the same frames, one decode per frame.
#include "compare.h"

#include <hostsim/log_sink.h>
#include <stdlib.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <set>

#include "failure.h"
#include "filter_tap.h"
#include "frame_pipeline.h"
#include "host_setup.h"
#include "picture_crop.h"
#include "replay_host.h"
#include "session.h"

namespace lumo {
namespace {

namespace fs = std::filesystem;

uint64_t fnv1a(const char* data, size_t size, uint64_t h = 1469598103934665603ull) {
  for (size_t i = 0; i < size; ++i) {
    h ^= uint8_t(data[i]);
    h *= 1099511628211ull;
  }
  return h;
}

// Each calibration gets a device tree of its own for the run (the plugin
// finds its file at the one path the phone has), and the second host loads
// its own copy of the plugin library: a library loaded twice under one name
// is one library, with one calibration store. Removed at the end.
class CompareTrees {
public:
  CompareTrees(const CompareOptions& o, const std::string& pluginPath) {
    const fs::path base = o.workRoot.empty() ? fs::temp_directory_path() : fs::path(o.workRoot);
    std::string pattern = (base / "lumo-compare-XXXXXX").string();
    if (::mkdtemp(pattern.data()) == nullptr)
      throw Failure(base.string() + ": cannot make the compare's work folder there");
    m_dir = pattern;
    newRoot = plant(m_dir / "new", o.calibNew);
    againstRoot = plant(m_dir / "against", o.calibAgainst);
    if (!fs::exists(pluginPath)) throw Failure(pluginPath + ": no plugin library there (--plugin)");
    againstPlugin = (m_dir / "against" / fs::path(pluginPath).filename()).string();
    std::error_code ec;
    fs::copy_file(pluginPath, againstPlugin, ec);
    if (ec) throw Failure(againstPlugin + ": cannot copy the plugin there: " + ec.message());
  }
  ~CompareTrees() {
    std::error_code ec;
    fs::remove_all(m_dir, ec);
  }
  CompareTrees(const CompareTrees&) = delete;
  CompareTrees& operator=(const CompareTrees&) = delete;

  std::string newRoot, againstRoot, againstPlugin;

private:
  static std::string plant(const fs::path& root, const std::string& calibration) {
    std::error_code ec;
    fs::create_directories(root / "odm/etc/camera", ec);
    if (!ec) fs::create_directories(root / "data/vendor/camera", ec);
    if (!ec) fs::copy_file(calibration, root / "odm/etc/camera/lumo_filter_param.bin", ec);
    if (ec) throw Failure(calibration + ": cannot stage it for the run: " + ec.message());
    return root.string();
  }
  fs::path m_dir;
};

std::string choiceText(const FrameOutcome& o) {
  if (!o.filtered) return std::string("copied: ") + reasonKey(o.reason);
  std::string text;
  for (const std::string& line : outcomeLines(o)) {
    if (line.starts_with("script ")) continue;
    text += (text.empty() ? "" : "; ") + line;
  }
  return text;
}

std::vector<std::string> choiceChanges(const FrameOutcome& x, const FrameOutcome& y) {
  std::vector<std::string> changes;
  if (x.filtered != y.filtered || x.reason != y.reason) changes.push_back("reason");
  if (x.lutIndex != y.lutIndex) changes.push_back("lut");
  if (x.lutWeight != y.lutWeight) changes.push_back("weights");
  if (x.shading != y.shading) changes.push_back("shading");
  if (x.script != y.script) changes.push_back("script");
  return changes;
}

// The missing input of a frame, in words; empty when the input is there
// (or generated).
std::string missingInput(const SessionFrame& f, const std::string& sessionDir) {
  if (!f.input || f.input->starts_with(kGeneratedPrefix)) return {};
  const fs::path p =
      fs::path(*f.input).is_absolute() ? fs::path(*f.input) : fs::path(sessionDir) / *f.input;
  std::error_code ec;
  if (fs::is_regular_file(p, ec)) return {};
  return f.where("input") + p.string() + ": no such file";
}

// The most changed frames' pictures, kept while frames are scored on
// several threads: a frame that ends among the first `count` is among them
// whenever it is scored, so its pictures are always made.
class PictureKeeper {
public:
  PictureKeeper(size_t count, PictureMaker make) : m_count(count), m_make(std::move(make)) {}

  void offer(const CompareFrame& frame, const Image& input, const Image& against,
             const Image& after) {
    if (!m_make || m_count == 0 || frame.scores.identical) return;
    {
      std::lock_guard<std::mutex> lock(m_mutex);
      if (m_kept.size() >= m_count && !changedMore(frame, m_kept.back().first)) return;
    }
    FramePictures pictures = m_make(input, against, after);
    pictures.key = frame.key;
    std::lock_guard<std::mutex> lock(m_mutex);
    m_kept.emplace_back(frame, std::move(pictures));
    std::sort(m_kept.begin(), m_kept.end(),
              [](const auto& x, const auto& y) { return changedMore(x.first, y.first); });
    if (m_kept.size() > m_count) m_kept.pop_back();
  }

  std::vector<FramePictures> take() {
    std::vector<FramePictures> out;
    for (auto& kept : m_kept) out.push_back(std::move(kept.second));
    return out;
  }

private:
  size_t m_count;
  PictureMaker m_make;
  std::mutex m_mutex;
  std::vector<std::pair<CompareFrame, FramePictures>> m_kept;
};

}  // namespace

PictureScores roundedScores(PictureScores s) {
  // Four decimals: what the table and the JSON carry, so a result read back
  // from a shard file sorts exactly as the one it was written from.
  for (double* v : {&s.mean, &s.p95, &s.max, &s.share}) *v = std::round(*v * 1e4) / 1e4;
  return s;
}

bool changedMore(const CompareFrame& x, const CompareFrame& y) {
  const bool xm = !x.problem.empty(), ym = !y.problem.empty();
  if (xm != ym) return ym;
  if (x.scores.p95 != y.scores.p95) return x.scores.p95 > y.scores.p95;
  if (x.scores.max != y.scores.max) return x.scores.max > y.scores.max;
  if (x.scores.mean != y.scores.mean) return x.scores.mean > y.scores.mean;
  if (x.choiceChanges.empty() != y.choiceChanges.empty()) return y.choiceChanges.empty();
  return x.key < y.key;
}

std::string fileDigest(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) throw Failure(path + ": cannot read");
  uint64_t h = fnv1a(nullptr, 0);
  char buffer[1 << 16];
  while (in) {
    in.read(buffer, sizeof(buffer));
    h = fnv1a(buffer, size_t(in.gcount()), h);
  }
  char hex[17];
  std::snprintf(hex, sizeof(hex), "%016llx", static_cast<unsigned long long>(h));
  return hex;
}

bool inShard(const FrameKey& key, uint32_t index, uint32_t count) {
  const std::string name = key.session + ":" + std::to_string(key.line);
  return fnv1a(name.data(), name.size()) % count == index - 1;
}

CompareResult compareSessions(const std::vector<std::string>& sessionPaths, const CompareOptions& o,
                              const std::function<void(size_t, size_t)>& onFrame) {
  CompareResult result;
  result.calibNew = o.calibNew;
  result.calibAgainst = o.calibAgainst;
  result.digestNew = fileDigest(o.calibNew);
  result.digestAgainst = fileDigest(o.calibAgainst);
  result.threshold = o.threshold;
  result.pictureCount = o.pictureCount;
  result.shard = o.shard;

  // Every session is read and checked before anything runs.
  struct Work {
    std::string path, dir;
    std::vector<SessionFrame> frames;  // of this shard, inputs there
  };
  std::vector<Work> work;
  std::vector<std::string> missing;
  std::set<std::string> seen;
  size_t total = 0;
  for (const std::string& path : sessionPaths) {
    if (!seen.insert(path).second) throw Failure(path + ": named twice");
    result.sessions.push_back({path, fileDigest(path)});
    Work w{path, fs::path(path).parent_path().string(), {}};
    if (w.dir.empty()) w.dir = ".";
    for (SessionFrame& f : readSession(path)) {
      const FrameKey key{path, f.line};
      if (o.shard && !inShard(key, o.shard->first, o.shard->second)) continue;
      if (std::string why = missingInput(f, w.dir); !why.empty()) {
        missing.push_back(why);
        CompareFrame c;
        c.key = key;
        c.frame = f.frame;
        c.instance = modeLabel(processModeOf(f));
        c.problem = why;
        result.frames.push_back(c);
        continue;
      }
      w.frames.push_back(std::move(f));
      ++total;
    }
    work.push_back(std::move(w));
  }
  std::sort(result.sessions.begin(), result.sessions.end(),
            [](const SessionInput& x, const SessionInput& y) { return x.path < y.path; });
  for (const std::string& why : missing)
    std::fprintf(stderr, "lumo: missing input: %s\n", why.c_str());
  if (!missing.empty() && !o.keepGoing)
    throw Failure(std::to_string(missing.size()) +
                  " frame(s) have no input (listed above); --keep-going runs the others");

  const std::string pluginPath = o.pluginPath.empty() ? defaultPluginPath() : o.pluginPath;
  CompareTrees trees(o, pluginPath);
  PictureKeeper keeper(o.pictureCount, o.makePictures);
  const size_t helpers = o.jobs > 1 ? o.jobs - 1 : 0;
  size_t done = 0;
  for (const Work& w : work) {
    if (w.frames.empty()) continue;
    // Each session starts with fresh instances, as its own replay would.
    hostsim::LogCapture capture;
    FilterTap tap;
    ReplayHost after(pluginPath, o.stylization, capture, tap, trees.newRoot);
    ReplayHost against(trees.againstPlugin, o.stylization, capture, tap, trees.againstRoot);
    const size_t first = result.frames.size();
    result.frames.resize(first + w.frames.size());
    FramePrefetch prefetch(w.frames, w.dir, helpers);
    // Scoring runs behind the plugin, on the threads that write a replay's outputs.
    BackgroundWrites scoring(helpers);
    for (size_t i = 0; i < w.frames.size(); ++i) {
      const SessionFrame& f = w.frames[i];
      FrameImage source = prefetch.get(i);
      Image outNew, outAgainst;
      const FrameReport rn = after.process(f, source, source.buffer, outNew);
      const FrameReport ra = against.process(f, source, source.buffer, outAgainst);
      CompareFrame& c = result.frames[first + i];
      c.key = {w.path, f.line};
      c.frame = f.frame;
      c.instance = modeLabel(rn.processMode);
      c.scene = rn.aiscene.empty() ? ra.aiscene : rn.aiscene;
      c.choiceChanges = choiceChanges(ra.outcome, rn.outcome);
      c.choiceNew = choiceText(rn.outcome);
      c.choiceAgainst = choiceText(ra.outcome);
      std::set<int> luts;
      for (const FrameOutcome* oc : {&rn.outcome, &ra.outcome})
        if (oc->lutIndex) luts.insert(oc->lutIndex->begin(), oc->lutIndex->end());
      c.luts.assign(luts.begin(), luts.end());
      scoring.submit([&c, &keeper, threshold = o.threshold, source = std::move(source),
                      outNew = std::move(outNew), outAgainst = std::move(outAgainst)]() mutable {
        shrinkPicture(outNew, source.width, source.height);
        shrinkPicture(outAgainst, source.width, source.height);
        shrinkPicture(source.buffer, source.width, source.height);
        c.scores = roundedScores(scorePictures(outAgainst, outNew, threshold));
        keeper.offer(c, source.buffer, outAgainst, outNew);
      });
      if (onFrame) onFrame(++done, total);
    }
    scoring.drain();
  }
  std::sort(result.frames.begin(), result.frames.end(), changedMore);
  result.pictures = keeper.take();
  return result;
}

}  // namespace lumo
