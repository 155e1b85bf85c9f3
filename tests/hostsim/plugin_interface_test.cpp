// The framework's plugin interface: slot order, the registry's loading, and
// the defaults a plugin gets through the base interface.
#include <gtest/gtest.h>
#include <hostsim/plugin_registry.h>

#include <cstring>

namespace {

using namespace vyalgo2;

// Under the Itanium C++ ABI a pointer to a virtual member function holds
// 1 + the byte offset of its entry in the virtual table. The ARM variant
// keeps the offset as it is and marks "virtual" in the low bit of the this-
// adjustment instead, since code addresses there may be odd.
template <typename F>
long slotOf(F f) {
  static_assert(sizeof(F) == 2 * sizeof(void*), "Itanium member function pointer");
  uintptr_t raw[2] = {};
  std::memcpy(raw, &f, sizeof(raw));
#if defined(__aarch64__) || defined(__arm__)
  return (raw[1] & 1) ? static_cast<long>(raw[0] / sizeof(void*)) : -1;
#else
  return (raw[0] & 1) ? static_cast<long>((raw[0] - 1) / sizeof(void*)) : -1;
#endif
}

TEST(PluginInterface, EveryOperationSitsInItsSlot) {
  using P = PluginWraper;
  using V1 = int (P::*)(ProcessRequestInfo*);
  using V2 = int (P::*)(ProcessRequestInfoV2*);
#define SLOT(f) slotOf(&P::f)
  // Declaration order; 16 and 17 are the destructor pair.
  EXPECT_EQ((std::vector<long>{
                SLOT(initialize), SLOT(preProcess), SLOT(needPreProcess),
                SLOT(getBufferAccessTypeByPlugin), SLOT(getBufferAccessTypeByPluginExt),
                slotOf(static_cast<V1>(&P::processRequest)),
                slotOf(static_cast<V2>(&P::processRequest)), SLOT(customizeOutBufferFormats),
                SLOT(getCustomFrameOrder), SLOT(postProcess), SLOT(flushRequest), SLOT(destroy),
                SLOT(isEnabled), SLOT(reset), SLOT(onPrepareRequest), SLOT(onPrepareRequestExt),
                SLOT(convertImageParams), SLOT(isPreProcessSkipped), SLOT(isPreProcessSupported)}),
            (std::vector<long>{0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 18, 19, 20}));
#undef SLOT
  // The provider's operations follow its own destructor pair.
  EXPECT_EQ((std::vector<long>{slotOf(&Provider::getVersion), slotOf(&Provider::plumaGetType),
                               slotOf(&PluginWraperProvider::create),
                               slotOf(&PluginWraperProvider::getName)}),
            (std::vector<long>{2, 3, 4, 5}));
}

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
  const VyaFrameOrder order = plugin->getCustomFrameOrder(std::make_shared<VyMetadata>()), zero{};
  EXPECT_EQ(std::memcmp(&order, &zero, sizeof zero), 0);
  std::map<int, VyaFrameInfo> out{{1, VyaFrameInfo{7, 8, 9}}};
  plugin->customizeOutBufferFormats(out, {}, {}, customizeOutExtend{});
  EXPECT_EQ(std::make_tuple(out.size(), out[1].width), std::make_tuple(1u, 8u));
  for (auto hook : {&PluginWraper::getBufferAccessTypeByPlugin,
                    &PluginWraper::getBufferAccessTypeByPluginExt}) {
    const std::map<unsigned, std::vector<VyBufferAccessType>> before{{3, {VY_BUFFER_ACCESS_GPU}}};
    auto access = before;
    VyBufferAccessType type = VY_BUFFER_ACCESS_CPU;
    ((*plugin).*hook)(&request, access, type);
    EXPECT_EQ(std::make_tuple(type, access), std::make_tuple(0u, before));
  }
  // Nine planes claimed: the count is copied, the arrays stop at three.
  for (uint32_t planes : {0u, 1u, 2u, 3u, 9u}) {
    ImageParams p;
    p.format = 0x11, p.width = 4000, p.height = 3000, p.planeType = 77;
    p.stride = 4032, p.scanline = 3008, p.numberOfPlanes = planes;
    for (uint32_t i = 0; i < kMaxImagePlanes; ++i) {
      p.planeFd[i] = 40 + static_cast<int32_t>(i);
      p.planeAddress[i] = 0x1000000000ull * (i + 1) + 0x123;
      p.planeOffset[i] = 0x10000ull * (i + 5);
    }
    struct {
      VyImageBuffer b;
      uint64_t after[2] = {0xAA, 0xDD};
    } g;
    plugin->convertImageParams(p, g.b);
    EXPECT_EQ(std::vector<uint32_t>({g.b.format, g.b.width, g.b.height, g.b.stride, g.b.scanline,
                                     g.b.planeCount, g.b.planeType}),
              std::vector<uint32_t>({0x11, 4000, 3000, 4032, 3008, planes, 77}));
    for (uint32_t i = 0; i < 3; ++i)
      EXPECT_EQ(std::make_tuple(g.b.planeFd[i], g.b.planeAddress[i], g.b.planeOffset[i]),
                i < planes ? std::make_tuple(p.planeFd[i], p.planeAddress[i], p.planeOffset[i])
                           : std::make_tuple(int32_t{0}, uint64_t{0}, uint64_t{0}))
          << planes << " " << i;
    EXPECT_TRUE(g.after[0] == 0xAA && g.after[1] == 0xDD);
  }
  plugin->destroy();
}

// A plugin that offers pre-processing: needPreProcess then defers to
// isEnabled, handing it the parameters it was given.
struct PreProcessingPlugin : PluginWraper {
  bool supported, skipped, enabled;
  long seenUseCount = -1;
  int enabledCalls = 0;
  int initialize(CreateInfo*, VyaNodeInterface) override { return 0; }
  int preProcess(PreProcessInfo) override { return 0; }
  int processRequest(ProcessRequestInfo*) override { return 0; }
  int processRequest(ProcessRequestInfoV2*) override { return 0; }
  int flushRequest(FlushRequestInfo*) override { return 0; }
  void destroy() override {}
  bool isEnabled(VyaParams params) override {
    ++enabledCalls;
    seenUseCount = params.pSessionMetadata.use_count();
    return enabled;
  }
  void reset() override {}
  bool isPreProcessSkipped() override { return skipped; }
  bool isPreProcessSupported() override { return supported; }
};

TEST(PluginInterface, NeedPreProcessDefersToIsEnabledOnlyWhenSupportedAndNotSkipped) {
  // Supported, skipped, enabled; then the answer and how often isEnabled ran.
  const std::tuple<bool, bool, bool, bool, int> cases[] = {
      {false, false, true, false, 0}, {false, true, true, false, 0},  {true, true, true, false, 0},
      {true, false, true, true, 1},   {true, false, false, false, 1},
  };
  for (const auto& [supported, skipped, enabled, expected, calls] : cases) {
    PreProcessingPlugin p;
    p.supported = supported, p.skipped = skipped, p.enabled = enabled;
    VyaParams params;
    params.pSessionMetadata = std::make_shared<VyMetadata>();
    EXPECT_EQ(static_cast<PluginWraper&>(p).needPreProcess(params), expected);
    // The caller's copy, the by-value argument moved into the temporary
    // (which isEnabled gets a copy of): three owners, not four.
    EXPECT_EQ(std::make_pair(p.enabledCalls, p.seenUseCount),
              std::make_pair(calls, calls ? 3L : -1L));
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
