// Reading what the plugin did with a frame from its log lines and the render
// calls: each reason a frame passes through, and what a filtered frame used.
#include "frame_outcome.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

using namespace lumo;

namespace {

const std::string P = "[LumoFilter][RealTimePreview] ";
const std::string kScript =
    "CubeLutEffect;cube_strength=1.0;lut_type=1.0;@CvStyleEffect;Width=8;Height=4;"
    "SmoothStartValue=0.100000;SmoothEndValue=0.900000;SmoothCoordScale=1.000000;"
    "SmoothValueScale=0.500000;LightDarkPreserveK=2.000000;LightDarkPreserveB=-0.500000;"
    "LightDarkPreserveV=0.200000;LightDarkPreserveT=0.950000;";
const std::vector<std::string> kSelected = {
    P + "lut index 3, 4, 5, 6", P + "0.5, 0.5, 0.25, 0.75, 0.25, 0.75",
    P + "0.125000, 0.375000, 0.125000, 0.375000", P + "shading index 0, 0, 1, 1",
    P + "0.250000, 0.250000, 0.250000, 0.250000"};

FrameEvidence evidence(std::vector<std::string> messages, std::vector<FilterRender> renders = {}) {
  FrameEvidence e;
  e.frame = 9;
  e.enabled = true;
  e.messages = std::move(messages);
  e.renders = std::move(renders);
  e.scene = "night";
  return e;
}

}  // namespace

// The reasons the real plugin gives through the tool (host, switch, missing
// scene or file, render failure, sticky copy mode) are checked by the field
// tests; these are the ones only the log or the store state can tell.
TEST(FrameOutcome, EachPassThroughHasItsReason) {
  using R = PassReason;
  const std::vector<std::string> bypass = {P + "algo bypass"};
  const std::vector<std::string> beyond = {P + "lut index 1, 2, 3, 90",
                                           P + "lut index 1, 2, 3, 90 beyond the 13 LUT blocks of "
                                               "the store, no parameters for this frame",
                                           P + "algo bypass"};
  // messages, store, debug lines logged, reason, part of the detail
  const std::tuple<std::vector<std::string>, StoreState, bool, R, const char*> cases[] = {
      {beyond, StoreState::Loaded, true, R::NoSceneParameters, "not in the calibration"},
      {bypass, StoreState::Absent, true, R::NoCalibration, "no calibration file"},
      {bypass, StoreState::Rejected, true, R::NoCalibration, "rejected"},
      {bypass, StoreState::Loaded, false, R::Unknown, "look alike"},
      {{}, StoreState::Loaded, true, R::Unknown, "no render"},
  };
  for (const auto& [messages, store, debugLines, want, detail] : cases) {
    FrameEvidence e = evidence(messages);
    e.store = store;
    e.debugLines = debugLines;
    InstanceTrace trace;
    const FrameOutcome o = readFrameOutcome(e, trace);
    SCOPED_TRACE(o.detail);
    EXPECT_FALSE(o.filtered);
    EXPECT_EQ(o.reason, want);
    EXPECT_NE(o.detail.find(detail), std::string::npos);
    // Failures put the instance in copy mode.
    EXPECT_EQ(trace.failedFrame == 9u, want != R::Unknown);
  }
  // A store's rejection is read from the plugin's own line.
  EXPECT_EQ(rejectedStoreMessage({"x",
                                  "VyAlgoEngine f:1 g() [LumoFilter] parameter file "
                                  "/odm/p.bin rejected: header too short"}),
            "header too short");
  EXPECT_FALSE(rejectedStoreMessage({P + "algo bypass"}));
}

// Weights are logged only when the corners change: later frames keep them.
TEST(FrameOutcome, FilteredFramesCarryCornersWeightsShadingAndScript) {
  InstanceTrace trace;
  FrameEvidence e = evidence(kSelected, {{"", false, -1}, {kScript, true, 0}});
  FrameOutcome o = readFrameOutcome(e, trace);
  ASSERT_TRUE(o.filtered);
  EXPECT_EQ(o.reason, PassReason::None);
  EXPECT_EQ(*o.lutIndex, (std::array<int, 4>{3, 4, 5, 6}));
  EXPECT_EQ(*o.lutWeight, (std::array<double, 4>{0.125, 0.375, 0.125, 0.375}));
  EXPECT_EQ(o.shading, (std::vector<double>{0.1, 0.9, 1, 0.5, 2, -0.5, 0.2, 0.95}));
  EXPECT_EQ(o.script, kScript);
  EXPECT_EQ(outcomeJson(o)["plugin"], "filtered");

  e.messages = {P + "lut index 3, 4, 5, 6", P + "is_trigger_change = 0, no need to trigger"};
  e.renders = {{kScript, true, 0}};
  o = readFrameOutcome(e, trace);
  EXPECT_EQ(*o.lutWeight, (std::array<double, 4>{0.125, 0.375, 0.125, 0.375}));
  // A filter re-created after a failure renders with whatever it holds: nothing.
  e.renders = {{"", false, 0}};
  o = readFrameOutcome(e, trace);
  EXPECT_TRUE(o.filtered);
  EXPECT_TRUE(o.shading.empty());
  EXPECT_NE(o.detail.find("without a LUT"), std::string::npos);
}
