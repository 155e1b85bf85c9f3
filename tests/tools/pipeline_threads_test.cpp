// The threads around the plugin: frames read ahead (FramePrefetch), outputs
// written behind (BackgroundWrites) and host buffers reused across frames
// (BufferPool). These tests also run under ThreadSanitizer, where a missing
// hand-over between the reading, writing and frame-loop threads is a race.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "failure.h"
#include "frame_pipeline.h"
#include "image_files.h"
#include "replay.h"
#include "replay_root.h"
#include "session.h"
#include "test_scenes.h"

namespace {

namespace fs = std::filesystem;

std::vector<lumo::SessionFrame> sessionOf(const std::vector<std::string>& lines) {
  std::vector<lumo::SessionFrame> frames;
  for (size_t i = 0; i < lines.size(); ++i)
    frames.push_back(lumo::parseFrameLine(lines[i], "s.jsonl", i + 1));
  return frames;
}

class PipelineThreads : public lumotest::ReplayRoot {
protected:
  // A 64x48 NV21 dump (stride 64) whose bytes depend on `seed`.
  std::string rawInput(const std::string& name, int seed) {
    const std::string path = root + "/" + name;
    std::string bytes(64 * 48 * 3 / 2, '\0');
    for (size_t i = 0; i < bytes.size(); ++i) bytes[i] = char((i * 7 + size_t(seed) * 31) & 0xFF);
    std::ofstream(path, std::ios::binary) << bytes;
    return path;
  }

  // Replays `frames` into outDir with `jobs`; the failure message, or empty.
  std::string replay(const std::vector<lumo::SessionFrame>& frames, unsigned jobs,
                     const std::string& outDir, std::vector<lumo::FrameReport>* reports = nullptr) {
    lumo::ReplayOptions options;
    options.pluginPath = LUMO_PLUGIN_LIBRARY;
    options.outDir = outDir;
    options.sessionDir = root;
    options.jobs = jobs;
    try {
      const auto r = lumo::replaySession(frames, options);
      if (reports) *reports = r;
    } catch (const lumo::Failure& failure) {
      return failure.what();
    }
    return {};
  }
};

TEST_F(PipelineThreads, PipelinedReplayWritesWhatATurnByTurnReplayWrites) {
  rawInput("a_64x48_64.nv21", 1);
  rawInput("b_64x48_64.nv21", 2);
  lumo::writeImage(root + "/p.png", lumo::generateScene("plants", 40, 30));
  // More frames of one geometry than the pool keeps, sizes that change in
  // between, an odd size (padded to even), both instances, a frame the host
  // copies (no stylisation), raw, PNG and JPEG outputs.
  const std::string meta = R"("meta": {"stylization": 1, "lux": 300, "cct": 4000})";
  std::vector<std::string> lines;
  for (int i = 0; i < 6; ++i)
    lines.push_back(R"({"instance": "snapshot", "input": ")" + std::string(i % 2 ? "b" : "a") +
                    R"(_64x48_64.nv21", "output": "r)" + std::to_string(i) + R"(.nv21", )" + meta +
                    "}");
  lines.push_back(R"({"instance": "preview", "input": "p.png", "output": "p.jpg", )" + meta + "}");
  lines.push_back(
      R"({"instance": "preview", "input": "generated:food", "width": 33, "height": 21, )"
      R"("output": "odd.png", )" +
      meta + "}");
  lines.push_back(R"({"instance": "snapshot", "input": "a_64x48_64.nv21", "output": "copy.nv21", )"
                  R"("meta": {"stylization": 0}})");
  lines.push_back(R"({"instance": "preview", "input": "p.png", "output": "p2.png", )" + meta + "}");
  const auto frames = sessionOf(lines);

  std::vector<lumo::FrameReport> serialReports;
  ASSERT_EQ(replay(frames, 1, root + "/out1", &serialReports), "");
  const auto serial = lumotest::filesUnder(root + "/out1");
  ASSERT_EQ(serial.size(), frames.size());
  for (unsigned jobs : {2u, 3u}) {
    SCOPED_TRACE(jobs);
    const std::string out = root + "/out" + std::to_string(jobs);
    std::vector<lumo::FrameReport> reports;
    ASSERT_EQ(replay(frames, jobs, out, &reports), "");
    EXPECT_TRUE(lumotest::filesUnder(out) == serial) << "outputs differ from the --jobs 1 run";
    ASSERT_EQ(reports.size(), serialReports.size());
    for (size_t i = 0; i < reports.size(); ++i) {
      EXPECT_EQ(reports[i].enabled, serialReports[i].enabled) << i;
      EXPECT_EQ(reports[i].result, serialReports[i].result) << i;
      EXPECT_EQ(reports[i].aiscene, serialReports[i].aiscene) << i;
      EXPECT_EQ(fs::path(reports[i].output).filename(),
                fs::path(serialReports[i].output).filename())
          << i;
    }
  }
}

