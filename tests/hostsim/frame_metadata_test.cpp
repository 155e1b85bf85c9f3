// Frame conditions land in the metadata entries, at the byte offsets the
// camera consumers read, and come back out.
#include <gtest/gtest.h>
#include <hostsim/frame_metadata.h>
#include <system/camera_metadata_tags.h>

#include <cstring>
#include <tuple>
#include <vector>

namespace {

auto fields(const hostsim::FrameConditions& c) {
  return std::tie(c.cct, c.luxIndex, c.aiScene, c.faceValues, c.zoomRatio, c.imageName,
                  c.stylizationType);
}

TEST(FrameMetadata, FieldsLandWhereConsumersReadThem) {
  hostsim::FrameConditions c;
  c.cct = 70000;
  c.luxIndex = 412.9f;
  c.aiScene = 0xFFFFFFFFu;
  c.faceValues = hostsim::faceRectangles({{1, 2, 3, 4}, {5, 6, 7, 8}});
  c.zoomRatio = 1.5f;
  c.imageName = "IMG_0001";
  c.stylizationType = 3;
  auto m = hostsim::makeFrameMetadata(c);
  EXPECT_EQ(m->entryCount(), 7u);

  auto awb = m->find("com.qti.stats.internal.perFrame.frameControl.AWBFrameControl");
  ASSERT_GE(awb.count, 16u);
  // 70000 = 0x00011170, little-endian from byte 12.
  EXPECT_EQ(std::vector<uint8_t>(awb.data.u8 + 11, awb.data.u8 + 16),
            (std::vector<uint8_t>{0, 0x70, 0x11, 0x01, 0x00}));

  auto aec = m->find("com.qti.stats.internal.perFrame.frameControl.AECFrameControl");
  ASSERT_GE(aec.count, 100u);
  float lux;
  std::memcpy(&lux, aec.data.u8 + 96, 4);
  EXPECT_EQ(lux, 412.9f);

  auto scene = m->find("zentor.ai.asd.algoSceneDetectedAIResult");
  ASSERT_EQ(scene.count, 1u);
  uint32_t id;
  std::memcpy(&id, scene.data.u8, 4);
  EXPECT_EQ(id, 0xFFFFFFFFu);

  auto faces = m->find(uint32_t{ANDROID_STATISTICS_FACE_RECTANGLES});
  ASSERT_EQ(faces.count, 8u);
  EXPECT_EQ(faces.data.i32[4], 5);
  EXPECT_EQ(faces.data.i32[7], 8);

  EXPECT_EQ(m->find(uint32_t{ANDROID_CONTROL_ZOOM_RATIO}).data.f[0], 1.5f);
  EXPECT_STREQ(reinterpret_cast<const char*>(m->find("zentor.snapshot.imageName").data.u8),
               "IMG_0001");
  EXPECT_EQ(m->find("com.zentor.sessionparams.stylizationType").data.u8[0], 3);

  EXPECT_TRUE(fields(hostsim::readFrameConditions(*m)) == fields(c));
}

TEST(FrameMetadata, AbsentFieldsStayAbsent) {
  hostsim::FrameConditions c;
  c.faceValues = std::vector<int32_t>{9, 9, 9};  // an incomplete rectangle is still written
  auto m = hostsim::makeFrameMetadata(c);
  EXPECT_EQ(m->entryCount(), 1u);
  EXPECT_TRUE(fields(hostsim::readFrameConditions(*m)) == fields(c));
  // A record too short for the word is not read.
  const uint8_t shortRecord[8] = {};
  m->update("com.qti.stats.internal.perFrame.frameControl.AWBFrameControl", TYPE_BYTE, shortRecord,
            8);
  EXPECT_FALSE(hostsim::readFrameConditions(*m).cct);
}

}  // namespace
