// The plugin object linked in directly, with a recording filter SDK: lifecycle,
// the enable decision, frame metadata, the per-frame path with bypass and
// failures, the effect script and the debug dumps.
#include <hostsim/properties.h>
#include <system/camera_metadata_tags.h>

#include <set>

#include "VyLumoFilterPlugin.h"
#include "lumoEffectScript.h"
#include "plugin_test_support.h"

// Frame tags are designated initializers that leave the absent tags out on purpose.
#pragma GCC diagnostic ignored "-Wmissing-field-initializers"

// Reaches the plugin's private state (declared a friend by the plugin).
struct LumoPluginTestAccess {
  static const param_trigger_t& info(const VyLumoFilterPlugin& p) { return p.m_triggerInfo; }
  static const std::string& imageName(const VyLumoFilterPlugin& p) { return p.m_imageName; }
  static bool hasExifFile(const VyLumoFilterPlugin& p) { return p.m_exifFile != nullptr; }
};

namespace {

namespace fs = std::filesystem;
using namespace lumotest;
using Access = LumoPluginTestAccess;
using Lines = std::vector<PluginLine>;
using Names = std::vector<std::string>;

const Names kConfigureAndRender = {"clearEffects", "setFilterScript", "addLutEffectData",
                                   "processFrame"};

class PluginObject : public ::testing::Test {
protected:
  void SetUp() override {
    fs::remove_all(dumpFolder());  // made by prepareDevice, emptied for each test
    fs::create_directories(dumpFolder());
    hostsim::setAndroidLogFile("-");
    hostsim::resetCreateFilterCalls();
  }
  void TearDown() override {
    for (auto& p : plugins) p->destroy();
    hostsim::setFilterFaults({});
    hostsim::clearProperties();
    VyLumoFilterPlugin::m_algoForceEnable = VyLumoFilterPlugin::m_algoBypassMode = 0;
    VyLumoFilterPlugin::m_algoDumpMode = VyLumoFilterPlugin::m_debugMode = 0;
  }
  // 0 offline snapshot, 1 real-time preview.
  VyLumoFilterPlugin& makePlugin(uint32_t mode) {
    plugins.push_back(std::make_unique<VyLumoFilterPlugin>());
    vyalgo2::CreateInfo info;
    info.processMode = mode;
    plugins.back()->initialize(&info, vyalgo2::VyaNodeInterface{});
    return *plugins.back();
  }
  // Runs one frame with a cleared journal; returns the plugin's lines.
  Lines process(VyLumoFilterPlugin& plugin, Frame& frame) {
    journal->clear();
    hostsim::LogCapture capture;
    EXPECT_EQ(plugin.processRequest(&frame.request), 0);
    return pluginLines(capture);
  }

  // Reads one frame's metadata; returns the plugin's lines.
  static Lines fill(VyLumoFilterPlugin& plugin, std::shared_ptr<VyMetadata> metadata) {
    vyalgo2::ImageParams image;
    image.pMetadata = std::move(metadata);
    hostsim::LogCapture capture;
    plugin.fillMetaDataInfo(image);
    return pluginLines(capture);
  }

