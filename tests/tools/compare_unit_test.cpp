// The comparison's pure parts: gate expressions, the gate over a result,
// shard slices, scores of two pictures, and a result read back from its JSON.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "compare_gate.h"
#include "compare_shards.h"
#include "failure.h"

namespace {

using namespace lumo;

TEST(CompareGate, ExpressionsParseOrSayWhatWasExpected) {
  struct Case {
    std::string text;
    std::string metric;  // "" when refused
    bool orEqual;
    double value;
  } const cases[] = {
      {"p95>2.0", "p95", false, 2.0},
      {"max >= 5", "max", true, 5},
      {"share>1%", "share", false, 0.01},
      {"mean>.5", "mean", false, 0.5},
      {"p96>2", "", false, 0},
      {"p95<2", "", false, 0},
      {"max>1%", "", false, 0},
      {"p95>", "", false, 0},
      {"p95>-1", "", false, 0},
  };
  for (const Case& c : cases) {
    if (c.metric.empty()) {
      EXPECT_THROW(parseScoreLimit(c.text), Failure) << c.text;
      continue;
    }
    const ScoreLimit l = parseScoreLimit(c.text);
    EXPECT_EQ(l.metric, c.metric) << c.text;
    EXPECT_EQ(l.orEqual, c.orEqual) << c.text;
    EXPECT_DOUBLE_EQ(l.value, c.value) << c.text;
  }
  ExpectedChanges e;
  addExpectedChanges(e, "scene=food,plants");
  addExpectedChanges(e, "lut=3,12");
  EXPECT_EQ(e.scenes, (std::vector<std::string>{"food", "plants"}));
  EXPECT_EQ(e.luts, (std::vector<int>{3, 12}));
  for (const char* bad : {"scene=", "food", "cell=1", "lut=x", "scene=a,,b"})
    EXPECT_THROW(addExpectedChanges(e, bad), Failure) << bad;
}

TEST(CompareGate, FramesCrossingLimitsOrChangingOutsideTheExpectedFail) {
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
  struct Case {
    std::vector<std::string> limits;
    const ExpectedChanges* expected;
    size_t failures;
  } const cases[] = {
      {{}, nullptr, 0},         {{"p95>2"}, nullptr, 1}, {{"p95>3"}, nullptr, 0},
      {{"p95>=3"}, nullptr, 1}, {{"max>0"}, nullptr, 1}, {{}, &food, 1},  // night's choice
      {{}, &lut7, 1},                                                     // food's pixels
      {{"mean>1"}, &food, 2},
  };
  for (const Case& c : cases) {
    std::vector<ScoreLimit> limits;
    for (const std::string& l : c.limits) limits.push_back(parseScoreLimit(l));
    const ExpectedChanges none;
    EXPECT_EQ(
        gateFailures(r, limits, c.expected ? *c.expected : none, c.expected != nullptr).size(),
        c.failures)
        << (c.limits.empty() ? "-" : c.limits[0]);
  }
}

TEST(CompareShards, EveryFrameFallsIntoExactlyOneShard) {
  for (uint32_t n : {1u, 2u, 3u, 7u}) {
    std::vector<size_t> sizes(n);
    for (size_t line = 1; line <= 60; ++line)
      for (const char* session : {"a.jsonl", "lib/b.jsonl"}) {
        int in = 0;
        for (uint32_t i = 1; i <= n; ++i)
          if (inShard({session, line}, i, n)) ++in, ++sizes[i - 1];
        EXPECT_EQ(in, 1) << session << ":" << line << " of " << n;
      }
    for (size_t s : sizes) EXPECT_GT(s, 0u) << "a shard of " << n << " is empty";
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

TEST(CompareShards, AResultReadsBackFromItsJsonUnchanged) {
  CompareResult r;
  r.calibNew = "n.bin";
  r.digestNew = "01";
  r.calibAgainst = "o.bin";
  r.digestAgainst = "02";
  r.sessions = {{"s.jsonl", "03"}};
  r.pictureCount = 2;
  r.shard = {{2, 3}};
  CompareFrame f;
  f.key = {"s.jsonl", 4};
  f.scores = roundedScores({1.23456, 2.5, 7.125, 0.25, false});
  f.choiceChanges = {"weights"};
  f.luts = {1, 9};
  CompareFrame missing;
  missing.key = {"s.jsonl", 5};
  missing.problem = "no such file";
  r.frames = {f, missing};
  r.pictures = {{f.key, "data:a", "data:b", "data:c", "data:d"}};
  const std::string text = compareJson(r, true).dump();
  EXPECT_EQ(compareJson(compareFromJson(nlohmann::json::parse(text), "x.json"), true).dump(), text);
}

}  // namespace
