// The built plugin library loaded as the camera host loads it: what it
// exports, what it registers, and the switches it reads when it is loaded.
// Every case that loads the library runs in a fresh child process, because
// the switches are read only once per process.
#include <cutils/properties.h>
#include <gtest/gtest.h>
#include <hostsim/filter_factory.h>
#include <hostsim/log_sink.h>
#include <hostsim/metadata_tags.h>
#include <hostsim/plugin_registry.h>
#include <hostsim/recording_filter.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <set>
#include <sstream>

#include "plugin_test_support.h"

#ifndef LUMO_PLUGIN_LIBRARY
#error "LUMO_PLUGIN_LIBRARY must name the built plugin library"
#endif

namespace {

using lumotest::FrameTags;
using lumotest::makeFrame;
using lumotest::makeMetadata;
using lumotest::runInChild;

constexpr const char* kProviderName = "com.zentor.plugin.vylumofilter";

// Names of the dynamic symbols the library defines, as nm lists them.
std::set<std::string> definedDynamicSymbols(const std::string& library) {
  std::set<std::string> names;
  const std::string command = "nm -D --defined-only '" + library + "'";
  FILE* pipe = popen(command.c_str(), "r");
  if (pipe == nullptr) return names;
  char row[1024];
  while (std::fgets(row, sizeof(row), pipe) != nullptr) {
    std::istringstream fields(row);
    std::string address, type, name;
    if (fields >> address >> type >> name) names.insert(name);
  }
  EXPECT_EQ(pclose(pipe), 0) << command;
  return names;
}

// A host in this process: the library loaded after `properties` were set,
// a recording SDK, and plugin objects made by the registered provider.
class Host {
public:
  explicit Host(std::initializer_list<std::pair<const char*, const char*>> properties) {
    lumotest::prepareDevice();
    hostsim::setAndroidLogFile("-");
    for (const auto& [key, value] : properties) property_set(key, value);
    std::string error;
    loaded = registry.load(LUMO_PLUGIN_LIBRARY, &error);
    EXPECT_TRUE(loaded) << error;
  }
  ~Host() {
    for (auto& p : plugins) p->destroy();
    plugins.clear();
  }
  vyalgo2::PluginWraper& make(uint32_t mode) {
    plugins.push_back(registry.create(kProviderName));
    vyalgo2::CreateInfo info;
    info.processMode = mode;
    plugins.back()->initialize(&info, vyalgo2::VyaNodeInterface{});
    return *plugins.back();
  }