// Frame-sized images are lent to the host as its buffers, not copied: a
// frame the host copies comes back byte for byte, padding included, and a
// filtered one is rendered into the output, its input left as it was.
TEST_F(PipelineThreads, LargeFramesAreLentToTheHostInPlace) {
  const uint32_t width = 1040, height = 780, stride = 1088;  // 1.3 MB
  std::string bytes(size_t(stride) * height * 3 / 2, '\0');
  for (size_t i = 0; i < bytes.size(); ++i)
    if (i % stride < width) bytes[i] = char((i * 13) & 0xFF);
  std::ofstream(root + "/big_1040x780_1088.nv21", std::ios::binary) << bytes;
  const auto frames = sessionOf(
      {R"({"instance": "snapshot", "input": "big_1040x780_1088.nv21", "output": "copy.nv21", )"
       R"("meta": {"stylization": 0}})",
       R"({"instance": "snapshot", "input": "big_1040x780_1088.nv21", "output": "look.nv21", )"
       R"("meta": {"stylization": 1, "lux": 300, "cct": 4000}})"});
  std::vector<lumo::FrameReport> reports;
  ASSERT_EQ(replay(frames, 2, root + "/out", &reports), "");
  const auto out = lumotest::filesUnder(root + "/out");
  EXPECT_TRUE(out.at("copy.nv21") == bytes);
  ASSERT_EQ(reports.size(), 2u);
  EXPECT_EQ(std::make_tuple(reports[1].enabled, reports[1].outcome.reason),
            std::make_tuple(true, lumo::PassReason::None));
  const std::string& look = out.at("look.nv21");
  ASSERT_EQ(look.size(), bytes.size());
  size_t changed = 0, padding = 0;
  for (size_t i = 0; i < look.size(); ++i) {
    if (i % stride < width)
      changed += look[i] != bytes[i];
    else
      padding += look[i] != 0;
  }
  EXPECT_GT(changed, look.size() / 4);
  EXPECT_EQ(padding, 0u);
}

TEST_F(PipelineThreads, AFailureOnAHelperThreadStopsTheSessionAtItsFrame) {
  rawInput("a_64x48_64.nv21", 1);
  const std::string ok = R"({"instance": "preview", "input": "a_64x48_64.nv21", "output": ")";
  const std::string meta = R"(", "meta": {"stylization": 1}})";
  const struct Row {
    const char* what;
    std::vector<std::string> lines;
    std::string expected;  // start of the message
  } rows[] = {
      {"an input that is missing when read ahead",
       {ok + "a.nv21" + meta, ok + "b.nv21" + meta,
        R"({"instance": "preview", "input": "gone.nv21", "width": 64, "height": 48})",
        ok + "d.nv21" + meta},
       "s.jsonl:3: field \"input\": "},
      {"an output the writer refuses (its name gives another size)",
       {ok + "a.nv21" + meta, ok + "b_10x10_10.nv21" + meta, ok + "c.nv21" + meta,
        ok + "d.nv21" + meta},
       "s.jsonl:2: field \"output\": "},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.what);
    const auto frames = sessionOf(row.lines);
    // One output folder for every run: messages name the output's path.
    const std::string out = root + "/out";
    const std::string serial = replay(frames, 1, out);
    EXPECT_EQ(serial.rfind(row.expected, 0), 0u) << serial;
    for (unsigned jobs : {2u, 3u}) {
      SCOPED_TRACE(jobs);
      EXPECT_EQ(replay(frames, jobs, out), serial);
      EXPECT_TRUE(lumotest::filesUnder(out).empty());
    }
  }
}

