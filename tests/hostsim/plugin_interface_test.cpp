// The framework's plugin interface: slot order, and the defaults a plugin
// gets through the base interface when it is loaded the framework's way.
#include <gtest/gtest.h>
#include <hostsim/plugin_registry.h>

#include <cstdint>
#include <cstring>
#include <string>

namespace {

using namespace vyalgo2;

// Under the Itanium C++ ABI a pointer to a virtual member function holds
// 1 + the byte offset of its entry in the virtual table.
template <typename F>
long slotOf(F f) {
  static_assert(sizeof(F) == 2 * sizeof(void*), "Itanium member function pointer");
  uintptr_t raw = 0;
  std::memcpy(&raw, &f, sizeof(raw));
  if ((raw & 1) == 0) return -1;  // not virtual
  return static_cast<long>((raw - 1) / sizeof(void*));
}

TEST(PluginInterfaceSlots, EveryOperationSitsInItsSlot) {
  using P = PluginWraper;
  using V1 = int (P::*)(ProcessRequestInfo*);
  using V2 = int (P::*)(ProcessRequestInfoV2*);
  // In declaration order; 16 and 17 are the two destructor entries.
  const long slots[] = {
      slotOf(&P::initialize), slotOf(&P::preProcess), slotOf(&P::needPreProcess),
      slotOf(&P::getBufferAccessTypeByPlugin), slotOf(&P::getBufferAccessTypeByPluginExt),
      slotOf(static_cast<V1>(&P::processRequest)), slotOf(static_cast<V2>(&P::processRequest)),
      slotOf(&P::customizeOutBufferFormats), slotOf(&P::getCustomFrameOrder),
      slotOf(&P::postProcess), slotOf(&P::flushRequest), slotOf(&P::destroy), slotOf(&P::isEnabled),
      slotOf(&P::reset), slotOf(&P::onPrepareRequest), slotOf(&P::onPrepareRequestExt),
      slotOf(&P::convertImageParams), slotOf(&P::isPreProcessSkipped),
      slotOf(&P::isPreProcessSupported),
      // The provider's operations follow its destructor pair.
      slotOf(&vyalgo2::Provider::getVersion), slotOf(&vyalgo2::Provider::plumaGetType),
      slotOf(&PluginWraperProvider::create), slotOf(&PluginWraperProvider::getName)};
  const long expected[] = {0,  1,  2,  3,  4,  5,  6,  7, 8, 9, 10, 11,
                           12, 13, 14, 15, 18, 19, 20, 2, 3, 4, 5};
  static_assert(sizeof(slots) == sizeof(expected));
  for (size_t i = 0; i < sizeof(expected) / sizeof(expected[0]); ++i)
    EXPECT_EQ(slots[i], expected[i]) << "entry " << i;
}

class LoadedPlugin : public ::testing::Test {
protected:
  void SetUp() override {
    std::string error;
    ASSERT_TRUE(registry.load(MINIMAL_PLUGIN, &error)) << error;
    plugin = registry.create("org.example.minimal");
    ASSERT_NE(plugin, nullptr);
  }
  void TearDown() override {
    if (plugin) plugin->destroy();
    plugin.reset();
  }
  hostsim::PluginRegistry registry;
  hostsim::PluginPtr plugin;
};

TEST_F(LoadedPlugin, ProviderAnswersWithTheFrameworkVersionAndType) {
  PluginWraperProvider* provider = registry.findProvider("org.example.minimal");
  ASSERT_NE(provider, nullptr);
  EXPECT_EQ(provider->getVersion(), PluginWraperProvider::PLUMA_INTERFACE_VERSION);
  EXPECT_EQ(provider->plumaGetType(), PluginWraperProvider::PLUMA_PROVIDER_TYPE);
  EXPECT_EQ(registry.providers().size(), 1u);
  EXPECT_EQ(registry.findProvider("org.example.other"), nullptr);
  EXPECT_EQ(registry.create("org.example.other"), nullptr);
  CreateInfo info;
  info.processMode = 1;
  EXPECT_EQ(plugin->initialize(&info, VyaNodeInterface{}), 1);  // reached the plugin's own slot
}

TEST_F(LoadedPlugin, NeedPreProcessIsFalseWithoutAskingIsEnabled) {
  VyaParams params;
  params.pSessionMetadata = std::make_shared<VyMetadata>();
  EXPECT_FALSE(plugin->needPreProcess(params));
  ProcessRequestInfo request;
  EXPECT_EQ(plugin->processRequest(&request), 0) << "isEnabled was consulted";
  EXPECT_TRUE(plugin->isEnabled(params));
  EXPECT_EQ(plugin->processRequest(&request), 1);
}

TEST_F(LoadedPlugin, SimpleDefaults) {
  EXPECT_EQ(plugin->postProcess(), 0);
  EXPECT_FALSE(plugin->isPreProcessSkipped());
  EXPECT_FALSE(plugin->isPreProcessSupported());
  ProcessPluginPrivMessage message;
  EXPECT_EQ(plugin->onPrepareRequest(&message), -1);
  EXPECT_EQ(plugin->onPrepareRequest(nullptr), -1);
  EXPECT_EQ(plugin->onPrepareRequestExt(&message), -1);

  VyaFrameOrder order = plugin->getCustomFrameOrder(std::make_shared<VyMetadata>());
  EXPECT_EQ(order.count, 0u);
  for (uint32_t v : order.order) EXPECT_EQ(v, 0u);

  std::map<int, VyaFrameInfo> out{{1, VyaFrameInfo{7, 8, 9}}};
  plugin->customizeOutBufferFormats(out, {}, {}, customizeOutExtend{});
  ASSERT_EQ(out.size(), 1u);
  EXPECT_EQ(out[1].width, 8u);
}

TEST_F(LoadedPlugin, BufferAccessHooksSetDefaultAndLeaveTheMap) {
  using Hook = void (PluginWraper::*)(const ProcessRequestInfo*,
                                      std::map<unsigned, std::vector<VyBufferAccessType>>&,
                                      VyBufferAccessType&);
  const Hook hooks[] = {&PluginWraper::getBufferAccessTypeByPlugin,
                        &PluginWraper::getBufferAccessTypeByPluginExt};
  for (Hook hook : hooks) {
    std::map<unsigned, std::vector<VyBufferAccessType>> access{{3, {VY_BUFFER_ACCESS_GPU}}};
    VyBufferAccessType type = VY_BUFFER_ACCESS_CPU;
    ProcessRequestInfo request;
    ((*plugin).*hook)(&request, access, type);
    EXPECT_EQ(type, 0u);
    ASSERT_EQ(access.size(), 1u);
    EXPECT_EQ(access[3], std::vector<VyBufferAccessType>{VY_BUFFER_ACCESS_GPU});
  }
}

ImageParams distinctParams(uint32_t planes) {
  ImageParams p;
  p.format = 0x11;
  p.width = 4000;
  p.height = 3000;
  p.planeType = 77;
  p.stride = 4032;
  p.scanline = 3008;
  p.numberOfPlanes = planes;
  for (uint32_t i = 0; i < kMaxImagePlanes; ++i) {
    p.planeFd[i] = 40 + static_cast<int32_t>(i);
    p.planeAddress[i] = 0x1000000000ull * (i + 1) + 0x123;
    p.planeOffset[i] = 0x10000ull * (i + 5);
  }
  return p;
}

TEST_F(LoadedPlugin, ConvertImageParamsCopiesFieldByFieldUpToThreePlanes) {
  // Nine planes claimed: the count is copied, the arrays stop at three.
  for (uint32_t planes : {0u, 1u, 2u, 3u, 9u}) {
    const ImageParams p = distinctParams(planes);
    struct Guarded {
      VyImageBuffer b;
      uint64_t after[4] = {0xAA, 0xBB, 0xCC, 0xDD};
    } g;
    VyImageBuffer& b = g.b;
    plugin->convertImageParams(p, b);
    EXPECT_EQ(b.format, 0x11u);
    EXPECT_EQ(b.width, 4000u);
    EXPECT_EQ(b.height, 3000u);
    EXPECT_EQ(b.stride, 4032u);
    EXPECT_EQ(b.scanline, 3008u);
    EXPECT_EQ(b.planeCount, planes);
    EXPECT_EQ(b.planeType, 77u);
    for (uint32_t i = 0; i < 3; ++i) {
      const bool copied = i < planes;
      EXPECT_EQ(b.planeFd[i], copied ? 40 + static_cast<int32_t>(i) : 0) << planes << " " << i;
      EXPECT_EQ(b.planeAddress[i], copied ? 0x1000000000ull * (i + 1) + 0x123 : 0u);
      EXPECT_EQ(b.planeOffset[i], copied ? 0x10000ull * (i + 5) : 0u);
    }
    EXPECT_EQ(g.after[0], 0xAAu);
    EXPECT_EQ(g.after[3], 0xDDu);
  }
}

// A plugin that offers pre-processing: needPreProcess then defers to
// isEnabled, handing it the parameters it was given.
class PreProcessingPlugin : public PluginWraper {
public:
  bool supported = true, skipped = false, enabled = true;
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

TEST(NeedPreProcess, DefersToIsEnabledOnlyWhenSupportedAndNotSkipped) {
  struct Case {
    bool supported, skipped, enabled, expected;
    int enabledCalls;
  };
  const Case cases[] = {
      {false, false, true, false, 0}, {false, true, true, false, 0},  {true, true, true, false, 0},
      {true, false, true, true, 1},   {true, false, false, false, 1},
  };
  for (const Case& c : cases) {
    PreProcessingPlugin p;
    p.supported = c.supported;
    p.skipped = c.skipped;
    p.enabled = c.enabled;
    VyaParams params;
    params.pSessionMetadata = std::make_shared<VyMetadata>();
    PluginWraper& base = p;
    EXPECT_EQ(base.needPreProcess(params), c.expected);
    EXPECT_EQ(p.enabledCalls, c.enabledCalls);
    // The caller's copy, the by-value argument moved into the temporary
    // (which isEnabled gets a copy of): three owners, not four.
    if (c.enabledCalls) {
      EXPECT_EQ(p.seenUseCount, 3);
    }
  }
}

TEST(PluginRegistryErrors, NameTheLibraryAndWhatFailed) {
  struct Case {
    std::string path;
    std::string expected;
  };
  const Case cases[] = {
      {"/nonexistent/libnothing.so", "cannot be loaded"},
      {ENTRYLESS_PLUGIN, "does not export tavuconnect"},
      {REFUSING_PLUGIN, "tavuconnect returned false"},
      {SILENT_PLUGIN, "tavuconnect registered nothing"},
  };
  for (const Case& c : cases) {
    hostsim::PluginRegistry registry;
    std::string error;
    EXPECT_FALSE(registry.load(c.path, &error));
    EXPECT_NE(error.find(c.path), std::string::npos) << error;
    EXPECT_NE(error.find(c.expected), std::string::npos) << error;
  }
}

TEST(ProviderManager, RejectsNullAndForeignVersions) {
  class Foreign : public vyalgo2::Provider {
  public:
    unsigned int getVersion() const override {
      return PluginWraperProvider::PLUMA_INTERFACE_VERSION + 1;
    }
    std::string plumaGetType() const override { return "Other"; }
  };
  vyalgo2::ProviderManager manager;
  EXPECT_FALSE(manager.add(nullptr));
  EXPECT_FALSE(manager.add(new Foreign));  // deleted by the manager (checked under ASan)
  EXPECT_TRUE(manager.getProviders().empty());
}

}  // namespace
