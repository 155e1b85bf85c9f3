// The plugin object: lifecycle, the enable decision, reading a frame's metadata,
// the per-frame path with bypass, render failures and overrides, and the debug dumps.
#include <cutils/properties.h>
#include <hostsim/metadata_tags.h>
#include <sys/stat.h>
#include <system/camera_metadata_tags.h>

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <filesystem>

#include "lumoEffectScript.h"
#include "plugin_fixture.h"

namespace {

using lumotest::FrameTags;
using lumotest::makeFrame;
using lumotest::sceneTags;
using Names = std::vector<std::string>;

const Names kConfigureAndRender = {"clearEffects", "setFilterScript", "addLutEffectData",
                                   "processFrame"};

std::string printedFloat(float v) {
  char buf[64];
  std::snprintf(buf, sizeof(buf), "%f", static_cast<double>(v));
  return buf;
}

class PluginObject : public PluginFixture {
protected:
  // Filter creations are counted from here on; the next `refused` LUT uploads fail.
  void refuseLuts(int refused) {
    hostsim::resetCreateFilterCalls();
    hostsim::FilterFaults faults;
    faults.refuseLutCount = refused;
    hostsim::setFilterFaults(faults);
  }
};

TEST_F(PluginObject, InitializeTheLogOnlyCallsAndDestroy) {
  const struct {
    uint32_t mode;
    const char* name;
    bool hasFilter;
  } cases[] = {{0, "OfflineSnapshot", true}, {1, "RealTimePreview", true}, {7, "", false}};
  for (const auto& c : cases) {
    hostsim::LogCapture capture;
    VyLumoFilterPlugin& plugin = makePlugin(c.mode);
    EXPECT_EQ(plugin.getPluginName(), "com.zentor.plugin.vylumofilter");
    EXPECT_EQ(Access::hasFilter(plugin), c.hasFilter) << c.mode;
    EXPECT_TRUE(Access::filterValid(plugin));
    EXPECT_EQ(plugin.preProcess(vyalgo2::PreProcessInfo{}), 0);
    vyalgo2::ProcessRequestInfoV2 v2;
    EXPECT_EQ(plugin.processRequest(&v2), 0);
    vyalgo2::FlushRequestInfo flush;
    EXPECT_EQ(plugin.flushRequest(&flush), 0);
    plugin.reset();
    plugin.destroy();
    plugin.destroy();  // twice is safe
    const std::string tag = std::string("[LumoFilter][") + c.name + "]";
    EXPECT_EQ(lumotest::pluginLines(capture),
              (Lines{{4, "initialize", tag + " initialize, processMode=" + std::to_string(c.mode)},
                     {3, "getInitProperties", tag + " initialize, m_debugMode=0"},
                     {3, "preProcess", tag + " preProcess"},
                     {3, "processRequest", tag + ", processRequestV2"},
                     {3, "flushRequest", tag + ", flushRequest"},
                     {3, "reset", tag + ", reset"},
                     {3, "destroy", tag + ", destroy"},
                     {3, "destroy", tag + ", destroy"}}));
    EXPECT_FALSE(Access::hasFilter(plugin));
    EXPECT_FALSE(Access::hasBlocks(plugin));
  }
  VyLumoFilterPlugin never;  // destroy without initialize
  never.destroy();
}

TEST_F(PluginObject, EnableDecisionUnderEachForceValue) {
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
    hostsim::LogCapture capture;
    EXPECT_EQ(lumotest::enabledFor(plugin, c.type), c.enabled) << c.force << " " << c.type;
    EXPECT_EQ(lumotest::pluginLines(capture),
              (Lines{{4, "isEnabled",
                      "[LumoFilter][OfflineSnapshot] mIsFeatureEnable=" +
                          std::to_string(c.type < 0 ? 0 : c.type)}}));
  }
}