  std::shared_ptr<hostsim::FilterJournal> journal = std::make_shared<hostsim::FilterJournal>();
  hostsim::FilterFactoryOverride factory{recordingInto(journal)};
  std::vector<std::unique_ptr<VyLumoFilterPlugin>> plugins;
};

TEST_F(PluginObject, InitializeTheLogOnlyCallsAndDestroy) {
  const std::pair<uint32_t, std::string> cases[] = {
      {0, "OfflineSnapshot"}, {1, "RealTimePreview"}, {7, ""}};
  for (const auto& [mode, name] : cases) {
    hostsim::LogCapture capture;
    VyLumoFilterPlugin& plugin = makePlugin(mode);
    EXPECT_EQ(plugin.getPluginName(), "com.zentor.plugin.vylumofilter");
    EXPECT_EQ(plugin.preProcess(vyalgo2::PreProcessInfo{}), 0);
    vyalgo2::ProcessRequestInfoV2 v2;
    EXPECT_EQ(plugin.processRequest(&v2), 0);
    vyalgo2::FlushRequestInfo flush;
    EXPECT_EQ(plugin.flushRequest(&flush), 0);
    // Requests missing an image are left alone.
    vyalgo2::ProcessRequestInfo empty;
    EXPECT_EQ(plugin.processRequest(&empty), 0);
    Frame half = makeFrame(16, 16, 1, {});
    half.request.outputBuffers.begin()->second.clear();
    EXPECT_EQ(plugin.processRequest(&half.request), 0);
    plugin.reset();
    plugin.destroy();
    plugin.destroy();  // twice is safe
    const std::string tag = "[LumoFilter][" + name + "]";
    // Only the first line is for people.
    EXPECT_EQ(
        pluginLines(capture).at(0),
        (PluginLine{4, "initialize", tag + " initialize, processMode=" + std::to_string(mode)}));
  }
  // Mode 7 makes no filter; destroy deletes the two others.
  EXPECT_EQ(hostsim::createFilterFormats(), (std::vector<int>{9, 10}));
  EXPECT_EQ(journal->destroyed(), 2);
  EXPECT_TRUE(journal->names().empty());
  VyLumoFilterPlugin().destroy();  // without initialize
}

TEST_F(PluginObject, EnableDecisionUnderEachForceValue) {
  // forced value, stylisation tag (-1: absent), expected
  const std::tuple<int32_t, int, bool> cases[] = {
      {0, -1, false}, {0, 0, false}, {0, 3, true}, {1, -1, true}, {1, 0, true},
      {1, 3, true},   {2, -1, true}, {2, 0, true}, {2, 3, false}, {2, 255, false},
      {5, -1, true},  {5, 3, true},  {-1, 0, true}};
  VyLumoFilterPlugin& plugin = makePlugin(0);
  for (const auto& [force, type, enabled] : cases) {
    VyLumoFilterPlugin::m_algoForceEnable = force;
    EXPECT_EQ(enabledFor(plugin, type), enabled) << force << " " << type;
  }
}

auto fields(const param_trigger_t& t) {
  return std::make_tuple(t.lux, t.cct, t.zoom_ratio, t.aiscene);
}

// Each row on a fresh preview instance: the conditions read and the name kept.
TEST_F(PluginObject, MetadataTagsSceneTableFacesAndSixteenBitWraps) {
  hostsim::FrameConditions all = sceneTags(13, 412.9f, 5100, 2.0f, "IMG_0001");
  all.faceValues = std::vector<int32_t>(8, 10);  // two faces make it a portrait
  std::vector<std::pair<hostsim::FrameConditions, param_trigger_t>> rows = {
      {all, {412, 5100, 2.0f, "protrait"}}};
  const char* const table[] = {"common", "common",         "food",   "plants", "plants", "plants",
                               "plants", "common",         "common", "night",  "night",  "common",
                               "common", "sunrise_sunset", "night",  "common"};
  for (uint32_t id = 0; id < 18; id++) {
    const uint32_t tag = id < 16 ? id : id == 16 ? 255 : 0xFFFFFFFFu;
    rows.push_back({{.aiScene = tag}, {0, 0, 0.0f, id < 16 ? table[id] : "common"}});
  }
  // Faces are a quarter of the values, rounded down.
  for (int n : {1, 3, 4, 7, 40})
    rows.push_back({{.aiScene = 9u, .faceValues = std::vector<int32_t>(n, 10)},
                    {0, 0, 0.0f, n < 4 ? "night" : "protrait"}});
  // Lux goes through a truncated int32 and keeps its low 16 bits.
  const std::pair<float, uint16_t> luxRows[] = {
      {-1.5f, 65535}, {-0.9f, 0}, {65536.0f, 0}, {70000.5f, 4464}, {1e10f, 65535}};
  for (const auto& [lux, expected] : luxRows)
    rows.push_back({{.luxIndex = lux}, {expected, 0, 0.0f, "common"}});
  for (size_t row = 0; row < rows.size(); ++row) {
    SCOPED_TRACE(row);
    const auto& [tags, info] = rows[row];
    VyLumoFilterPlugin& plugin = makePlugin(1);
    fill(plugin, hostsim::makeFrameMetadata(tags));
    EXPECT_EQ(fields(Access::info(plugin)), fields(info));
    EXPECT_EQ(Access::imageName(plugin), tags.imageName.value_or(""));
  }
  // What the log shows of the first row.
  EXPECT_EQ(fill(makePlugin(1), hostsim::makeFrameMetadata(all)).at(2),
            (PluginLine{4, "fillMetaDataInfo",
                        "[LumoFilter][RealTimePreview], aiscenes = 13, sunrise_sunset"}));
}

TEST_F(PluginObject, AbsentOrShortTagsKeepStatisticsAndTheNameButResetTheScene) {
  VyLumoFilterPlugin& plugin = makePlugin(1);
  fill(plugin, hostsim::makeFrameMetadata(sceneTags(9, 250.5f, 6500, 3.0f, "IMG_0042")));
  // The metadata above is freed by now; the name must be the plugin's own copy.
  EXPECT_TRUE(fill(plugin, hostsim::makeFrameMetadata({})).empty());
  auto meta = std::make_shared<VyMetadata>();
  const std::vector<uint8_t> bytes(100, 0x11);
  // One byte short of each word read.
  meta->update(lumo::kTagAwbFrameControl, TYPE_BYTE, bytes.data(), 15);
  meta->update(lumo::kTagAecFrameControl, TYPE_BYTE, bytes.data(), 99);
  meta->update(lumo::kTagAiSceneResult, TYPE_BYTE, bytes.data(), 3);
  meta->update(static_cast<uint32_t>(ANDROID_CONTROL_ZOOM_RATIO), TYPE_BYTE, bytes.data(), 3);
  EXPECT_TRUE(fill(plugin, meta).empty());
  EXPECT_EQ(fields(Access::info(plugin)), fields({250, 6500, 3.0f, "common"}));
  EXPECT_EQ(Access::imageName(plugin), "IMG_0042");
  // Payload sizes count values of the entry's type: four int32 hold the AWB
  // word at byte 12, 25 floats the AEC one at byte 96; a name without its
  // NUL stops at the payload's end.
  meta = std::make_shared<VyMetadata>();
  const uint32_t awb[4] = {1, 2, 3, 7200};
  meta->update(lumo::kTagAwbFrameControl, TYPE_INT32, awb, 4);
  float aec[25] = {};
  aec[24] = 880.25f;
  meta->update(lumo::kTagAecFrameControl, TYPE_FLOAT, aec, 25);
  meta->update(lumo::kTagSnapshotImageName, TYPE_BYTE, "IMG_9999XYZ", 8);
  fill(plugin, meta);
  EXPECT_EQ(fields(Access::info(plugin)), fields({880, 7200, 3.0f, "common"}));
  EXPECT_EQ(Access::imageName(plugin), "IMG_9999");
}

TEST_F(PluginObject, ChangedParametersConfigureTheFilterWithTheScriptThenRender) {
  VyLumoFilterPlugin& plugin = makePlugin(0);
  Frame frame = makeFrame(4000, 3000, 7, sceneTags(9), 4096);
  process(plugin, frame);
  const std::vector<hostsim::FilterCall> calls = journal->calls();
  ASSERT_EQ(journal->names(), kConfigureAndRender);
  const std::string script =
      "CubeLutEffect;cube_strength=1.0;lut_type=1.0;@CvStyleEffect;Width=4000;Height=3000;"
      "SmoothStartValue=0.100000;SmoothEndValue=0.900000;SmoothCoordScale=2.000000;"
      "SmoothValueScale=1.000000;LightDarkPreserveK=0.500000;LightDarkPreserveB=0.250000;"
      "LightDarkPreserveV=1.000000;LightDarkPreserveT=0.000000;";
  EXPECT_EQ(calls[1].script, script);
  const hostsim::FilterCall& lut = calls[2];
  EXPECT_EQ(lut.lut, patternLut(lutBlockOf("night")));
  EXPECT_EQ(std::tie(lut.size, lut.index, lut.channels, lut.depth),
            std::make_tuple(17, -1, 3, 512));
  const videoprocess::FilterFrameParam &in = calls[3].in, &out = calls[3].out;
  EXPECT_NE(in.clientBuffer, out.clientBuffer);
  for (const auto* f : {&in, &out})
    EXPECT_EQ(std::make_tuple(f->clientBuffer != nullptr, f->reserved, f->stride, f->stride2,
                              f->width, f->height),
              std::make_tuple(true, 0u, 4096u, 4096u, 4000u, 3000u));
  // Same cell: render only. A new zoom ratio configures again with its shading.
  Frame same = makeFrame(32, 32, 8, sceneTags(9));
  process(plugin, same);
  EXPECT_EQ(journal->names(), Names{"processFrame"});
  Frame zoomed = makeFrame(32, 32, 9, sceneTags(9, 300.0f, 5000, 2.0f));
  process(plugin, zoomed);
  EXPECT_NE(journal->calls().at(1).script.find("SmoothStartValue=1.500000;"), std::string::npos);
  // The style text is cut at 511 characters.
  param_shading_float_t huge;
  for (float& v : huge.data) v = 3.0e38f;
  const std::string cut = lumo::buildEffectScript(4294967295u, 4294967295u, huge);
  const std::string lutText = "CubeLutEffect;cube_strength=1.0;lut_type=1.0;";
  ASSERT_EQ(cut.size(), lutText.size() + 511);
  EXPECT_EQ(cut.substr(0, lutText.size() + 50),
            lutText + "@CvStyleEffect;Width=4294967295;Height=4294967295;");
}

// A first frame, then a good one after a reset. One render failure re-creates
// the filter and retries silently; two, no filter at all, no parameters or the
// bypass switch make this and every later frame a copy.
TEST_F(PluginObject, FramesUnderFailuresAndTheBypassSwitch) {
  const Names configure(kConfigureAndRender.begin(), kConfigureAndRender.end() - 1);
  Names twice = configure, retried = configure;
  twice.insert(twice.end(), configure.begin(), configure.end());
  retried.insert(retried.end(), kConfigureAndRender.begin(), kConfigureAndRender.end());
  const Names& rendered = kConfigureAndRender;
  const struct {
    int32_t bypass;
    uint32_t mode, scene;  // scene 2, food, has no parameters
    hostsim::FilterFaults faults;
    Names calls;  // of the first frame
    int creates, destroyed;
    size_t errors;  // error lines, each on the offline log too
    bool copies;
  } rows[] = {
      // clang-format off
      {0, 1, 0, {.refuseLutCount = 1}, retried, 2, 1, 1, false},
      {0, 0, 0, {.failCreateCount = 1}, rendered, 2, 0, 0, false},
      // A failed render is not looked at: no copy, no word, and the request still succeeds.
      {0, 0, 0, {.failRenderCount = 1}, rendered, 1, 0, 0, false},
      {0, 0, 0, {.refuseLutCount = 2}, twice, 3, 2, 4, true},
      {0, 2, 0, {}, {}, 0, 0, 2, true},
      {0, 1, 2, {}, {}, 1, 0, 0, true},
      // The bypass switch: 1 the preview, 2 the snapshot, 3 both, any other neither.
      {1, 1, 0, {}, {}, 1, 0, 0, true},   {1, 0, 0, {}, rendered, 1, 0, 0, false},
      {2, 0, 0, {}, {}, 1, 0, 0, true},   {2, 1, 0, {}, rendered, 1, 0, 0, false},
      {3, 0, 0, {}, {}, 1, 0, 0, true},   {3, 1, 0, {}, {}, 1, 0, 0, true},
      {4, 0, 0, {}, rendered, 1, 0, 0, false},  {-1, 1, 0, {}, rendered, 1, 0, 0, false},
      // clang-format on
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(::testing::Message() << &row - rows);
    hostsim::resetCreateFilterCalls();
    hostsim::setFilterFaults(row.faults);
    VyLumoFilterPlugin::m_algoBypassMode = row.bypass;
    VyLumoFilterPlugin& plugin = makePlugin(row.mode);
    const char* const names[] = {"OfflineSnapshot", "RealTimePreview", ""};
    const std::string tag = std::string("[LumoFilter][") + names[row.mode] + "] ";
    const PluginLine bypass{4, "processRequest", tag + "algo bypass"};
    Frame frame = makeFrame(32, 16, 1, sceneTags(row.scene));
    hostsim::LogCapture capture;
    const Lines lines = process(plugin, frame);
    Lines errors;
    std::copy_if(lines.begin(), lines.end(), std::back_inserter(errors),
                 [](const PluginLine& l) { return l.priority == 6; });
    EXPECT_EQ(errors.size(), row.errors);
    // A copy without a render failure says so at info level.
    EXPECT_EQ(lines.back() == bypass, row.copies && row.errors == 0);
    for (const PluginLine& l : errors)  // on the offline log too, without the debug mask
      EXPECT_GT(std::ranges::count(capture.offlineMessages(), l.text), 0) << l.text;
    // The trigger runs under bypass too.
    EXPECT_TRUE(row.bypass == 0 || !pluginLines(capture, "lumo_filter/paramTrigger").empty());
    EXPECT_EQ(journal->names(), row.calls);
    EXPECT_EQ(hostsim::createFilterCalls(), row.creates);
    EXPECT_EQ(journal->destroyed(), row.destroyed);
    EXPECT_EQ(frame.outputEqualsInput(), row.copies);
    hostsim::setFilterFaults({});
    plugin.reset();  // brings no filter back
    Frame next = makeFrame(32, 16, 2, sceneTags(0));
    EXPECT_EQ(process(plugin, next).back() == bypass, row.copies);
    EXPECT_EQ(journal->names(), row.copies ? Names{} : Names{"processFrame"});
    EXPECT_EQ(next.outputEqualsInput(), row.copies);
  }
}

// The overrides are read at initialize (lux wraps to 16 bits like the tag's).
TEST_F(PluginObject, DebugModeReplacesTheWholeTriggerInput) {
  VyLumoFilterPlugin::m_debugMode = 1;
  property_set("persist.vendor.camera.lumofilter.aiscene", "night");
  property_set("persist.vendor.camera.lumofilter.lux", "70000");
  property_set("persist.vendor.camera.lumofilter.cct", "4100");
  hostsim::LogCapture capture;
  VyLumoFilterPlugin& plugin = makePlugin(1);
  // The store is printed at initialize in debug mode.
  EXPECT_FALSE(pluginLines(capture, "lumo_filter/paramUtil").empty());
  Frame frame = makeFrame(16, 16, 1, sceneTags(13, 300.0f, 5000, 2.0f));
  process(plugin, frame);
  EXPECT_EQ(fields(Access::info(plugin)), fields({4464, 4100, 0.0f, "night"}));
  ASSERT_EQ(journal->names(), kConfigureAndRender);
  EXPECT_EQ(journal->calls()[2].lut, patternLut(lutBlockOf("night")));
}

// What a dump holds for one frame after its number: geometry, conditions, the
// shading block of the zoom ratio (1 below 2, else 2) and the LUT of `scene`.
std::string dumpText(int width, int height, const std::string& scene, int lux, int cct,
                     float zoom) {
  std::string s = "width=" + std::to_string(width) + "\nheight=" + std::to_string(height) +
                  "\naiscene=" + scene + "\nlux=" + std::to_string(lux) +
                  "\ncct=" + std::to_string(cct) + "\nzoom_ratio=" + std::to_string(zoom) +
                  (zoom < 2 ? "\nshading=[ 0.1 0.9 2 1 0.5 0.25 1 0]\n"
                            : "\nshading=[ 1.5 0 0 0.75 0 0 0 0]\n") +
                  "lut_algo_input=[";
  for (uint8_t v : patternLut(lutBlockOf(scene))) s += " " + std::to_string(v);
  return s + "]\n";
}

std::string dumpPath(const std::string& name) { return dumpFolder() + "/" + name; }
bool sharedReadWrite(const std::string& name) {
  return fs::status(dumpPath(name)).permissions() == fs::perms(0666);
}

// One text file per picture, named after it and cut to 255 characters of path
// (the 20 of the folder, 235 of the name); image dump names are cut at 127.
TEST_F(PluginObject, DumpSnapshotWritesOneFilePerPictureAndItsImages) {
  VyLumoFilterPlugin::m_algoDumpMode = 2;
  VyLumoFilterPlugin& plugin = makePlugin(0);
  Frame first = makeFrame(64, 48, 7, sceneTags(9, 412.9f, 70000, 1.0f, "IMG_0001"), 128);
  process(plugin, first);
  const std::string firstName = "IMG_0001_lumo_filter_OfflineSnapshot_exif.txt";
  EXPECT_EQ(readFile(dumpPath(firstName)), dumpText(64, 48, "night", 412, 4464, 1.0f));
  EXPECT_TRUE(sharedReadWrite(firstName));
  EXPECT_FALSE(Access::hasExifFile(plugin));
  // A frame without a name reuses the last one and replaces that file.
  Frame second = makeFrame(32, 16, 8, sceneTags(13, 20.0f, 3000, 2.0f));
  process(plugin, second);
  EXPECT_EQ(readFile(dumpPath(firstName)), dumpText(32, 16, "sunrise_sunset", 20, 3000, 2.0f));
  std::set<std::string> expected = {firstName};
  auto images = [&](const std::string& name, const std::string& frame, const std::string& size) {
    for (const char* role : {"_input_", "_output_"})
      expected.insert((name + "_[lumofilter]_OfflineSnapshot_frame[" + frame + "]" + role + size)
                          .substr(0, 127) +
                      ".nv21");
  };
  images("IMG_0001", "7", "64x48_128");
  images("IMG_0001", "8", "32x16_32");
  const std::string name(250, 'n');
  Frame third = makeFrame(64, 48, 7, sceneTags(0, 1.0f, 1, 1.0f, name), 128);
  process(plugin, third);
  expected.insert((name + "_lumo_filter_OfflineSnapshot_exif.txt").substr(0, 235));
  images(name, "7", "64x48_128");
  const Names files = filesIn(dumpFolder());
  EXPECT_EQ(std::set<std::string>(files.begin(), files.end()), expected);
}

TEST_F(PluginObject, DumpPreviewAppendsOneBlockPerFrameToOneStampedFile) {
  VyLumoFilterPlugin::m_algoDumpMode = 1;
  VyLumoFilterPlugin& plugin = makePlugin(1);
  std::string expected;
  for (uint32_t n : {100u, 101u}) {
    const bool first = n == 100;
    Frame frame = makeFrame(
        48, 32, n, first ? sceneTags(0, 10.5f, 4000, 1.0f) : sceneTags(3, 800.0f, 6500, 2.5f));
    process(plugin, frame);
    expected += "frameNum=" + std::to_string(n) + "\n" +
                (first ? dumpText(48, 32, "common", 10, 4000, 1.0f)
                       : dumpText(48, 32, "plants", 800, 6500, 2.5f));
  }
  plugin.destroy();
  EXPECT_FALSE(Access::hasExifFile(plugin));
  Names files = filesIn(dumpFolder());
  std::erase_if(files, [](const std::string& f) { return !f.ends_with("_exif.txt"); });
  ASSERT_EQ(files.size(), 1u);
  // Named after the local time of initialize.
  EXPECT_TRUE(
      std::regex_match(files[0], std::regex("lumo_filter_RealTimePreview_[0-9]{4}-[0-9]{2}-"
                                            "[0-9]{2}_[0-9]{2}-[0-9]{2}-[0-9]{2}_exif.txt")))
      << files[0];
  EXPECT_EQ(readFile(dumpPath(files[0])), expected);
  EXPECT_TRUE(sharedReadWrite(files[0]));
}

}  // namespace
