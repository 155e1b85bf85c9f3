// The framework's plugin interface: the registry's loading and the defaults a
// plugin gets through the base interface.
#include <gtest/gtest.h>
#include <hostsim/plugin_registry.h>

namespace {

using namespace vyalgo2;

TEST(PluginInterface, LoadedPluginAnswersWithTheDefaults) {
  hostsim::PluginRegistry registry;
  std::string error;
  ASSERT_TRUE(registry.load(MINIMAL_PLUGIN, &error)) << error;
  EXPECT_EQ(registry.providers().size(), 1u);
  EXPECT_EQ(registry.findProvider("org.example.other"), nullptr);
  EXPECT_EQ(registry.create("org.example.other"), nullptr);
  hostsim::PluginPtr plugin = registry.create("org.example.minimal");
  ASSERT_NE(plugin, nullptr);
  CreateInfo info;
  info.processMode = 1;
  EXPECT_EQ(plugin->initialize(&info, VyaNodeInterface{}), 1);  // reached the plugin's own slot
  // The test plugin's processRequest answers how often isEnabled ran.
  VyaParams params;
  params.pSessionMetadata = std::make_shared<VyMetadata>();
  ProcessRequestInfo request;
  EXPECT_FALSE(plugin->needPreProcess(params));
  EXPECT_EQ(plugin->processRequest(&request), 0) << "isEnabled was consulted";
  EXPECT_TRUE(plugin->isEnabled(params));
  EXPECT_EQ(plugin->processRequest(&request), 1);
  ProcessPluginPrivMessage message;
  EXPECT_EQ(
      std::make_tuple(plugin->postProcess(), plugin->isPreProcessSkipped(),
                      plugin->isPreProcessSupported(), plugin->onPrepareRequest(&message),
                      plugin->onPrepareRequest(nullptr), plugin->onPrepareRequestExt(&message)),
      std::make_tuple(0, false, false, -1, -1, -1));
  std::map<unsigned, std::vector<VyBufferAccessType>> access;
  VyBufferAccessType type = VY_BUFFER_ACCESS_CPU, typeExt = VY_BUFFER_ACCESS_CPU;
  plugin->getBufferAccessTypeByPlugin(&request, access, type);
  plugin->getBufferAccessTypeByPluginExt(&request, access, typeExt);
  EXPECT_EQ(std::make_tuple(type, typeExt), std::make_tuple(0u, 0u));
  // Nine planes claimed: the count is copied, the arrays stop at three and
  // nothing is written past the record.
  ImageParams p;
  p.format = 0x11, p.width = 4000, p.height = 3000, p.stride = 4032, p.numberOfPlanes = 9;
  for (uint32_t i = 0; i < kMaxImagePlanes; ++i) p.planeFd[i] = 40 + int32_t(i);
  struct {
    VyImageBuffer b;
    uint64_t after[2] = {0xAA, 0xDD};
  } g;
  plugin->convertImageParams(p, g.b);
  EXPECT_EQ(std::vector<uint64_t>({g.b.format, g.b.width, g.b.height, g.b.stride, g.b.planeCount,
                                   uint64_t(g.b.planeFd[2]), g.after[0], g.after[1]}),
            std::vector<uint64_t>({0x11, 4000, 3000, 4032, 9, 42, 0xAA, 0xDD}));
  plugin->destroy();
}

// A plugin that offers pre-processing: needPreProcess then defers to
// isEnabled, handing it the parameters it was given.
struct PreProcessingPlugin : PluginWraper {
  bool supported, skipped, enabled;
  int enabledCalls = 0;
  int initialize(CreateInfo*, VyaNodeInterface) override { return 0; }
  int preProcess(PreProcessInfo) override { return 0; }
  int processRequest(ProcessRequestInfo*) override { return 0; }
  int processRequest(ProcessRequestInfoV2*) override { return 0; }
  int flushRequest(FlushRequestInfo*) override { return 0; }
  void destroy() override {}
  bool isEnabled(VyaParams) override { return ++enabledCalls, enabled; }
  void reset() override {}
  bool isPreProcessSkipped() override { return skipped; }
  bool isPreProcessSupported() override { return supported; }
};

TEST(PluginInterface, NeedPreProcessDefersToIsEnabledOnlyWhenSupportedAndNotSkipped) {
  // Supported, skipped, enabled; then the answer and how often isEnabled ran. An
  // unsupported one is the loaded plugin's case above.
  const std::tuple<bool, bool, bool, bool, int> cases[] = {
      {true, true, true, false, 0}, {true, false, true, true, 1}, {true, false, false, false, 1}};
  for (const auto& [supported, skipped, enabled, expected, calls] : cases) {
    PreProcessingPlugin p;
    p.supported = supported, p.skipped = skipped, p.enabled = enabled;
    VyaParams params;
    params.pSessionMetadata = std::make_shared<VyMetadata>();
    EXPECT_EQ(static_cast<PluginWraper&>(p).needPreProcess(params), expected);
    EXPECT_EQ(p.enabledCalls, calls);
  }
}

TEST(PluginInterface, RegistryErrorsNameTheLibraryAndWhatFailed) {
  const std::pair<std::string, std::string> cases[] = {
      {"/nonexistent/libnothing.so", "cannot be loaded"},
      {ENTRYLESS_PLUGIN, "does not export tavuconnect"},
      {REFUSING_PLUGIN, "tavuconnect returned false"},
      {SILENT_PLUGIN, "tavuconnect registered nothing"}};
  for (const auto& [path, expected] : cases) {
    hostsim::PluginRegistry registry;
    std::string error;
    EXPECT_FALSE(registry.load(path, &error));
    EXPECT_TRUE(error.find(path) != error.npos && error.find(expected) != error.npos) << error;
  }
  struct Foreign : Provider {
    unsigned int getVersion() const override {
      return PluginWraperProvider::PLUMA_INTERFACE_VERSION + 1;
    }
    std::string plumaGetType() const override { return "Other"; }
  };
  ProviderManager manager;
  EXPECT_FALSE(manager.add(nullptr));
  EXPECT_FALSE(manager.add(new Foreign));  // deleted by the manager (checked under ASan)
  EXPECT_TRUE(manager.getProviders().empty());
}

}  // namespace