// Each row on a fresh preview instance: the lines logged and the conditions read.
TEST_F(PluginObject, MetadataTagsSceneTableFacesAndSixteenBitWraps) {
  struct Row {
    FrameTags tags;
    uint16_t cct, lux;
    std::string scene;
    float zoom;
    std::vector<std::string> lines;  // after "[LumoFilter][RealTimePreview], "
  };
  FrameTags all = sceneTags(13, 412.9f, 5100, 2.0f, "IMG_0001");
  all.faceValues = 8;  // two faces make it a portrait
  std::vector<Row> rows;
  auto add = [&rows](FrameTags t, uint16_t cct, uint16_t lux, std::string scene, float zoom,
                     std::vector<std::string> lines) {
    rows.push_back({t, cct, lux, scene, zoom, lines});
  };
  add(all, 5100, 412, "protrait", 2,
      {"cct = 5100", "lux idx = 412.899994", "aiscenes = 13, sunrise_sunset", "faceROICount = 2",
       "zoom ratio = 2.000000"});
  add(FrameTags{}, 0, 0, "common", 0, {});  // nothing read yet: zero, common
  add({.cct = 70000}, 4464, 0, "common", 0, {"cct = 70000"});
  const char* const table[] = {"common", "common",         "food",   "plants", "plants", "plants",
                               "plants", "common",         "common", "night",  "night",  "common",
                               "common", "sunrise_sunset", "night",  "common"};
  for (uint32_t id = 0; id < 18; id++) {
    const uint32_t value = id < 16 ? id : id == 16 ? 255 : 0xFFFFFFFFu;
    const std::string scene = id < 16 ? table[id] : "common";
    add({.scene = value}, 0, 0, scene, 0,
        {"aiscenes = " + std::to_string(int(value)) + ", " + scene});
  }
  // Faces are a quarter of the values, rounded down.
  for (int values : {1, 3, 4, 7, 40}) {
    add({.scene = 9u, .faceValues = values}, 0, 0, values < 4 ? "night" : "protrait", 0,
        {"aiscenes = 9, night", "faceROICount = " + std::to_string(values / 4)});
  }
  // Lux goes through a truncated int32 and keeps its low 16 bits.
  const std::pair<float, uint16_t> luxRows[] = {{412.9f, 412},     {-1.5f, 65535}, {-0.9f, 0},
                                                {65535.9f, 65535}, {65536.0f, 0},  {70000.5f, 4464},
                                                {1e10f, 65535},    {-1e10f, 0}};
  for (const auto& [lux, expected] : luxRows)
    add({.lux = lux}, 0, expected, "common", 0, {"lux idx = " + printedFloat(lux)});
  for (const Row& row : rows) {
    SCOPED_TRACE(row.lines.empty() ? "no tags" : row.lines.back());
    VyLumoFilterPlugin& plugin = makePlugin(1);
    hostsim::LogCapture capture;
    vyalgo2::ImageParams image;
    image.pMetadata = lumotest::makeMetadata(row.tags);
    plugin.fillMetaDataInfo(image);
    Lines expected;
    for (const std::string& text : row.lines)
      expected.push_back({4, "fillMetaDataInfo", "[LumoFilter][RealTimePreview], " + text});
    EXPECT_EQ(lumotest::pluginLines(capture), expected);
    const param_trigger_t& info = Access::info(plugin);
    EXPECT_EQ(info.cct, row.cct);
    EXPECT_EQ(info.lux, row.lux);
    EXPECT_EQ(info.aiscene, row.scene);
    EXPECT_EQ(info.zoom_ratio, row.zoom);
    EXPECT_EQ(Access::imageName(plugin), row.tags.imageName);
  }
}