// Every write finishes within the limit of writes in flight; a failed one is
// rethrown once the writes before it are done, and writes still under way
// when it surfaces are waited for.
TEST(PipelineThreadsUnit, BackgroundWritesFinishWithinTheirLimitAndRethrowAFailure) {
  for (const auto& [inFlight, failing] :
       {std::pair<size_t, int>{0, 11}, {1, 11}, {2, 11}, {4, 11}, {1, 4}, {3, 4}}) {
    SCOPED_TRACE(std::to_string(inFlight) + " in flight, write " + std::to_string(failing) +
                 " fails");
    // Plain ints, written on the writer threads and read here after drain:
    // the drain is the only hand-over.
    std::vector<int> written(12, -1);
    std::atomic<int> running{0}, most{0};
    std::string message;
    lumo::BackgroundWrites writes(inFlight);
    try {
      for (int i = 0; i < int(written.size()); ++i)
        writes.submit([&, i] {
          const int now = ++running;
          int seen = most.load();
          while (now > seen && !most.compare_exchange_weak(seen, now)) {
          }
          std::this_thread::sleep_for(std::chrono::milliseconds(2));
          --running;
          if (i == failing) throw lumo::Failure("write failed");
          written[size_t(i)] = i * i;
        });
      writes.drain();
    } catch (const lumo::Failure& failure) {
      message = failure.what();
    }
    EXPECT_EQ(message, "write failed");
    for (int i = 0; i < failing; ++i) EXPECT_EQ(written[size_t(i)], i * i) << i;
    EXPECT_EQ(written[size_t(failing)], -1);
    EXPECT_GE(most.load(), 1);
    EXPECT_LE(most.load(), int(std::max<size_t>(inFlight, 1)));
  }
}

TEST_F(PipelineThreads, PrefetchHandsOutFramesInOrderAndErrorsAtTheirFrame) {
  std::vector<std::string> lines;
  for (int i = 0; i < 6; ++i) {
    const std::string name = "f" + std::to_string(i) + "_64x48_64.nv21";
    if (i != 4) rawInput(name, i);
    lines.push_back(R"({"instance": "preview", "input": ")" + name + R"("})");
  }
  const auto frames = sessionOf(lines);
  for (size_t ahead : {0u, 1u, 3u}) {
    SCOPED_TRACE(ahead);
    lumo::FramePrefetch prefetch(frames, root, ahead);
    for (size_t i = 0; i < 4; ++i) {
      std::ifstream in(root + "/f" + std::to_string(i) + "_64x48_64.nv21", std::ios::binary);
      const std::string expected{std::istreambuf_iterator<char>(in), {}};
      const lumo::FrameImage frame = prefetch.get(i);
      EXPECT_TRUE(std::string(frame.buffer.bytes.begin(), frame.buffer.bytes.end()) == expected)
          << "frame " << i;
    }
    try {
      prefetch.get(4);
      ADD_FAILURE() << "the missing frame 4 was read";
    } catch (const lumo::Failure& failure) {
      EXPECT_EQ(std::string(failure.what()).rfind("s.jsonl:5: field \"input\": ", 0), 0u)
          << failure.what();
    }
  }
}

TEST(PipelineThreadsUnit, BufferPoolReusesBuffersOfOneGeometryCleared) {
  const lumo::Geometry small{lumo::PixelFormat::NV21, 64, 48, 64, 48};
  const lumo::Geometry padded{lumo::PixelFormat::NV21, 64, 48, 128, 48};
  lumo::BufferPool pool;
  std::string error;
  auto first = pool.take(small, &error);
  ASSERT_TRUE(first) << error;
  std::fill(first->data(), first->data() + first->size(), uint8_t{0x5A});
  const uint8_t* firstData = first->data();
  pool.give(std::move(first));
  // Another geometry does not get it; the same one does, cleared.
  auto other = pool.take(padded, &error);
  ASSERT_TRUE(other) << error;
  EXPECT_NE(other->data(), firstData);
  auto again = pool.take(small, &error);
  ASSERT_TRUE(again) << error;
  EXPECT_EQ(again->data(), firstData);
  EXPECT_TRUE(
      std::all_of(again->data(), again->data() + again->size(), [](uint8_t b) { return b == 0; }));
}

}  // namespace
