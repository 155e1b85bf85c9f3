// The comparison's pure parts: gate expressions, the gate over a result and
// scores of two pictures (shards and results read back from their JSON are
// checked by merging shards through the tool).
#include <gtest/gtest.h>

#include "compare_gate.h"
#include "failure.h"

namespace {

using namespace lumo;

TEST(CompareGate, ExpressionsAndTheFramesThatFailThem) {
  // text, metric, or-equal, value
  const std::tuple<std::string, std::string, bool, double> limits[] = {
      {"p95>2.0", "p95", false, 2.0},
      {"max >= 5", "max", true, 5},
      {"share>1%", "share", false, 0.01},
      {"mean>.5", "mean", false, 0.5},
  };
  for (const auto& [text, metric, orEqual, value] : limits) {
    const ScoreLimit l = parseScoreLimit(text);
    EXPECT_EQ(std::tuple(l.metric, l.orEqual, l.value), std::tuple(metric, orEqual, value)) << text;
  }
  for (const char* bad : {"p96>2", "p95<2", "max>1%", "p95>", "p95>-1"})
    EXPECT_THROW(parseScoreLimit(bad), Failure) << bad;
  ExpectedChanges e;
  addExpectedChanges(e, "scene=food,plants");
  addExpectedChanges(e, "lut=3,12");
  EXPECT_EQ(e.scenes, (std::vector<std::string>{"food", "plants"}));
  EXPECT_EQ(e.luts, (std::vector<int>{3, 12}));
  for (const char* bad : {"scene=", "food", "cell=1", "lut=x", "scene=a,,b"})
    EXPECT_THROW(addExpectedChanges(e, bad), Failure) << bad;

  auto frame = [](std::string scene, double p95, std::vector<int> luts, bool choice) {
    CompareFrame f;
    f.key = {"s.jsonl", luts.empty() ? 1u : size_t(luts[0])};
    f.scene = scene;
    f.scores = {p95 / 2, p95, p95 * 2, 0, p95 == 0};
    f.luts = luts;
    if (choice) f.choiceChanges = {"lut"};
    return f;
  };
  CompareResult r;
  r.frames = {frame("food", 3, {10}, false), frame("plants", 0, {4}, false),
              frame("night", 0, {7}, true)};
  ExpectedChanges food, lut7;
  addExpectedChanges(food, "scene=food");
  addExpectedChanges(lut7, "lut=7");
  const ExpectedChanges none;
  // limit ("": none), expected changes (when given), failures
  const std::tuple<std::string, const ExpectedChanges*, size_t> cases[] = {
      {"", nullptr, 0},       {"p95>2", nullptr, 1}, {"p95>3", nullptr, 0},
      {"p95>=3", nullptr, 1}, {"max>0", nullptr, 1}, {"", &food, 1},  // night's choice
      {"", &lut7, 1},                                                 // food's pixels
      {"mean>1", &food, 2},
  };
  for (const auto& [limit, expected, failures] : cases) {
    std::vector<ScoreLimit> gate;
    if (!limit.empty()) gate.push_back(parseScoreLimit(limit));
    EXPECT_EQ(gateFailures(r, gate, expected ? *expected : none, expected != nullptr).size(),
              failures)
        << limit;
  }
}

TEST(CompareScores, ShareAndPercentilesOfAHalfChangedPicture) {
  Image a = makeImage(completeGeometry({PixelFormat::RGBA, 8, 4, 0, 0}));
  for (size_t i = 0; i < a.bytes.size(); ++i) a.bytes[i] = i % 4 == 3 ? 255 : 128;
  EXPECT_TRUE(scorePictures(a, a, 2.0).identical);
  Image b = a;
  for (uint32_t y = 0; y < 4; ++y)
    for (uint32_t x = 0; x < 4; ++x) b.row(y)[4 * x] = 160;  // the left half redder
  const PictureScores s = scorePictures(a, b, 2.0);
  EXPECT_FALSE(s.identical);
  EXPECT_GT(s.max, 2.0);
  EXPECT_DOUBLE_EQ(s.p95, s.max);
  EXPECT_DOUBLE_EQ(s.mean, s.max / 2);
  EXPECT_DOUBLE_EQ(s.share, 0.5);
  EXPECT_DOUBLE_EQ(scorePictures(a, b, 100).share, 0);
}

}  // namespace
