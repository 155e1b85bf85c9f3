// Session replay through the simulated camera host.
#include "replay.h"

#include <hostsim/log_sink.h>
#include <lumo/contract.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <set>

#include "failure.h"
#include "filter_tap.h"
#include "frame_memory.h"
#include "frame_pipeline.h"
#include "host_setup.h"
#include "image_files.h"
#include "picture_crop.h"
#include "replay_host.h"

namespace lumo {
namespace {

namespace fs = std::filesystem;

// Output files go to a staging folder first and move into place only when
// the whole session went through.
class Staging {
public:
  explicit Staging(const std::string& outDir) : m_out(outDir) {
    std::error_code ec;
    fs::create_directories(m_out, ec);
    if (ec) throw Failure(outDir + ": cannot create the output folder: " + ec.message());
    m_dir = m_out / (".lumo-staging-" + std::to_string(::getpid()));
    fs::remove_all(m_dir, ec);
    fs::create_directories(m_dir, ec);
    if (ec) throw Failure(outDir + ": cannot write output files there: " + ec.message());
  }
  ~Staging() {
    std::error_code ec;
    fs::remove_all(m_dir, ec);
  }
  Staging(const Staging&) = delete;
  Staging& operator=(const Staging&) = delete;

  // Where to write `name` now, and records where it goes at the end.
  std::string stage(const std::string& name, const SessionFrame& frame) {
    const fs::path rel(name);
    const fs::path normal = rel.lexically_normal();
    if (rel.is_absolute() || (!normal.empty() && *normal.begin() == ".."))
      throw Failure(frame.where("output") + "\"" + name + "\" must stay inside the output folder");
    const std::string key = rel.lexically_normal().string();
    // A file cannot also be a folder of another output. Checked here, in
    // session order, because the writes themselves may run out of order.
    for (fs::path parent = fs::path(key).parent_path(); !parent.empty();
         parent = parent.parent_path())
      if (auto it = m_final.find(parent.string()); it != m_final.end())
        throw Failure(frame.where("output") + "\"" + name + "\" needs \"" + it->first +
                      "\" as a folder, but line " + std::to_string(it->second) +
                      " writes it as a file");
    if (auto it = m_final.lower_bound(key + "/");
        it != m_final.end() && it->first.starts_with(key + "/"))
      throw Failure(frame.where("output") + "\"" + name + "\" is a folder of line " +
                    std::to_string(it->second) + "'s output \"" + it->first + "\"");
    if (!m_final.emplace(key, frame.line).second)
      throw Failure(frame.where("output") + "\"" + name + "\" is already written by another frame");
    const fs::path staged = m_dir / rel;
    std::error_code ec;
    fs::create_directories(staged.parent_path(), ec);
    return staged.string();
  }
  std::string finalPath(const std::string& name) const {
    return (m_out / name).lexically_normal().string();
  }

  // Claims `name` now (name clashes are found in session order) and returns
  // the write of `image` into the staging folder, to run now or behind the
  // frame loop; its errors name the file the user gets, not the staged one.
  std::function<void()> write(const std::string& name, const SessionFrame& frame, Image image) {
    const std::string staged = stage(name, frame);
    return
        [staged, user = finalPath(name), where = frame.where("output"), image = std::move(image)] {
          try {
            writeImage(staged, image);
          } catch (const Failure& e) {
            std::string message = e.what();
            for (size_t at = message.find(staged); at != std::string::npos;
                 at = message.find(staged, at + user.size()))
              message.replace(at, staged.size(), user);
            throw Failure(where + message);
          }
        };
  }

