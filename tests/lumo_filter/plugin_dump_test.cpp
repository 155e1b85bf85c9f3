// Debug dumps: the parameter text files of both instances byte for byte,
// their names and modes, and the image dump names.
#include <sys/stat.h>

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <filesystem>

#include "plugin_fixture.h"

namespace {

namespace fs = std::filesystem;
using lumotest::makeFrame;
using lumotest::sceneTags;

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
