// The per-frame path: filter calls and frame descriptions, bypass, render
// failures with re-creation, sticky pass-through and debug overrides.
#include <cutils/properties.h>
#include <hostsim/properties.h>

#include <algorithm>
#include <cstring>

#include "lumoEffectScript.h"
#include "plugin_fixture.h"

namespace {

using lumotest::FrameTags;
using lumotest::makeFrame;
using lumotest::makeMetadata;
using lumotest::PluginLine;

FrameTags sceneTags(uint32_t sceneId, float zoom = 1.0f) {
  FrameTags t;
  t.cct = 5000;
  t.lux = 300.0f;
  t.scene = sceneId;
  t.zoom = zoom;
  return t;
}

std::vector<std::string> namesOf(const std::vector<hostsim::FilterCall>& calls) {
  std::vector<std::string> out;
  for (const auto& c : calls) out.push_back(c.name);
  return out;
}

const std::vector<std::string> kConfigureAndRender = {"clearEffects", "setFilterScript",
                                                      "addLutEffectData", "processFrame"};
const std::vector<std::string> kRenderOnly = {"processFrame"};

PluginLine line(int priority, const char* function, const std::string& text) {
  return {priority, function, text};
}

class PluginRequestTest : public PluginFixture {};

TEST_F(PluginRequestTest, ChangedParametersConfigureTheFilterThenRender) {
  VyLumoFilterPlugin& plugin = makePlugin(0);
  lumotest::Frame frame = makeFrame(64, 48, 7, makeMetadata(sceneTags(9)), 96);
  hostsim::LogCapture capture;
  EXPECT_EQ(plugin.processRequest(&frame.request), 0);

  const std::vector<hostsim::FilterCall> calls = journal->calls();
  ASSERT_EQ(namesOf(calls), kConfigureAndRender);
  const hostsim::FilterCall& lut = calls[2];
  EXPECT_EQ(lut.lut, lumotest::lutBlock(lumotest::lutBlockOf("night")));
  EXPECT_EQ(lut.size, 17);
  EXPECT_EQ(lut.index, -1);
  EXPECT_EQ(lut.channels, 3);
  EXPECT_EQ(lut.depth, 512);
  EXPECT_EQ(calls[1].script,
            "CubeLutEffect;cube_strength=1.0;lut_type=1.0;@CvStyleEffect;Width=64;Height=48;"
            "SmoothStartValue=0.100000;SmoothEndValue=0.900000;SmoothCoordScale=2.000000;"
            "SmoothValueScale=1.000000;LightDarkPreserveK=0.500000;LightDarkPreserveB=0.250000;"
            "LightDarkPreserveV=1.000000;LightDarkPreserveT=0.000000;");

  const videoprocess::FilterFrameParam& in = calls[3].in;
  const videoprocess::FilterFrameParam& out = calls[3].out;
  EXPECT_NE(in.clientBuffer, nullptr);
  EXPECT_NE(out.clientBuffer, nullptr);
  EXPECT_NE(in.clientBuffer, out.clientBuffer);
  for (const auto* f : {&in, &out}) {
    EXPECT_EQ(f->reserved, 0u);
    EXPECT_EQ(f->stride, 96u);
    EXPECT_EQ(f->stride2, 96u);
    EXPECT_EQ(f->width, 64u);
    EXPECT_EQ(f->height, 48u);
  }
  EXPECT_TRUE(frame.outputUntouched());  // the recording filter draws nothing, nor is it copied

  const std::string script = calls[1].script;
  const std::vector<PluginLine> expected = {
      line(4, "fillMetaDataInfo", "[LumoFilter][OfflineSnapshot], cct = 5000"),
      line(4, "fillMetaDataInfo", "[LumoFilter][OfflineSnapshot], lux idx = 300.000000"),
      line(4, "fillMetaDataInfo", "[LumoFilter][OfflineSnapshot], aiscenes = 9, night"),
      line(4, "fillMetaDataInfo", "[LumoFilter][OfflineSnapshot], zoom ratio = 1.000000"),
      line(3, "nuvoProcess", "[LumoFilter][OfflineSnapshot], triggerChanged = 1"),
      line(3, "nuvoProcess", "[LumoFilter][OfflineSnapshot], filterScript = " + script),
  };
  EXPECT_EQ(lumotest::pluginLines(capture), expected);
}

TEST_F(PluginRequestTest, UnchangedParametersOnlyRender) {
  VyLumoFilterPlugin& plugin = makePlugin(1);
  lumotest::Frame first = makeFrame(32, 32, 1, makeMetadata(sceneTags(0)));
  lumotest::Frame second = makeFrame(32, 32, 2, makeMetadata(sceneTags(0)));
  plugin.processRequest(&first.request);
  journal->clear();
  hostsim::LogCapture capture;
  plugin.processRequest(&second.request);
  EXPECT_EQ(journal->names(), kRenderOnly);
  EXPECT_EQ(lumotest::pluginLines(capture).back(),
            line(3, "nuvoProcess", "[LumoFilter][RealTimePreview], triggerChanged = 0"));
  // A new scene or a new zoom ratio configures again.
  lumotest::Frame third = makeFrame(32, 32, 3, makeMetadata(sceneTags(0, 2.0f)));
  journal->clear();
  plugin.processRequest(&third.request);
  ASSERT_EQ(journal->names(), kConfigureAndRender);
  EXPECT_NE(journal->calls()[1].script.find("SmoothStartValue=1.500000;"), std::string::npos);
  EXPECT_NE(journal->calls()[1].script.find("SmoothValueScale=0.750000;"), std::string::npos);
}

TEST_F(PluginRequestTest, EffectScriptOfAFullSizeFrame) {
  VyLumoFilterPlugin& plugin = makePlugin(0);
  lumotest::Frame frame = makeFrame(4000, 3000, 1, makeMetadata(sceneTags(0)));
  plugin.processRequest(&frame.request);
  ASSERT_EQ(journal->names(), kConfigureAndRender);
  EXPECT_EQ(journal->calls()[1].script,
            "CubeLutEffect;cube_strength=1.0;lut_type=1.0;@CvStyleEffect;Width=4000;Height=3000;"
            "SmoothStartValue=0.100000;SmoothEndValue=0.900000;SmoothCoordScale=2.000000;"
            "SmoothValueScale=1.000000;LightDarkPreserveK=0.500000;LightDarkPreserveB=0.250000;"
            "LightDarkPreserveV=1.000000;LightDarkPreserveT=0.000000;");
}

TEST(PluginEffectScript, StyleTextIsCutAt511Characters) {
  param_shading_float_t huge;
  for (float& v : huge.data) v = 3.0e38f;
  const std::string script = lumo::buildEffectScript(4294967295u, 4294967295u, huge);
  const std::string lutText = "CubeLutEffect;cube_strength=1.0;lut_type=1.0;";
  ASSERT_EQ(script.size(), lutText.size() + 511);
  EXPECT_EQ(script.compare(0, lutText.size() + 50,
                           lutText + "@CvStyleEffect;Width=4294967295;Height=4294967295;"),
            0);
}

TEST_F(PluginRequestTest, BypassSwitchCopiesOnlyTheChosenInstance) {
  const struct {
    int32_t mode;
    bool previewCopies, snapshotCopies;
  } cases[] = {{0, false, false}, {1, true, false},  {2, false, true},
               {3, true, true},   {4, false, false}, {-1, false, false}};
  for (const auto& c : cases) {
    VyLumoFilterPlugin::m_algoBypassMode = c.mode;
    for (uint32_t processMode : {0u, 1u}) {
      const bool copies = processMode == 1 ? c.previewCopies : c.snapshotCopies;
      VyLumoFilterPlugin& plugin = makePlugin(processMode);
      const std::string name = processMode == 1 ? "RealTimePreview" : "OfflineSnapshot";
      for (uint32_t n = 0; n < 2; ++n) {
        lumotest::Frame frame = makeFrame(16, 16, n, makeMetadata(FrameTags{}));
        journal->clear();
        hostsim::LogCapture capture;
        plugin.processRequest(&frame.request);
        EXPECT_EQ(frame.outputEqualsInput(), copies) << c.mode << " " << name;
        const std::vector<PluginLine> lines = lumotest::pluginLines(capture);
        const PluginLine bypassLine =
            line(4, "processRequest", "[LumoFilter][" + name + "] algo bypass");
        ASSERT_FALSE(lines.empty());
        EXPECT_EQ(lines.back() == bypassLine, copies) << c.mode << " " << name;
        EXPECT_EQ(journal->names().empty(), copies) << c.mode << " " << name;
        // The trigger runs either way.
        EXPECT_FALSE(lumotest::linesOf(capture, "lumo_filter/paramTrigger").empty());
      }
    }
  }
}

TEST_F(PluginRequestTest, OneRenderFailureRecreatesTheFilterAndRetries) {
  VyLumoFilterPlugin& plugin = makePlugin(1);
  hostsim::resetCreateFilterCalls();
  hostsim::FilterFaults faults;
  faults.refuseLutCount = 1;
  hostsim::setFilterFaults(faults);
  lumotest::Frame frame = makeFrame(32, 16, 1, makeMetadata(sceneTags(3)));
  hostsim::LogCapture capture;
  EXPECT_EQ(plugin.processRequest(&frame.request), 0);

  EXPECT_EQ(hostsim::createFilterCalls(), 1);
  EXPECT_EQ(journal->destroyed(), 1);
  EXPECT_EQ(journal->names(),
            (std::vector<std::string>{"clearEffects", "setFilterScript", "addLutEffectData",
                                      "clearEffects", "setFilterScript", "addLutEffectData",
                                      "processFrame"}));
  EXPECT_TRUE(frame.outputUntouched());
  EXPECT_TRUE(Access::filterValid(plugin));
  EXPECT_FALSE(Access::bypass(plugin));
  // The refused LUT is the only error; nothing goes to bypass.
  std::vector<PluginLine> errors;
  for (const PluginLine& l : lumotest::pluginLines(capture)) {
    if (l.priority == 6) errors.push_back(l);
    EXPECT_EQ(l.text.find("algo bypass"), std::string::npos) << l;
  }
  EXPECT_EQ(errors,
            (std::vector<PluginLine>{
                line(6, "nuvoProcess", "[LumoFilter][RealTimePreview] addLutEffectData failed")}));

  lumotest::Frame next = makeFrame(32, 16, 2, makeMetadata(sceneTags(3)));
  journal->clear();
  plugin.processRequest(&next.request);
  EXPECT_EQ(journal->names(), kRenderOnly);
}

TEST_F(PluginRequestTest, MissingFilterIsRecreatedSilently) {
  hostsim::FilterFaults faults;
  faults.failCreateCount = 1;  // the filter of initialize
  hostsim::setFilterFaults(faults);
  VyLumoFilterPlugin& plugin = makePlugin(0);
  EXPECT_FALSE(Access::hasFilter(plugin));
  lumotest::Frame frame = makeFrame(32, 16, 1, makeMetadata(sceneTags(0)));
  hostsim::LogCapture capture;
  plugin.processRequest(&frame.request);
  EXPECT_EQ(hostsim::createFilterCalls(), 2);
  EXPECT_EQ(journal->names(), kConfigureAndRender);
  EXPECT_TRUE(frame.outputUntouched());
  for (const PluginLine& l : lumotest::pluginLines(capture)) EXPECT_NE(l.priority, 6) << l;
}

TEST_F(PluginRequestTest, TwoRenderFailuresSwitchToCopyingForGood) {
  VyLumoFilterPlugin& plugin = makePlugin(0);
  hostsim::resetCreateFilterCalls();
  hostsim::FilterFaults faults;
  faults.refuseLutCount = 2;
  hostsim::setFilterFaults(faults);
  lumotest::Frame frame = makeFrame(32, 16, 1, makeMetadata(sceneTags(0)));
  hostsim::LogCapture capture;
  EXPECT_EQ(plugin.processRequest(&frame.request), 0);
  EXPECT_EQ(hostsim::createFilterCalls(), 2);
  EXPECT_TRUE(frame.outputEqualsInput());
  EXPECT_FALSE(Access::filterValid(plugin));
  const std::vector<PluginLine> lines = lumotest::pluginLines(capture);
  ASSERT_GE(lines.size(), 2u);
  EXPECT_EQ(lines[lines.size() - 2],
            line(6, "processRequest", "[LumoFilter][OfflineSnapshot] nuvoProcess fail twice!!!"));
  EXPECT_EQ(lines.back(), line(6, "processRequest",
                               "[LumoFilter][OfflineSnapshot] algo bypass for nuvoSKD fail"));
  // Error lines reach the offline log without the debug mask.
  const std::vector<std::string> offline = capture.offlineMessages();
  EXPECT_NE(std::find(offline.begin(), offline.end(),
                      "[LumoFilter][OfflineSnapshot] nuvoProcess fail twice!!!"),
            offline.end());

  hostsim::setFilterFaults({});
  for (uint32_t n = 2; n < 5; ++n) {
    lumotest::Frame later = makeFrame(32, 16, n, makeMetadata(sceneTags(9)));
    journal->clear();
    hostsim::LogCapture laterCapture;
    plugin.processRequest(&later.request);
    EXPECT_TRUE(journal->names().empty());
    EXPECT_TRUE(later.outputEqualsInput());
    EXPECT_EQ(lumotest::pluginLines(laterCapture).back(),
              line(4, "processRequest", "[LumoFilter][OfflineSnapshot] algo bypass"));
  }
  plugin.reset();  // does not bring the filter back
  lumotest::Frame afterReset = makeFrame(32, 16, 9, makeMetadata(sceneTags(0)));
  plugin.processRequest(&afterReset.request);
  EXPECT_TRUE(afterReset.outputEqualsInput());
}

TEST_F(PluginRequestTest, FailedTriggerMakesEveryLaterFrameACopy) {
  VyLumoFilterPlugin& plugin = makePlugin(1);
  lumotest::Frame good = makeFrame(16, 16, 1, makeMetadata(sceneTags(0)));
  plugin.processRequest(&good.request);
  EXPECT_FALSE(good.outputEqualsInput());
  // Food has no parameters in the calibration.
  lumotest::Frame food = makeFrame(16, 16, 2, makeMetadata(sceneTags(2)));
  journal->clear();
  plugin.processRequest(&food.request);
  EXPECT_TRUE(food.outputEqualsInput());
  EXPECT_TRUE(journal->names().empty());
  lumotest::Frame again = makeFrame(16, 16, 3, makeMetadata(sceneTags(0)));
  plugin.processRequest(&again.request);
  EXPECT_TRUE(again.outputEqualsInput());
  EXPECT_TRUE(journal->names().empty());
}

TEST_F(PluginRequestTest, UnknownModeHasNoFilterAndFallsBackToCopies) {
  VyLumoFilterPlugin& plugin = makePlugin(2);
  EXPECT_EQ(Access::instanceName(plugin), "");
  EXPECT_FALSE(Access::hasFilter(plugin));
  lumotest::Frame frame = makeFrame(16, 16, 1, makeMetadata(sceneTags(0)));
  hostsim::LogCapture capture;
  plugin.processRequest(&frame.request);
  EXPECT_TRUE(frame.outputEqualsInput());
  EXPECT_EQ(lumotest::pluginLines(capture).back(),
            line(6, "processRequest", "[LumoFilter][] algo bypass for nuvoSKD fail"));
}

TEST_F(PluginRequestTest, RequestWithoutImagesIsLeftAlone) {
  VyLumoFilterPlugin& plugin = makePlugin(1);
  vyalgo2::ProcessRequestInfo empty;
  EXPECT_EQ(plugin.processRequest(&empty), 0);
  lumotest::Frame frame = makeFrame(16, 16, 1, makeMetadata(sceneTags(0)));
  frame.request.outputBuffers.begin()->second.clear();
  EXPECT_EQ(plugin.processRequest(&frame.request), 0);
  EXPECT_TRUE(journal->names().empty());
}

TEST_F(PluginRequestTest, DebugModeReplacesTheWholeTriggerInput) {
  VyLumoFilterPlugin::m_debugMode = 1;
  property_set("persist.vendor.camera.lumofilter.aiscene", "night");
  property_set("persist.vendor.camera.lumofilter.lux", "70000");
  property_set("persist.vendor.camera.lumofilter.cct", "4100");
  hostsim::LogCapture capture;
  VyLumoFilterPlugin& plugin = makePlugin(1);
  const std::vector<PluginLine> init = {
      line(4, "initialize", "[LumoFilter][RealTimePreview] initialize, processMode=1"),
      line(3, "getInitProperties", "[LumoFilter][RealTimePreview] initialize, m_debugMode=1"),
      line(3, "getInitProperties", "[LumoFilter][RealTimePreview] initialize, debug aiscene=night"),
      line(3, "getInitProperties", "[LumoFilter][RealTimePreview] initialize, debug lux=4464"),
      line(3, "getInitProperties", "[LumoFilter][RealTimePreview] initialize, debug cct=4100"),
  };
  EXPECT_EQ(lumotest::pluginLines(capture), init);

  lumotest::Frame frame = makeFrame(16, 16, 1, makeMetadata(sceneTags(13, 2.0f)));
  plugin.processRequest(&frame.request);
  const param_trigger_t& info = Access::triggerInfo(plugin);
  EXPECT_EQ(info.aiscene, "night");
  EXPECT_EQ(info.lux, 4464);
  EXPECT_EQ(info.cct, 4100);
  EXPECT_EQ(info.zoom_ratio, 0.0f);
  ASSERT_EQ(journal->names(), kConfigureAndRender);
  EXPECT_EQ(journal->calls()[2].lut, lumotest::lutBlock(lumotest::lutBlockOf("night")));

  // Unset overrides: the common scene and zero.
  hostsim::clearProperties();
  VyLumoFilterPlugin& other = makePlugin(0);
  lumotest::Frame second = makeFrame(16, 16, 1, makeMetadata(sceneTags(9)));
  other.processRequest(&second.request);
  EXPECT_EQ(Access::triggerInfo(other).aiscene, "common");
  EXPECT_EQ(Access::triggerInfo(other).lux, 0);
}

}  // namespace