TEST_F(PluginObject, AbsentOrShortTagsKeepStatisticsAndTheNameButResetTheScene) {
  VyLumoFilterPlugin& plugin = makePlugin(1);
  auto fill = [&](std::shared_ptr<VyMetadata> meta) {
    vyalgo2::ImageParams image;
    image.pMetadata = std::move(meta);
    hostsim::LogCapture capture;
    plugin.fillMetaDataInfo(image);
    return lumotest::pluginLines(capture);
  };
  fill(lumotest::makeMetadata(sceneTags(9, 250.5f, 6500, 3.0f, "IMG_0042")));
  // The metadata above is freed by now; the name must be the plugin's own copy.
  EXPECT_TRUE(fill(lumotest::makeMetadata(FrameTags{})).empty());
  auto meta = std::make_shared<VyMetadata>();
  const std::vector<uint8_t> bytes(100, 0x11);
  // One byte short of each word read.
  meta->update(hostsim::kTagAwbFrameControl, TYPE_BYTE, bytes.data(), 15);
  meta->update(hostsim::kTagAecFrameControl, TYPE_BYTE, bytes.data(), 99);
  meta->update(hostsim::kTagAiSceneResult, TYPE_BYTE, bytes.data(), 3);
  meta->update(static_cast<uint32_t>(ANDROID_CONTROL_ZOOM_RATIO), TYPE_BYTE, bytes.data(), 3);
  EXPECT_TRUE(fill(meta).empty());
  const param_trigger_t& info = Access::info(plugin);
  EXPECT_EQ(info.cct, 6500);
  EXPECT_EQ(info.lux, 250);
  EXPECT_EQ(info.zoom_ratio, 3.0f);
  EXPECT_EQ(info.aiscene, "common");
  EXPECT_EQ(Access::imageName(plugin), "IMG_0042");

  // Payload sizes count values of the entry's type: four int32 hold the AWB
  // word at byte 12, 25 floats the AEC one at byte 96; a name without its
  // NUL stops at the payload's end.
  meta = std::make_shared<VyMetadata>();
  const uint32_t awb[4] = {1, 2, 3, 7200};
  meta->update(hostsim::kTagAwbFrameControl, TYPE_INT32, awb, 4);
  float aec[25] = {};
  aec[24] = 880.25f;
  meta->update(hostsim::kTagAecFrameControl, TYPE_FLOAT, aec, 25);
  meta->update(hostsim::kTagSnapshotImageName, TYPE_BYTE, "IMG_9999XYZ", 8);
  fill(meta);
  EXPECT_EQ(info.cct, 7200);
  EXPECT_EQ(info.lux, 880);
  EXPECT_EQ(Access::imageName(plugin), "IMG_9999");
}

TEST_F(PluginObject, ChangedParametersConfigureTheFilterThenRender) {
  VyLumoFilterPlugin& plugin = makePlugin(0);
  lumotest::Frame frame = makeFrame(4000, 3000, 7, sceneTags(9), 4096);
  const Lines lines = process(plugin, frame);
  const std::vector<hostsim::FilterCall> calls = journal->calls();
  ASSERT_EQ(journal->names(), kConfigureAndRender);
  const std::string script =
      "CubeLutEffect;cube_strength=1.0;lut_type=1.0;@CvStyleEffect;Width=4000;Height=3000;"
      "SmoothStartValue=0.100000;SmoothEndValue=0.900000;SmoothCoordScale=2.000000;"
      "SmoothValueScale=1.000000;LightDarkPreserveK=0.500000;LightDarkPreserveB=0.250000;"
      "LightDarkPreserveV=1.000000;LightDarkPreserveT=0.000000;";
  EXPECT_EQ(calls[1].script, script);
  const hostsim::FilterCall& lut = calls[2];
  EXPECT_EQ(lut.lut, lumotest::lutBlock(lumotest::lutBlockOf("night")));
  EXPECT_EQ(std::vector<int>({lut.size, lut.index, lut.channels, lut.depth}),
            std::vector<int>({17, -1, 3, 512}));
  const videoprocess::FilterFrameParam& in = calls[3].in;
  const videoprocess::FilterFrameParam& out = calls[3].out;
  EXPECT_NE(in.clientBuffer, nullptr);
  EXPECT_NE(out.clientBuffer, nullptr);
  EXPECT_NE(in.clientBuffer, out.clientBuffer);
  for (const auto* f : {&in, &out}) {
    EXPECT_EQ(std::vector<uint64_t>({f->reserved, f->stride, f->stride2, f->width, f->height}),
              std::vector<uint64_t>({0, 4096, 4096, 4000, 3000}));
  }
  EXPECT_TRUE(frame.outputUntouched());  // the recording filter draws nothing, nor is it copied
  const std::string tag = "[LumoFilter][OfflineSnapshot], ";
  EXPECT_EQ(lines, (Lines{{4, "fillMetaDataInfo", tag + "cct = 5000"},
                          {4, "fillMetaDataInfo", tag + "lux idx = 300.000000"},
                          {4, "fillMetaDataInfo", tag + "aiscenes = 9, night"},
                          {4, "fillMetaDataInfo", tag + "zoom ratio = 1.000000"},
                          {3, "nuvoProcess", tag + "triggerChanged = 1"},
                          {3, "nuvoProcess", tag + "filterScript = " + script}}));

  // Same cell: render only. A new zoom ratio configures again with its shading.
  lumotest::Frame same = makeFrame(32, 32, 8, sceneTags(9));
  EXPECT_EQ(process(plugin, same).back(),
            (PluginLine{3, "nuvoProcess", "[LumoFilter][OfflineSnapshot], triggerChanged = 0"}));
  EXPECT_EQ(journal->names(), Names{"processFrame"});
  lumotest::Frame zoomed = makeFrame(32, 32, 9, sceneTags(9, 300.0f, 5000, 2.0f));
  process(plugin, zoomed);
  ASSERT_EQ(journal->names(), kConfigureAndRender);
  EXPECT_NE(journal->calls()[1].script.find("SmoothStartValue=1.500000;"), std::string::npos);
  EXPECT_NE(journal->calls()[1].script.find("SmoothValueScale=0.750000;"), std::string::npos);
}

