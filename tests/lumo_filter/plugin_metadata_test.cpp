// Reading a frame's conditions from its metadata: tags, scene table, face
// override, kept statistics, short payloads and the lux conversion.
#include <hostsim/metadata_tags.h>
#include <system/camera_metadata_tags.h>

#include <cstdio>

#include "lumoFrameMetadata.h"
#include "plugin_fixture.h"

namespace {

using lumotest::FrameTags;
using lumotest::makeMetadata;
using lumotest::PluginLine;

class PluginMetadataTest : public PluginFixture {
protected:
  void SetUp() override {
    PluginFixture::SetUp();
    plugin = &makePlugin(1);
  }
  // Reads `tags` and returns the plugin lines it logged.
  std::vector<PluginLine> read(const FrameTags& tags) {
    hostsim::LogCapture capture;
    vyalgo2::ImageParams image;
    image.pMetadata = makeMetadata(tags);
    plugin->fillMetaDataInfo(image);
    return lumotest::pluginLines(capture);
  }
  const param_trigger_t& info() const { return Access::triggerInfo(*plugin); }
  VyLumoFilterPlugin* plugin = nullptr;
};

PluginLine infoLine(const std::string& text) {
  return {4, "fillMetaDataInfo", "[LumoFilter][RealTimePreview], " + text};
}

std::string printedFloat(float v) {
  char buf[64];
  std::snprintf(buf, sizeof(buf), "%f", static_cast<double>(v));
  return buf;
}

TEST_F(PluginMetadataTest, EveryTagIsReadAndLoggedInOrder) {
  FrameTags tags;
  tags.cct = 5100;
  tags.lux = 412.9f;
  tags.scene = 13;
  tags.faceValues = 8;
  tags.zoom = 2.0f;
  tags.imageName = "IMG_0001";
  const std::vector<PluginLine> expected = {
      infoLine("cct = 5100"),
      infoLine("lux idx = " + printedFloat(412.9f)),
      infoLine("aiscenes = 13, sunrise_sunset"),
      infoLine("faceROICount = 2"),
      infoLine("zoom ratio = 2.000000"),
  };
  EXPECT_EQ(read(tags), expected);
  EXPECT_EQ(info().cct, 5100);
  EXPECT_EQ(info().lux, 412);
  EXPECT_EQ(info().aiscene, "protrait");
  EXPECT_EQ(info().zoom_ratio, 2.0f);
  EXPECT_EQ(Access::imageName(*plugin), "IMG_0001");
}

TEST_F(PluginMetadataTest, SceneTableWithoutFaces) {
  const struct {
    uint32_t id;
    const char* scene;
  } cases[] = {{0, "common"},   {1, "common"},          {2, "food"},   {3, "plants"},
               {4, "plants"},   {5, "plants"},          {6, "plants"}, {7, "common"},
               {8, "common"},   {9, "night"},           {10, "night"}, {11, "common"},
               {12, "common"},  {13, "sunrise_sunset"}, {14, "night"}, {15, "common"},
               {255, "common"}, {0xFFFFFFFFu, "common"}};
  for (const auto& c : cases) {
    FrameTags tags;
    tags.scene = c.id;
    const std::vector<PluginLine> expected = {
        infoLine("aiscenes = " + std::to_string(static_cast<int>(c.id)) + ", " + c.scene)};
    EXPECT_EQ(read(tags), expected) << c.id;
    EXPECT_EQ(info().aiscene, c.scene) << c.id;
  }
}

TEST_F(PluginMetadataTest, FaceCountIsQuarterOfTheValues) {
  const struct {
    int values;
    int faces;
    const char* scene;
  } cases[] = {{1, 0, "night"},
               {3, 0, "night"},
               {4, 1, "protrait"},
               {7, 1, "protrait"},
               {40, 10, "protrait"}};
  for (const auto& c : cases) {
    FrameTags tags;
    tags.scene = 9;
    tags.faceValues = c.values;
    const std::vector<PluginLine> lines = read(tags);
    ASSERT_EQ(lines.size(), 2u) << c.values;
    EXPECT_EQ(lines[1], infoLine("faceROICount = " + std::to_string(c.faces))) << c.values;
    EXPECT_EQ(info().aiscene, c.scene) << c.values;
  }
}

TEST_F(PluginMetadataTest, AbsentTagsKeepStatisticsButResetTheScene) {
  FrameTags first;
  first.cct = 6500;
  first.lux = 250.5f;
  first.scene = 9;
  first.zoom = 3.0f;
  first.imageName = "IMG_0042";
  read(first);
  EXPECT_TRUE(read(FrameTags{}).empty());
  EXPECT_EQ(info().cct, 6500);
  EXPECT_EQ(info().lux, 250);
  EXPECT_EQ(info().zoom_ratio, 3.0f);
  EXPECT_EQ(info().aiscene, "common");
  EXPECT_EQ(Access::imageName(*plugin), "IMG_0042");
}

TEST_F(PluginMetadataTest, StatisticsStartAtZeroAndNameEmpty) {
  read(FrameTags{});
  EXPECT_EQ(info().cct, 0);
  EXPECT_EQ(info().lux, 0);
  EXPECT_EQ(info().zoom_ratio, 0.0f);
  EXPECT_EQ(Access::imageName(*plugin), "");
}

TEST_F(PluginMetadataTest, LuxAndCctWrapThroughSixteenBits) {
  const struct {
    float lux;
    uint16_t expected;
  } luxCases[] = {{412.9f, 412}, {-1.5f, 65535},   {-0.9f, 0},     {65535.9f, 65535},
                  {65536.0f, 0}, {70000.5f, 4464}, {1e10f, 65535}, {-1e10f, 0}};
  for (const auto& c : luxCases) {
    FrameTags tags;
    tags.lux = c.lux;
    const std::vector<PluginLine> expected = {infoLine("lux idx = " + printedFloat(c.lux))};
    EXPECT_EQ(read(tags), expected) << c.lux;
    EXPECT_EQ(info().lux, c.expected) << c.lux;
  }
  FrameTags awb;
  awb.cct = 70000;
  const std::vector<PluginLine> expected = {infoLine("cct = 70000")};
  EXPECT_EQ(read(awb), expected);
  EXPECT_EQ(info().cct, 4464);
}

TEST_F(PluginMetadataTest, ShortPayloadsCountAsAbsent) {
  FrameTags first;
  first.cct = 5000;
  first.lux = 100.0f;
  first.zoom = 1.5f;
  read(first);

  hostsim::LogCapture capture;
  auto meta = std::make_shared<VyMetadata>();
  const std::vector<uint8_t> bytes(100, 0x11);
  // One byte short of each word read.
  meta->update(hostsim::kTagAwbFrameControl, TYPE_BYTE, bytes.data(), 15);
  meta->update(hostsim::kTagAecFrameControl, TYPE_BYTE, bytes.data(), 99);
  meta->update(hostsim::kTagAiSceneResult, TYPE_BYTE, bytes.data(), 3);
  meta->update(static_cast<uint32_t>(ANDROID_CONTROL_ZOOM_RATIO), TYPE_BYTE, bytes.data(), 3);
  vyalgo2::ImageParams image;
  image.pMetadata = meta;
  plugin->fillMetaDataInfo(image);
  EXPECT_TRUE(lumotest::pluginLines(capture).empty());
  EXPECT_EQ(info().cct, 5000);
  EXPECT_EQ(info().lux, 100);
  EXPECT_EQ(info().zoom_ratio, 1.5f);
  EXPECT_EQ(info().aiscene, "common");
}

TEST_F(PluginMetadataTest, PayloadSizeCountsValuesOfTheEntryType) {
  // Four int32 values hold the AWB word at byte 12; 25 floats hold the AEC one at 96.
  auto meta = std::make_shared<VyMetadata>();
  const uint32_t awb[4] = {1, 2, 3, 7200};
  meta->update(hostsim::kTagAwbFrameControl, TYPE_INT32, awb, 4);
  float aec[25] = {};
  aec[24] = 880.25f;
  meta->update(hostsim::kTagAecFrameControl, TYPE_FLOAT, aec, 25);
  vyalgo2::ImageParams image;
  image.pMetadata = meta;
  plugin->fillMetaDataInfo(image);
  EXPECT_EQ(info().cct, 7200);
  EXPECT_EQ(info().lux, 880);
}

TEST_F(PluginMetadataTest, ImageNameOutlivesItsMetadata) {
  FrameTags named;
  named.imageName = "IMG_0777";
  read(named);  // the metadata is freed when read() returns
  read(FrameTags{});
  EXPECT_EQ(Access::imageName(*plugin), "IMG_0777");
  // A name without its terminating NUL stops at the payload's end.
  auto meta = std::make_shared<VyMetadata>();
  meta->update(hostsim::kTagSnapshotImageName, TYPE_BYTE, "IMG_9999XYZ", 8);
  vyalgo2::ImageParams image;
  image.pMetadata = meta;
  plugin->fillMetaDataInfo(image);
  EXPECT_EQ(Access::imageName(*plugin), "IMG_9999");
}

TEST(PluginFrameMetadata, ReadPayloadChecksOffsetPlusWidth) {
  const uint8_t bytes[8] = {1, 2, 3, 4, 5, 6, 7, 8};
  camera_metadata_ro_entry_t entry{};
  entry.type = TYPE_BYTE;
  entry.count = 8;
  entry.data.u8 = bytes;
  uint32_t v = 0;
  EXPECT_TRUE(lumo::readU32(entry, 4, v));
  EXPECT_EQ(v, 0x08070605u);
  EXPECT_FALSE(lumo::readU32(entry, 5, v));
  EXPECT_FALSE(lumo::readU32(entry, 9, v));
  entry.type = 99;  // unknown type: no payload size, nothing read
  EXPECT_FALSE(lumo::readU32(entry, 0, v));
  entry.type = TYPE_INT32;
  entry.count = 0;
  EXPECT_FALSE(lumo::readU32(entry, 0, v));
}

}  // namespace