  void commit() {
    // Check every staged file before moving any: the output folder may have
    // been removed during the session, and moving the survivors would leave
    // a partial set of outputs.
    for (const auto& [rel, line] : m_final) {
      std::error_code ec;
      if (!fs::is_regular_file(m_dir / rel, ec))
        throw Failure(m_out.string() + ": output \"" + rel +
                      "\" vanished before the session ended (was the output folder removed?)");
      // A symlinked subfolder would move the output out of the folder.
      fs::path at = m_out;
      for (const fs::path& part : fs::path(rel).parent_path()) {
        at /= part;
        if (fs::is_symlink(at, ec))
          throw Failure(at.string() +
                        ": a symlink; outputs are not written through one (output \"" + rel +
                        "\")");
      }
    }
    for (const auto& [rel, line] : m_final) {
      const fs::path to = m_out / rel;
      std::error_code ec;
      fs::create_directories(to.parent_path(), ec);
      fs::rename(m_dir / rel, to, ec);
      if (ec) throw Failure(to.string() + ": cannot move into place: " + ec.message());
    }
  }

private:
  fs::path m_out;
  fs::path m_dir;
  std::map<std::string, size_t> m_final;
};

// A tag nobody in the camera stack reads is most likely a typo of one that
// is read: say so once per tag, on the first line that uses it.
void warnUnreadTags(const std::vector<SessionFrame>& frames) {
  static const char* const kRead[] = {kTagAwbFrameControl, kTagAecFrameControl, kTagAiSceneResult,
                                      kTagSnapshotImageName, kTagStylizationType};
  std::set<std::string> warned;
  for (const SessionFrame& frame : frames) {
    for (const RawTag& tag : frame.meta.tags) {
      const bool read =
          tag.number ? (*tag.number == kTagZoomRatio || *tag.number == kTagFaceRectangles)
                     : std::find(std::begin(kRead), std::end(kRead), tag.key) != std::end(kRead);
      if (read || !warned.insert(tag.key).second) continue;
      std::fprintf(stderr,
                   "lumo: warning: %sno part of the camera stack reads this tag (names read: %s, "
                   "%s, %s, %s, %s; numbers: ANDROID_CONTROL_ZOOM_RATIO, "
                   "ANDROID_STATISTICS_FACE_RECTANGLES); said once\n",
                   frame.where("meta.tags." + tag.key).c_str(), kRead[0], kRead[1], kRead[2],
                   kRead[3], kRead[4]);
    }
  }
}

}  // namespace

std::string defaultOutputName(const SessionFrame& frame) {
  char name[64];
  std::snprintf(name, sizeof(name), "frame_%06u_%s.png", frame.frame,
                modeLabel(processModeOf(frame)).c_str());
  return name;
}

std::vector<std::string> outputNames(const std::vector<SessionFrame>& frames) {
  std::map<std::string, size_t> uses;
  for (const SessionFrame& f : frames)
    if (!f.output) ++uses[defaultOutputName(f)];
  std::vector<std::string> names;
  for (const SessionFrame& f : frames) {
    if (f.output) {
      names.push_back(*f.output);
      continue;
    }
    std::string name = defaultOutputName(f);
    if (uses[name] > 1) name.insert(name.rfind('.'), "_line" + std::to_string(f.line));
    names.push_back(name);
  }
  return names;
}

std::vector<FrameReport> replaySession(const std::vector<SessionFrame>& frames,
                                       const ReplayOptions& options, const FrameCallback& onFrame) {
  const std::string pluginPath =
      options.pluginPath.empty() ? defaultPluginPath() : options.pluginPath;
  warnUnreadTags(frames);
  Staging staging(options.outDir);
  hostsim::LogCapture capture;
  FilterTap tap;
  const std::vector<std::string> names = outputNames(frames);
  std::vector<FrameReport> reports;
  {
    ReplayHost host(pluginPath, options.stylization, capture, tap);
    // Declared after the staging folder: pending writes finish before it goes.
    const size_t helpers = options.jobs > 1 ? options.jobs - 1 : 0;
    FramePrefetch prefetch(frames, options.sessionDir, helpers);
    BackgroundWrites writes(helpers);
    for (size_t i = 0; i < frames.size(); ++i) {
      const SessionFrame& frame = frames[i];
      FrameImage source = prefetch.get(i);
      Image result;
      FrameReport report = host.process(frame, source, source.buffer, result);
      shrinkPicture(result, source.width, source.height);  // back from the even padding
      const std::string& name = names[i];
      writes.submit(staging.write(name, frame, std::move(result)));
      report.output = staging.finalPath(name);
      if (options.keepInputs) {
        const fs::path p(name);
        const std::string beforeName =
            (p.parent_path() / (p.stem().string() + "_before.png")).string();
        Image before = std::move(source.buffer);
        shrinkPicture(before, source.width, source.height);
        writes.submit(staging.write(beforeName, frame, std::move(before)));
        report.before = staging.finalPath(beforeName);
      }
      reports.push_back(report);
      if (onFrame) onFrame(report, i + 1, frames.size());
    }
    // Nothing is read or rendered any more: the freed frames' memory goes
    // back now, beside the last encode, instead of at the exit.
    frameMemoryTrim();
    writes.drain();
  }
  staging.commit();
  return reports;
}

}  // namespace lumo