  std::shared_ptr<hostsim::FilterJournal> journal = std::make_shared<hostsim::FilterJournal>();
  hostsim::FilterFactoryOverride factory{[j = journal](videoprocess::VideoFormat f, bool) {
    return new hostsim::RecordingFilter(f, j);
  }};
  hostsim::PluginRegistry registry;
  bool loaded = false;
  std::vector<hostsim::PluginPtr> plugins;
};

bool enabledFor(vyalgo2::PluginWraper& plugin, int stylizationType) {
  vyalgo2::VyaParams params;
  params.pSessionMetadata = std::make_shared<VyMetadata>();
  if (stylizationType >= 0) {
    const uint8_t type = static_cast<uint8_t>(stylizationType);
    params.pSessionMetadata->update(hostsim::kTagStylizationType, TYPE_BYTE, &type, 1);
  }
  return plugin.isEnabled(params);
}

FrameTags commonScene(const char* imageName = nullptr) {
  FrameTags t;
  t.scene = 0;
  t.lux = 100.0f;
  t.cct = 5000;
  t.zoom = 1.0f;
  if (imageName != nullptr) t.imageName = imageName;
  return t;
}

TEST(PluginLibrary, ExportsOnlyItsEntry) {
  EXPECT_EQ(definedDynamicSymbols(LUMO_PLUGIN_LIBRARY), std::set<std::string>{"tavuconnect"});
}

TEST(PluginLibrary, EntryRegistersOneProvider) {
  EXPECT_EQ(runInChild([] {
              Host host({});
              ASSERT_TRUE(host.loaded);
              ASSERT_EQ(host.registry.providers().size(), 1u);
              PluginWraperProvider* provider = host.registry.providers()[0];
              EXPECT_EQ(provider->getName(), kProviderName);
              EXPECT_EQ(provider->getVersion(), PluginWraperProvider::PLUMA_INTERFACE_VERSION);
              EXPECT_EQ(provider->plumaGetType(), PluginWraperProvider::PLUMA_PROVIDER_TYPE);
              vyalgo2::PluginWraper& plugin = host.make(1);
              EXPECT_FALSE(enabledFor(plugin, -1));
              EXPECT_TRUE(enabledFor(plugin, 1));
              vyalgo2::ProcessPluginPrivMessage message;
              EXPECT_EQ(plugin.onPrepareRequest(&message), -1);
            }),
            0);
}

TEST(PluginLibrary, ForceEnableTwoInvertsTheSessionChoice) {
  EXPECT_EQ(runInChild([] {
              Host host({{"persist.vendor.camera.lumofilter.forceEnable", "2"}});
              ASSERT_TRUE(host.loaded);
              vyalgo2::PluginWraper& plugin = host.make(0);
              EXPECT_TRUE(enabledFor(plugin, -1));
              EXPECT_TRUE(enabledFor(plugin, 0));
              EXPECT_FALSE(enabledFor(plugin, 3));
            }),
            0);
}

TEST(PluginLibrary, BypassOneCopiesOnlyThePreview) {
  EXPECT_EQ(runInChild([] {
              Host host({{"persist.vendor.camera.lumofilter.bypassMode", "1"}});
              ASSERT_TRUE(host.loaded);
              vyalgo2::PluginWraper& preview = host.make(1);
              vyalgo2::PluginWraper& snapshot = host.make(0);
              lumotest::Frame p = makeFrame(32, 16, 1, makeMetadata(commonScene()));
              lumotest::Frame s = makeFrame(32, 16, 1, makeMetadata(commonScene()));
              hostsim::LogCapture capture;
              EXPECT_EQ(preview.processRequest(&p.request), 0);
              EXPECT_EQ(snapshot.processRequest(&s.request), 0);
              EXPECT_TRUE(p.outputEqualsInput());
              EXPECT_TRUE(s.outputUntouched());
              const std::vector<lumotest::PluginLine> lines = lumotest::pluginLines(capture);
              const lumotest::PluginLine bypass{4, "processRequest",
                                                "[LumoFilter][RealTimePreview] algo bypass"};
              EXPECT_EQ(std::count(lines.begin(), lines.end(), bypass), 1);
              EXPECT_EQ(host.journal->names(),
                        (std::vector<std::string>{"clearEffects", "setFilterScript",
                                                  "addLutEffectData", "processFrame"}));
            }),
            0);
}

TEST(PluginLibrary, DumpThreeDumpsBothInstances) {
  EXPECT_EQ(runInChild([] {
              Host host({{"persist.vendor.camera.lumofilter.dumpMode", "3"}});
              ASSERT_TRUE(host.loaded);
              vyalgo2::PluginWraper& preview = host.make(1);
              vyalgo2::PluginWraper& snapshot = host.make(0);
              lumotest::Frame p = makeFrame(32, 16, 1, makeMetadata(commonScene()));
              lumotest::Frame s = makeFrame(32, 16, 1, makeMetadata(commonScene("IMG_LIB")));
              preview.processRequest(&p.request);
              snapshot.processRequest(&s.request);
              int previewFiles = 0;
              int snapshotFiles = 0;
              for (const std::string& f : lumotest::filesIn(lumotest::dumpFolder())) {
                if (f.rfind("lumo_filter_RealTimePreview_", 0) == 0) ++previewFiles;
                if (f == "IMG_LIB_lumo_filter_OfflineSnapshot_exif.txt") ++snapshotFiles;
              }
              EXPECT_EQ(previewFiles, 1);
              EXPECT_EQ(snapshotFiles, 1);
            }),
            0);
}

TEST(PluginLibrary, DebugOneReadsTheOverridesAtInitialize) {
  EXPECT_EQ(runInChild([] {
              Host host({{"persist.vendor.camera.lumofilter.debug", "1"},
                         {"persist.vendor.camera.lumofilter.lux", "70000"}});
              ASSERT_TRUE(host.loaded);
              hostsim::LogCapture capture;
              host.make(1);
              const std::string tag = "[LumoFilter][RealTimePreview] initialize, ";
              const std::vector<lumotest::PluginLine> expected = {
                  {4, "initialize", tag + "processMode=1"},
                  {3, "getInitProperties", tag + "m_debugMode=1"},
                  {3, "getInitProperties", tag + "debug aiscene=common"},
                  {3, "getInitProperties", tag + "debug lux=4464"},
                  {3, "getInitProperties", tag + "debug cct=0"},
              };
              EXPECT_EQ(lumotest::pluginLines(capture), expected);
              // The store is printed at initialize in debug mode.
              EXPECT_FALSE(lumotest::linesOf(capture, "lumo_filter/paramUtil").empty());
            }),
            0);
}

TEST(PluginLibrary, SwitchesSetAfterLoadingAreIgnored) {
  EXPECT_EQ(runInChild([] {
              Host host({});
              ASSERT_TRUE(host.loaded);
              property_set("persist.vendor.camera.lumofilter.bypassMode", "3");
              property_set("persist.vendor.camera.lumofilter.forceEnable", "1");
              vyalgo2::PluginWraper& plugin = host.make(1);
              lumotest::Frame f = makeFrame(32, 16, 1, makeMetadata(commonScene()));
              plugin.processRequest(&f.request);
              EXPECT_TRUE(f.outputUntouched());
              EXPECT_FALSE(enabledFor(plugin, 0));
            }),
            0);
}

// The whole chain with the SDK the library links: graphic buffers, client
// buffers and the renderer reaching the pixels. A LUT that maps every colour
// to mid grey, with a neutral style effect, must turn any frame grey.
TEST(PluginLibrary, FramesReachTheLinkedSdk) {
#ifndef LUMO_HAVE_RENDERER
  GTEST_SKIP() << "no filter SDK built";
#endif
  EXPECT_EQ(runInChild([] {
              calib::CalibrationFile file = lumotest::testCalibration();
              file.luts[lumotest::lutBlockOf("common")].assign(calib::kLutBlockBytes, 128);
              for (auto& shading : file.shadings) shading.fill(0.0f);
              lumotest::prepareDevice();
              lumotest::installCalibration(file);
              hostsim::setAndroidLogFile("-");
              hostsim::PluginRegistry registry;
              std::string error;
              ASSERT_TRUE(registry.load(LUMO_PLUGIN_LIBRARY, &error)) << error;
              hostsim::PluginPtr plugin = registry.create(kProviderName);
              vyalgo2::CreateInfo info;
              info.processMode = 0;
              plugin->initialize(&info, vyalgo2::VyaNodeInterface{});
              lumotest::Frame frame = makeFrame(64, 32, 1, makeMetadata(commonScene()), 128);
              hostsim::LogCapture capture;
              EXPECT_EQ(plugin->processRequest(&frame.request), 0);
              for (const lumotest::PluginLine& l : lumotest::pluginLines(capture))
                EXPECT_NE(l.priority, 6) << l;
              const hostsim::ImageBuffer& out = *frame.output;
              int off = 0;
              for (uint32_t p = 0; p < out.planeCount(); ++p) {
                // NV21 rows hold 64 bytes of Y, or 32 VU pairs; the padding is left out.
                for (uint32_t row = 0; row < out.planeRows(p); ++row)
                  for (size_t x = 0; x < 64; ++x)
                    off += std::abs(out.plane(p)[row * out.rowBytes(p) + x] - 128) > 1;
              }
              EXPECT_EQ(off, 0);
              plugin->destroy();
            }),
            0);
}

}  // namespace