TEST(PluginEffectScript, StyleTextIsCutAt511Characters) {
  param_shading_float_t huge;
  for (float& v : huge.data) v = 3.0e38f;
  const std::string script = lumo::buildEffectScript(4294967295u, 4294967295u, huge);
  const std::string lutText = "CubeLutEffect;cube_strength=1.0;lut_type=1.0;";
  ASSERT_EQ(script.size(), lutText.size() + 511);
  EXPECT_EQ(script.substr(0, lutText.size() + 50),
            lutText + "@CvStyleEffect;Width=4294967295;Height=4294967295;");
}

TEST_F(PluginObject, BypassSwitchCopiesOnlyTheChosenInstance) {
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
      SCOPED_TRACE(std::to_string(c.mode) + " " + name);
      for (uint32_t n = 0; n < 2; ++n) {
        lumotest::Frame frame = makeFrame(16, 16, n, FrameTags{});
        hostsim::LogCapture capture;  // the trigger runs either way
        const Lines lines = process(plugin, frame);
        EXPECT_EQ(frame.outputEqualsInput(), copies);
        ASSERT_FALSE(lines.empty());
        const PluginLine bypass{4, "processRequest", "[LumoFilter][" + name + "] algo bypass"};
        EXPECT_EQ(lines.back() == bypass, copies);
        EXPECT_EQ(journal->names().empty(), copies);
        EXPECT_FALSE(lumotest::linesOf(capture, "lumo_filter/paramTrigger").empty());
      }
    }
  }
}

// The refused LUT is the only error line; the filter is made again once and the frame rendered.
TEST_F(PluginObject, OneRenderFailureRecreatesTheFilterAndRetries) {
  VyLumoFilterPlugin& plugin = makePlugin(1);
  refuseLuts(1);
  lumotest::Frame frame = makeFrame(32, 16, 1, sceneTags(3));
  const Lines lines = process(plugin, frame);
  EXPECT_EQ(hostsim::createFilterCalls(), 1);
  EXPECT_EQ(journal->destroyed(), 1);
  Names twice = kConfigureAndRender;
  twice.insert(twice.begin(), kConfigureAndRender.begin(), kConfigureAndRender.end() - 1);
  EXPECT_EQ(journal->names(), twice);
  EXPECT_TRUE(frame.outputUntouched());
  EXPECT_TRUE(Access::filterValid(plugin));
  EXPECT_FALSE(Access::bypass(plugin));
  Lines errors;
  std::copy_if(lines.begin(), lines.end(), std::back_inserter(errors),
               [](const PluginLine& l) { return l.priority == 6; });
  EXPECT_EQ(errors,
            (Lines{{6, "nuvoProcess", "[LumoFilter][RealTimePreview] addLutEffectData failed"}}));
  EXPECT_TRUE(std::none_of(lines.begin(), lines.end(), [](const PluginLine& l) {
    return l.text.find("algo bypass") != std::string::npos;
  }));
  lumotest::Frame next = makeFrame(32, 16, 2, sceneTags(3));
  process(plugin, next);
  EXPECT_EQ(journal->names(), Names{"processFrame"});
}

TEST_F(PluginObject, MissingFilterIsRecreatedSilently) {
  hostsim::FilterFaults faults;
  faults.failCreateCount = 1;  // the filter of initialize
  hostsim::setFilterFaults(faults);
  VyLumoFilterPlugin& plugin = makePlugin(0);
  EXPECT_FALSE(Access::hasFilter(plugin));
  lumotest::Frame frame = makeFrame(32, 16, 1, sceneTags(0));
  for (const PluginLine& l : process(plugin, frame)) EXPECT_NE(l.priority, 6) << l;
  EXPECT_EQ(hostsim::createFilterCalls(), 2);
  EXPECT_EQ(journal->names(), kConfigureAndRender);
  EXPECT_TRUE(frame.outputUntouched());
}

