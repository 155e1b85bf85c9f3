// Plugin object lifecycle: names, the log-only calls, the enable decision,
// initialise/destroy in every order the host may use.
#include <hostsim/metadata_tags.h>

#include "VyLumoFilterPluginProvider.h"
#include "plugin_fixture.h"

namespace {

using lumotest::PluginLine;

class PluginLifecycleTest : public PluginFixture {};

TEST_F(PluginLifecycleTest, ProviderAndPluginShareTheName) {
  VyLumoFilterPluginProvider provider;
  VyLumoFilterPlugin plugin;
  EXPECT_EQ(provider.getName(), "com.zentor.plugin.vylumofilter");
  EXPECT_EQ(plugin.getPluginName(), provider.getName());
  EXPECT_EQ(provider.getName().size(), 30u);
  EXPECT_EQ(provider.getVersion(), PluginWraperProvider::PLUMA_INTERFACE_VERSION);
  EXPECT_EQ(provider.plumaGetType(), PluginWraperProvider::PLUMA_PROVIDER_TYPE);
  vyalgo2::PluginWraper* made = provider.create();
  ASSERT_NE(made, nullptr);
  made->destroy();
  delete made;
}

TEST_F(PluginLifecycleTest, InitializeAndTheLogOnlyCalls) {
  const struct {
    uint32_t mode;
    const char* name;
    bool hasFilter;
  } cases[] = {{0, "OfflineSnapshot", true}, {1, "RealTimePreview", true}, {7, "", false}};
  for (const auto& c : cases) {
    hostsim::LogCapture capture;
    VyLumoFilterPlugin& plugin = makePlugin(c.mode);
    EXPECT_EQ(Access::hasFilter(plugin), c.hasFilter) << c.mode;
    EXPECT_TRUE(Access::filterValid(plugin));
    EXPECT_EQ(plugin.preProcess(vyalgo2::PreProcessInfo{}), 0);
    vyalgo2::ProcessRequestInfoV2 v2;
    EXPECT_EQ(plugin.processRequest(&v2), 0);
    vyalgo2::FlushRequestInfo flush;
    EXPECT_EQ(plugin.flushRequest(&flush), 0);
    plugin.reset();
    plugin.destroy();
    const std::string tag = std::string("[LumoFilter][") + c.name + "]";
    const std::vector<PluginLine> expected = {
        {4, "initialize", tag + " initialize, processMode=" + std::to_string(c.mode)},
        {3, "getInitProperties", tag + " initialize, m_debugMode=0"},
        {3, "preProcess", tag + " preProcess"},
        {3, "processRequest", tag + ", processRequestV2"},
        {3, "flushRequest", tag + ", flushRequest"},
        {3, "reset", tag + ", reset"},
        {3, "destroy", tag + ", destroy"},
    };
    EXPECT_EQ(lumotest::pluginLines(capture), expected);
    EXPECT_FALSE(Access::hasFilter(plugin));
    EXPECT_EQ(Access::lut(plugin), nullptr);
    EXPECT_EQ(Access::shading(plugin), nullptr);
  }
}

TEST_F(PluginLifecycleTest, DestroyIsSafeWithoutInitializeAndTwice) {
  VyLumoFilterPlugin never;
  never.destroy();
  never.destroy();
  VyLumoFilterPlugin& plugin = makePlugin(1);
  plugin.destroy();
  plugin.destroy();
  EXPECT_FALSE(Access::hasFilter(plugin));
}

TEST_F(PluginLifecycleTest, EnableDecisionUnderEachForceValue) {
  // forced value, stylisation tag (-1: absent), expected
  const struct {
    int32_t force;
    int type;
    bool enabled;
  } cases[] = {{0, -1, false}, {0, 0, false}, {0, 3, true}, {1, -1, true}, {1, 0, true},
               {1, 3, true},   {2, -1, true}, {2, 0, true}, {2, 3, false}, {2, 255, false},
               {5, -1, true},  {5, 3, true},  {-1, 0, true}};
  VyLumoFilterPlugin& plugin = makePlugin(0);
  for (const auto& c : cases) {
    VyLumoFilterPlugin::m_algoForceEnable = c.force;
    vyalgo2::VyaParams params;
    params.pSessionMetadata = std::make_shared<VyMetadata>();
    if (c.type >= 0) {
      const uint8_t bytes[2] = {static_cast<uint8_t>(c.type), 9};
      params.pSessionMetadata->update(hostsim::kTagStylizationType, TYPE_BYTE, bytes, 2);
    }
    hostsim::LogCapture capture;
    EXPECT_EQ(plugin.isEnabled(params), c.enabled) << c.force << " " << c.type;
    const std::vector<PluginLine> expected = {{4, "isEnabled",
                                               "[LumoFilter][OfflineSnapshot] mIsFeatureEnable=" +
                                                   std::to_string(c.type < 0 ? 0 : c.type)}};
    EXPECT_EQ(lumotest::pluginLines(capture), expected);
    // The host default never asks for a pre-processing pass.
    EXPECT_FALSE(plugin.needPreProcess(params));
  }
}

}  // namespace
