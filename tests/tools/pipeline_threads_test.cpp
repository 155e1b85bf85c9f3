// The threads around the plugin: frames read ahead, outputs written behind
// (BackgroundWrites) and host buffers reused across frames (BufferPool).
// These tests also run under ThreadSanitizer, where a missing hand-over
// between the reading, writing and frame-loop threads is a race.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <filesystem>
#include <fstream>
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

std::string frameLine(const std::string& instance, const std::string& input,
                      const std::string& output, int stylization = 1) {
  return R"({"instance": ")" + instance + R"(", "input": ")" + input + R"(", "output": ")" +
         output + R"(", "meta": {"stylization": )" + std::to_string(stylization) +
         R"(, "lux": 300, "cct": 4000}})";
}

class PipelineThreads : public lumotest::ReplayRoot {
protected:
  // A 64x48 NV21 dump (stride 64) whose bytes depend on `seed`.
  void rawInput(const std::string& name, int seed) {
    std::string bytes(64 * 48 * 3 / 2, '\0');
    for (size_t i = 0; i < bytes.size(); ++i) bytes[i] = char((i * 7 + size_t(seed) * 31) & 0xFF);
    std::ofstream(root + "/" + name, std::ios::binary) << bytes;
  }

  // Replays `frames` into outDir with `jobs`; the failure message, or empty.
  std::string replay(const std::vector<lumo::SessionFrame>& frames, unsigned jobs,
                     const std::string& outDir, std::vector<lumo::FrameReport>* reports = nullptr) {
    lumo::ReplayOptions options = replayOptions(outDir);
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

// More frames of one geometry than the pool keeps, sizes that change in
// between, an odd size (padded to even), both instances, frames the host
// copies (no stylisation), raw, PNG and JPEG outputs. Frame-sized images are
// lent to the host as its buffers, not copied: a large frame the host copies
// comes back byte for byte, padding included, and a filtered one is rendered
// into the output, its input left as it was.
TEST_F(PipelineThreads, PipelinedReplayWritesWhatATurnByTurnReplayWrites) {
  rawInput("a_64x48_64.nv21", 1);
  rawInput("b_64x48_64.nv21", 2);
  lumo::writeImage(root + "/p.png", lumo::generateScene("plants", 40, 30));
  lumo::writeImage(root + "/odd.png", lumo::generateScene("food", 33, 21));
  const uint32_t width = 1040, height = 780, stride = 1088;  // 1.3 MB
  std::string big(size_t(stride) * height * 3 / 2, '\0');
  for (size_t i = 0; i < big.size(); ++i)
    if (i % stride < width) big[i] = char((i * 13) & 0xFF);
  std::ofstream(root + "/big_1040x780_1088.nv21", std::ios::binary) << big;
  std::vector<std::string> lines;
  for (int i = 0; i < 6; ++i)
    lines.push_back(frameLine("snapshot", i % 2 ? "b_64x48_64.nv21" : "a_64x48_64.nv21",
                              "r" + std::to_string(i) + ".nv21"));
  lines.push_back(frameLine("preview", "p.png", "p.jpg"));
  lines.push_back(frameLine("preview", "odd.png", "odd.png"));
  lines.push_back(frameLine("snapshot", "a_64x48_64.nv21", "copy.nv21", 0));
  lines.push_back(frameLine("preview", "p.png", "p2.png"));
  lines.push_back(frameLine("snapshot", "big_1040x780_1088.nv21", "bigcopy.nv21", 0));
  lines.push_back(frameLine("snapshot", "big_1040x780_1088.nv21", "biglook.nv21"));
  const auto frames = lumotest::sessionOf(lines);

  std::vector<lumo::FrameReport> serialReports;
  ASSERT_EQ(replay(frames, 1, root + "/out1", &serialReports), "");
  const auto serial = lumotest::filesUnder(root + "/out1");
  ASSERT_EQ(serial.size(), frames.size());
  EXPECT_TRUE(serial.at("bigcopy.nv21") == big);
  const std::string& look = serial.at("biglook.nv21");
  ASSERT_EQ(look.size(), big.size());
  size_t changed = 0, padding = 0;
  for (size_t i = 0; i < look.size(); ++i)
    (i % stride < width ? changed : padding) += look[i] != (i % stride < width ? big[i] : 0);
  EXPECT_GT(changed, look.size() / 4);
  EXPECT_EQ(padding, 0u);
  for (unsigned jobs : {2u, 3u}) {
    SCOPED_TRACE(jobs);
    const std::string out = root + "/out" + std::to_string(jobs);
    std::vector<lumo::FrameReport> reports;
    ASSERT_EQ(replay(frames, jobs, out, &reports), "");
    EXPECT_TRUE(lumotest::filesUnder(out) == serial) << "outputs differ from the --jobs 1 run";
    ASSERT_EQ(reports.size(), serialReports.size());
    for (size_t i = 0; i < reports.size(); ++i)
      EXPECT_EQ(std::tuple(reports[i].enabled, reports[i].result, reports[i].aiscene,
                           fs::path(reports[i].output).filename()),
                std::tuple(serialReports[i].enabled, serialReports[i].result,
                           serialReports[i].aiscene, fs::path(serialReports[i].output).filename()))
          << i;
  }
}

TEST_F(PipelineThreads, AFailureOnAHelperThreadStopsTheSessionAtItsFrame) {
  const std::string a = "a_64x48_64.nv21";
  rawInput(a, 1);
  // the third frame's input, the second frame's output, start of the message
  const std::tuple<std::string, std::string, std::string> rows[] = {
      {"gone_64x48_64.nv21", "b.nv21", "s.jsonl:3: field \"input\": "},  // missing when read ahead
      {a, "b_10x10_10.nv21", "s.jsonl:2: field \"output\": "},  // its name gives another size
  };
  for (const auto& [third, second, expected] : rows) {
    const auto frames = lumotest::sessionOf(
        {frameLine("preview", a, "a.nv21"), frameLine("preview", a, second),
         frameLine("preview", third, "c.nv21"), frameLine("preview", a, "d.nv21")});
    // One output folder for every run: messages name the output's path.
    const std::string out = root + "/out", serial = replay(frames, 1, out);
    EXPECT_EQ(serial.rfind(expected, 0), 0u) << serial;
    for (unsigned jobs : {2u, 3u}) {
      EXPECT_EQ(replay(frames, jobs, out), serial) << jobs;
      EXPECT_TRUE(lumotest::filesUnder(out).empty()) << jobs;
    }
  }
}

// Every write finishes within the limit of writes in flight; a failed one is
// rethrown once the writes before it are done, and writes still under way
// when it surfaces are waited for.
TEST(PipelineThreadsUnit, BackgroundWritesFinishWithinTheirLimitAndRethrowAFailure) {
  for (const auto& [inFlight, failing] : {std::pair<size_t, int>{0, 11}, {2, 11}, {1, 4}, {3, 4}}) {
    SCOPED_TRACE(std::to_string(inFlight) + " in flight, failing " + std::to_string(failing));
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
          for (int seen = most.load(); now > seen && !most.compare_exchange_weak(seen, now);) {
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

// Another geometry does not get a buffer handed back; the same one does,
// cleared.
TEST(PipelineThreadsUnit, BufferPoolReusesBuffersOfOneGeometryCleared) {
  const lumo::Geometry small{lumo::PixelFormat::NV21, 64, 48, 64, 48},
      padded{lumo::PixelFormat::NV21, 64, 48, 128, 48};
  lumo::BufferPool pool;
  std::string error;
  auto first = pool.take(small, &error);
  ASSERT_TRUE(first) << error;
  std::fill(first->data(), first->data() + first->size(), uint8_t{0x5A});
  const uint8_t* firstData = first->data();
  pool.give(std::move(first));
  auto other = pool.take(padded, &error), again = pool.take(small, &error);
  ASSERT_TRUE(other && again) << error;
  EXPECT_NE(other->data(), firstData);
  EXPECT_EQ(again->data(), firstData);
  EXPECT_EQ(std::count(again->data(), again->data() + again->size(), 0), ptrdiff_t(again->size()));
}

}  // namespace