TEST_F(PluginObject, TwoRenderFailuresSwitchToCopyingForGood) {
  VyLumoFilterPlugin& plugin = makePlugin(0);
  refuseLuts(2);
  lumotest::Frame frame = makeFrame(32, 16, 1, sceneTags(0));
  hostsim::LogCapture capture;
  const Lines lines = process(plugin, frame);
  EXPECT_EQ(hostsim::createFilterCalls(), 2);
  EXPECT_TRUE(frame.outputEqualsInput());
  EXPECT_FALSE(Access::filterValid(plugin));
  const std::string tag = "[LumoFilter][OfflineSnapshot] ";
  ASSERT_GE(lines.size(), 3u);
  EXPECT_EQ(Lines(lines.end() - 3, lines.end()),
            (Lines{{6, "nuvoProcess", tag + "addLutEffectData failed"},
                   {6, "processRequest", tag + "nuvoProcess fail twice!!!"},
                   {6, "processRequest", tag + "algo bypass for nuvoSKD fail"}}));
  // Error lines reach the offline log without the debug mask.
  const Names offline = capture.offlineMessages();
  EXPECT_NE(std::find(offline.begin(), offline.end(), tag + "nuvoProcess fail twice!!!"),
            offline.end());
  hostsim::setFilterFaults({});
  for (uint32_t n = 2; n < 5; ++n) {
    if (n == 4) plugin.reset();  // does not bring the filter back
    lumotest::Frame later = makeFrame(32, 16, n, sceneTags(9));
    EXPECT_EQ(process(plugin, later).back(),
              (PluginLine{4, "processRequest", tag + "algo bypass"}));
    EXPECT_TRUE(journal->names().empty());
    EXPECT_TRUE(later.outputEqualsInput());
  }
}

TEST_F(PluginObject, FailedTriggerMakesEveryLaterFrameACopy) {
  VyLumoFilterPlugin& plugin = makePlugin(1);
  // Food (scene 2) has no parameters in the calibration.
  const std::pair<uint32_t, bool> rows[] = {{0, false}, {2, true}, {0, true}};
  for (const auto& [scene, copied] : rows) {
    lumotest::Frame frame = makeFrame(16, 16, 1, sceneTags(scene));
    process(plugin, frame);
    EXPECT_EQ(frame.outputEqualsInput(), copied) << scene;
    EXPECT_EQ(journal->names().empty(), copied) << scene;
  }
}

TEST_F(PluginObject, UnknownModeAndMissingImages) {
  VyLumoFilterPlugin& plugin = makePlugin(2);
  lumotest::Frame frame = makeFrame(16, 16, 1, sceneTags(0));
  EXPECT_EQ(process(plugin, frame).back(),
            (PluginLine{6, "processRequest", "[LumoFilter][] algo bypass for nuvoSKD fail"}));
  EXPECT_TRUE(frame.outputEqualsInput());
  // A request without images is left alone.
  VyLumoFilterPlugin& preview = makePlugin(1);
  vyalgo2::ProcessRequestInfo empty;
  EXPECT_EQ(preview.processRequest(&empty), 0);
  frame.request.outputBuffers.begin()->second.clear();
  process(preview, frame);
  EXPECT_TRUE(journal->names().empty());
}

TEST_F(PluginObject, DebugModeReplacesTheWholeTriggerInput) {
  VyLumoFilterPlugin::m_debugMode = 1;
  property_set("persist.vendor.camera.lumofilter.aiscene", "night");
  property_set("persist.vendor.camera.lumofilter.lux", "70000");
  property_set("persist.vendor.camera.lumofilter.cct", "4100");
  hostsim::LogCapture capture;
  VyLumoFilterPlugin& plugin = makePlugin(1);
  const std::string tag = "[LumoFilter][RealTimePreview] initialize, ";
  EXPECT_EQ(lumotest::pluginLines(capture),
            (Lines{{4, "initialize", tag + "processMode=1"},
                   {3, "getInitProperties", tag + "m_debugMode=1"},
                   {3, "getInitProperties", tag + "debug aiscene=night"},
                   {3, "getInitProperties", tag + "debug lux=4464"},
                   {3, "getInitProperties", tag + "debug cct=4100"}}));
  // The store is printed at initialize in debug mode.
  EXPECT_FALSE(lumotest::linesOf(capture, "lumo_filter/paramUtil").empty());
  lumotest::Frame frame = makeFrame(16, 16, 1, sceneTags(13, 300.0f, 5000, 2.0f));
  process(plugin, frame);
  const param_trigger_t& info = Access::info(plugin);
  EXPECT_EQ(info.aiscene, "night");
  EXPECT_EQ(info.lux, 4464);
  EXPECT_EQ(info.cct, 4100);
  EXPECT_EQ(info.zoom_ratio, 0.0f);
  ASSERT_EQ(journal->names(), kConfigureAndRender);
  EXPECT_EQ(journal->calls()[2].lut, lumotest::lutBlock(lumotest::lutBlockOf("night")));
  // Unset overrides: the common scene and zero.
  hostsim::clearProperties();
  VyLumoFilterPlugin& other = makePlugin(0);
  lumotest::Frame second = makeFrame(16, 16, 1, sceneTags(9));
  process(other, second);
  EXPECT_EQ(Access::info(other).aiscene, "common");
  EXPECT_EQ(Access::info(other).lux, 0);
}

