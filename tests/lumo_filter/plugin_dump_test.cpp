// Debug dumps: the parameter text files of both instances byte for byte,
// their names and modes, and the image dump names.
#include <sys/stat.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <filesystem>

#include "plugin_fixture.h"

namespace {

namespace fs = std::filesystem;
using lumotest::ExifBlock;
using lumotest::FrameTags;
using lumotest::makeFrame;
using lumotest::makeMetadata;

constexpr const char* kShadingZoom1Text = "[ 0.1 0.9 2 1 0.5 0.25 1 0]";
constexpr const char* kShadingZoom2Text = "[ 1.5 0 0 0.75 0 0 0 0]";

FrameTags tagsFor(uint32_t scene, float lux, uint32_t cct, float zoom,
                  std::optional<std::string> name) {
  FrameTags t;
  t.scene = scene;
  t.lux = lux;
  t.cct = cct;
  t.zoom = zoom;
  t.imageName = std::move(name);
  return t;
}

class PluginDumpTest : public PluginFixture {
protected:
  void SetUp() override {
    PluginFixture::SetUp();
    fs::remove_all(lumotest::dumpFolder());
    fs::create_directories(lumotest::dumpFolder());
  }
  std::string dumpPath(const std::string& name) const {
    return lumotest::dumpFolder() + "/" + name;
  }
};

mode_t permissions(const std::string& path) {
  struct stat st {};
  if (stat(path.c_str(), &st) != 0) return 0;
  return st.st_mode & 0777;
}

TEST_F(PluginDumpTest, SnapshotWritesOneFilePerPicture) {
  VyLumoFilterPlugin::m_algoDumpMode = 2;
  VyLumoFilterPlugin& plugin = makePlugin(0);
  lumotest::Frame first =
      makeFrame(64, 48, 7, makeMetadata(tagsFor(9, 412.9f, 70000, 1.0f, "IMG_0001")));
  plugin.processRequest(&first.request);
  const std::string firstPath = dumpPath("IMG_0001_lumo_filter_OfflineSnapshot_exif.txt");
  EXPECT_EQ(lumotest::readFile(firstPath),
            lumotest::exifText({std::nullopt, 64, 48, "night", 412, 4464, 1.0f, kShadingZoom1Text,
                                lumotest::lutBlockOf("night")}));
  EXPECT_EQ(permissions(firstPath), 0666);
  EXPECT_FALSE(Access::hasExifFile(plugin));

  // A frame without a name reuses the last one and replaces that file.
  lumotest::Frame second =
      makeFrame(32, 16, 8, makeMetadata(tagsFor(13, 20.0f, 3000, 2.0f, std::nullopt)));
  plugin.processRequest(&second.request);
  EXPECT_EQ(lumotest::readFile(firstPath),
            lumotest::exifText({std::nullopt, 32, 16, "sunrise_sunset", 20, 3000, 2.0f,
                                kShadingZoom2Text, lumotest::lutBlockOf("sunrise_sunset")}));
  lumotest::Frame third =
      makeFrame(32, 16, 9, makeMetadata(tagsFor(0, 20.0f, 3000, 2.0f, "IMG_0002")));
  plugin.processRequest(&third.request);
  const std::vector<std::string> exifFiles = [] {
    std::vector<std::string> out;
    for (const std::string& f : lumotest::filesIn(lumotest::dumpFolder()))
      if (f.find("_exif.txt") != std::string::npos) out.push_back(f);
    return out;
  }();
  EXPECT_EQ(exifFiles, (std::vector<std::string>{"IMG_0001_lumo_filter_OfflineSnapshot_exif.txt",
                                                 "IMG_0002_lumo_filter_OfflineSnapshot_exif.txt"}));
}

TEST_F(PluginDumpTest, PreviewAppendsNineLineBlocksToOneFile) {
  VyLumoFilterPlugin::m_algoDumpMode = 1;
  const std::time_t before = std::time(nullptr);
  VyLumoFilterPlugin& plugin = makePlugin(1);
  const std::time_t after = std::time(nullptr);
  const struct {
    uint32_t frameNum, scene;
    float lux;
    uint32_t cct;
    float zoom;
    const char* sceneName;
    const char* shading;
  } frames[] = {{100, 0, 10.5f, 4000, 1.0f, "common", kShadingZoom1Text},
                {101, 3, 800.0f, 6500, 2.5f, "plants", kShadingZoom2Text},
                {102, 3, 800.0f, 6500, 2.5f, "plants", kShadingZoom2Text}};
  std::string expected;
  for (const auto& f : frames) {
    lumotest::Frame frame =
        makeFrame(48, 32, f.frameNum, makeMetadata(tagsFor(f.scene, f.lux, f.cct, f.zoom, {})));
    plugin.processRequest(&frame.request);
    expected += lumotest::exifText({f.frameNum, 48, 32, f.sceneName, static_cast<int>(f.lux),
                                    static_cast<int>(f.cct), f.zoom, f.shading,
                                    lumotest::lutBlockOf(f.sceneName)});
  }
  plugin.destroy();
  EXPECT_FALSE(Access::hasExifFile(plugin));

  std::vector<std::string> matches;
  for (const std::string& f : lumotest::filesIn(lumotest::dumpFolder())) {
    std::tm local{};
    char tail[32] = {};
    // lumo_filter_RealTimePreview_<Y>-<m>-<d>_<H>-<M>-<S>_exif.txt
    if (f.size() != std::strlen("lumo_filter_RealTimePreview_2026-01-31_09-05-07_exif.txt") ||
        std::sscanf(f.c_str(), "lumo_filter_RealTimePreview_%4d-%2d-%2d_%2d-%2d-%2d%31s",
                    &local.tm_year, &local.tm_mon, &local.tm_mday, &local.tm_hour, &local.tm_min,
                    &local.tm_sec, tail) != 7 ||
        std::string(tail) != "_exif.txt") {
      continue;
    }
    matches.push_back(f);
    local.tm_year -= 1900;
    local.tm_mon -= 1;
    local.tm_isdst = -1;
    const std::time_t stamp = std::mktime(&local);
    EXPECT_GE(stamp, before);
    EXPECT_LE(stamp, after);
    EXPECT_EQ(lumotest::readFile(dumpPath(f)), expected);
    EXPECT_EQ(permissions(dumpPath(f)), 0666);
  }
  EXPECT_EQ(matches.size(), 1u);
}

TEST_F(PluginDumpTest, ImageDumpsAreNamedByPictureInstanceFrameRoleAndGeometry) {
  VyLumoFilterPlugin::m_algoDumpMode = 3;
  VyLumoFilterPlugin& plugin = makePlugin(0);
  lumotest::Frame frame =
      makeFrame(64, 48, 7, makeMetadata(tagsFor(0, 1.0f, 1, 1.0f, "IMG_0001")), 128);
  plugin.processRequest(&frame.request);
  const std::string prefixes[] = {
      "IMG_0001_[lumofilter]_OfflineSnapshot_frame[7]_input_64x48_128",
      "IMG_0001_[lumofilter]_OfflineSnapshot_frame[7]_output_64x48_128"};
  const std::vector<std::string> files = lumotest::filesIn(lumotest::prepareDevice());
  for (const std::string& prefix : prefixes) {
    const auto count = std::count_if(files.begin(), files.end(), [&](const std::string& f) {
      return f.compare(0, prefix.size(), prefix) == 0;
    });
    EXPECT_EQ(count, 1) << prefix;
  }
}

TEST_F(PluginDumpTest, LongNamesAreCutByTheirBuffers) {
  VyLumoFilterPlugin::m_algoDumpMode = 2;
  VyLumoFilterPlugin& plugin = makePlugin(0);
  const std::string longName(250, 'n');
  lumotest::Frame frame = makeFrame(16, 16, 3, makeMetadata(tagsFor(0, 1.0f, 1, 1.0f, longName)));
  plugin.processRequest(&frame.request);
  // The path buffer keeps 255 characters: the folder (20) and 235 of the name.
  const std::string exifName =
      (longName + "_lumo_filter_OfflineSnapshot_exif.txt").substr(0, 255 - 20);
  EXPECT_TRUE(fs::exists(dumpPath(exifName))) << exifName;
}

TEST_F(PluginDumpTest, ImageDumpNamesKeep127Characters) {
  VyLumoFilterPlugin::m_algoDumpMode = 2;
  VyLumoFilterPlugin& plugin = makePlugin(0);
  const std::string name(80, 'm');
  lumotest::Frame frame = makeFrame(16, 16, 3, makeMetadata(tagsFor(0, 1.0f, 1, 1.0f, name)));
  plugin.processRequest(&frame.request);
  const std::vector<std::string> files = lumotest::filesIn(lumotest::prepareDevice());
  for (const char* role : {"input", "output"}) {
    const std::string full = name + "_[lumofilter]_OfflineSnapshot_frame[3]_" + role + "_16x16_16";
    const std::string cut = full.substr(0, 127);
    ASSERT_LT(cut.size(), full.size());
    const auto hits = std::count_if(files.begin(), files.end(), [&](const std::string& f) {
      return f.compare(0, cut.size(), cut) == 0 && f.compare(0, full.size(), full) != 0;
    });
    EXPECT_EQ(hits, 1) << role;
  }
}

TEST_F(PluginDumpTest, MissingDumpFolderSkipsTheTextDump) {
  VyLumoFilterPlugin::m_algoDumpMode = 3;
  fs::remove_all(lumotest::dumpFolder());
  VyLumoFilterPlugin& preview = makePlugin(1);
  VyLumoFilterPlugin& snapshot = makePlugin(0);
  EXPECT_FALSE(Access::hasExifFile(preview));
  for (VyLumoFilterPlugin* p : {&preview, &snapshot}) {
    lumotest::Frame frame = makeFrame(16, 16, 1, makeMetadata(tagsFor(0, 1.0f, 1, 1.0f, "A")));
    EXPECT_EQ(p->processRequest(&frame.request), 0);
    EXPECT_FALSE(Access::hasExifFile(*p));
  }
  EXPECT_FALSE(fs::exists(lumotest::dumpFolder()));
}

TEST_F(PluginDumpTest, ExifDumpWritesNothingForOtherModes) {
  VyLumoFilterPlugin& plugin = makePlugin(5);
  const std::string path = dumpPath("direct.txt");
  FILE* f = std::fopen(path.c_str(), "wb+");
  ASSERT_NE(f, nullptr);
  param_lut_t lut{};
  plugin.exifDump(f, &lut, nullptr, 1);
  std::fclose(f);
  EXPECT_EQ(lumotest::readFile(path), "");
}

}  // namespace