namespace fs = std::filesystem;

constexpr const char* kShading1 = "[ 0.1 0.9 2 1 0.5 0.25 1 0]";
constexpr const char* kShading2 = "[ 1.5 0 0 0.75 0 0 0 0]";

class PluginDump : public PluginFixture {
protected:
  void SetUp() override {
    PluginFixture::SetUp();
    fs::remove_all(lumotest::dumpFolder());
    fs::create_directories(lumotest::dumpFolder());
  }
  static std::string path(const std::string& name) { return lumotest::dumpFolder() + "/" + name; }
  static mode_t permissions(const std::string& file) {
    struct stat st {};
    return stat(file.c_str(), &st) == 0 ? st.st_mode & 0777 : 0;
  }
  static std::vector<std::string> exifFiles() {
    std::vector<std::string> out = lumotest::filesIn(lumotest::dumpFolder());
    out.erase(std::remove_if(
                  out.begin(), out.end(),
                  [](const std::string& f) { return f.find("_exif.txt") == std::string::npos; }),
              out.end());
    return out;
  }
};

TEST_F(PluginDump, SnapshotWritesOneFilePerPicture) {
  VyLumoFilterPlugin::m_algoDumpMode = 2;
  VyLumoFilterPlugin& plugin = makePlugin(0);
  lumotest::Frame first = makeFrame(64, 48, 7, sceneTags(9, 412.9f, 70000, 1.0f, "IMG_0001"));
  process(plugin, first);
  const std::string firstPath = path("IMG_0001_lumo_filter_OfflineSnapshot_exif.txt");
  EXPECT_EQ(lumotest::readFile(firstPath),
            lumotest::exifText({std::nullopt, 64, 48, "night", 412, 4464, 1.0f, kShading1}));
  EXPECT_EQ(permissions(firstPath), 0666);
  EXPECT_FALSE(Access::hasExifFile(plugin));
  // A frame without a name reuses the last one and replaces that file.
  lumotest::Frame second = makeFrame(32, 16, 8, sceneTags(13, 20.0f, 3000, 2.0f));
  process(plugin, second);
  EXPECT_EQ(
      lumotest::readFile(firstPath),
      lumotest::exifText({std::nullopt, 32, 16, "sunrise_sunset", 20, 3000, 2.0f, kShading2}));
  lumotest::Frame third = makeFrame(32, 16, 9, sceneTags(0, 20.0f, 3000, 2.0f, "IMG_0002"));
  process(plugin, third);
  EXPECT_EQ(exifFiles(),
            (std::vector<std::string>{"IMG_0001_lumo_filter_OfflineSnapshot_exif.txt",
                                      "IMG_0002_lumo_filter_OfflineSnapshot_exif.txt"}));
}

TEST_F(PluginDump, PreviewAppendsOneBlockPerFrameToOneStampedFile) {
  VyLumoFilterPlugin::m_algoDumpMode = 1;
  const std::time_t before = std::time(nullptr);
  VyLumoFilterPlugin& plugin = makePlugin(1);
  const std::time_t after = std::time(nullptr);
  std::string expected;
  for (uint32_t n : {100u, 101u, 102u}) {
    const bool first = n == 100;
    lumotest::Frame frame = makeFrame(
        48, 32, n, first ? sceneTags(0, 10.5f, 4000, 1.0f) : sceneTags(3, 800.0f, 6500, 2.5f));
    process(plugin, frame);
    expected += lumotest::exifText({n, 48, 32, first ? "common" : "plants", first ? 10 : 800,
                                    first ? 4000 : 6500, first ? 1.0f : 2.5f,
                                    first ? kShading1 : kShading2});
  }
  plugin.destroy();
  EXPECT_FALSE(Access::hasExifFile(plugin));
  const std::vector<std::string> files = exifFiles();
  ASSERT_EQ(files.size(), 1u);
  // lumo_filter_RealTimePreview_<Y>-<m>-<d>_<H>-<M>-<S>_exif.txt
  std::tm local{};
  char tail[32] = {};
  ASSERT_EQ(files[0].size(), 56u) << files[0];
  ASSERT_EQ(std::sscanf(files[0].c_str(), "lumo_filter_RealTimePreview_%4d-%2d-%2d_%2d-%2d-%2d%31s",
                        &local.tm_year, &local.tm_mon, &local.tm_mday, &local.tm_hour,
                        &local.tm_min, &local.tm_sec, tail),
            7);
  EXPECT_STREQ(tail, "_exif.txt");
  local.tm_year -= 1900;
  local.tm_mon -= 1;
  local.tm_isdst = -1;
  EXPECT_GE(std::mktime(&local), before);
  EXPECT_LE(std::mktime(&local), after);
  EXPECT_EQ(lumotest::readFile(path(files[0])), expected);
  EXPECT_EQ(permissions(path(files[0])), 0666);
}

// Dump names are cut by their buffers: 255 characters of path for the text
// file (the 20 of the folder and 235 of the name), 127 for an image name.
TEST_F(PluginDump, ImageAndTextDumpNamesAndTheirCuts) {
  VyLumoFilterPlugin::m_algoDumpMode = 3;
  for (const std::string& name :
       {std::string("IMG_0001"), std::string(80, 'm'), std::string(250, 'n')}) {
    SCOPED_TRACE(name);
    fs::remove_all(lumotest::dumpFolder());
    fs::create_directories(lumotest::dumpFolder());
    VyLumoFilterPlugin& plugin = makePlugin(0);
    lumotest::Frame frame = makeFrame(64, 48, 7, sceneTags(0, 1.0f, 1, 1.0f, name), 128);
    process(plugin, frame);
    const std::vector<std::string> files = lumotest::filesIn(lumotest::prepareDevice());
    const std::string exif = (name + "_lumo_filter_OfflineSnapshot_exif.txt").substr(0, 235);
    EXPECT_EQ(std::count(files.begin(), files.end(), exif), 1) << exif;
    for (const char* role : {"input", "output"}) {
      // At most 127 characters of the name, then the host's extension.
      const std::string cut =
          (name + "_[lumofilter]_OfflineSnapshot_frame[7]_" + role + "_64x48_128").substr(0, 127);
      EXPECT_EQ(std::count_if(files.begin(), files.end(),
                              [&](const std::string& f) {
                                return f.compare(0, cut.size(), cut) == 0 && f[cut.size()] == '.';
                              }),
                1)
          << cut;
    }
  }
}

TEST_F(PluginDump, MissingDumpFolderSkipsTheTextDump) {
  VyLumoFilterPlugin::m_algoDumpMode = 3;
  fs::remove_all(lumotest::dumpFolder());
  VyLumoFilterPlugin& preview = makePlugin(1);
  VyLumoFilterPlugin& snapshot = makePlugin(0);
  EXPECT_FALSE(Access::hasExifFile(preview));
  for (VyLumoFilterPlugin* p : {&preview, &snapshot}) {
    lumotest::Frame frame = makeFrame(16, 16, 1, sceneTags(0, 1.0f, 1, 1.0f, "A"));
    process(*p, frame);
    EXPECT_FALSE(Access::hasExifFile(*p));
  }
  EXPECT_FALSE(fs::exists(lumotest::dumpFolder()));
  // An instance of another mode writes nothing.
  const std::string direct = lumotest::prepareDevice() + "/direct.txt";
  FILE* f = std::fopen(direct.c_str(), "wb+");
  ASSERT_NE(f, nullptr);
  param_lut_t lut{};
  makePlugin(5).exifDump(f, &lut, nullptr, 1);
  std::fclose(f);
  EXPECT_EQ(lumotest::readFile(direct), "");
}

}  // namespace
