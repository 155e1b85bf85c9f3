// Camera metadata: entries by vendor tag name and by number, absent tags,
// counts, updates and erasure; frame conditions written and read back.
#include <gtest/gtest.h>
#include <hostsim/frame_metadata.h>
#include <system/camera_metadata_tags.h>
#include <vyalgo2/VyMetadata.h>

#include <cstring>
#include <tuple>

namespace {

TEST(VyMetadata, AbsentTagsAndVendorTagNumbers) {
  VyMetadata m1, m2;
  for (const auto& e :
       {m1.find("org.example.never.registered.anywhere"),
        m1.find(uint32_t{ANDROID_CONTROL_ZOOM_RATIO}), m1.find(static_cast<const char*>(nullptr))})
    EXPECT_TRUE(e.count == 0 && e.data.u8 == nullptr);
  // Looking a name up does not give it a number: the next two names get consecutive ones.
  const uint32_t a = VyMetadata::vendorTagId("org.example.a");
  m1.find("org.example.probe.between");
  const uint32_t b = VyMetadata::vendorTagId("org.example.b");
  EXPECT_GE(a, 0x80000000u);  // above the standard range
  EXPECT_EQ(std::make_tuple(b, VyMetadata::vendorTagId("org.example.a"),
                            VyMetadata::vendorTagName(b), VyMetadata::vendorTagName(0x1002F)),
            std::make_tuple(a + 1, a, "org.example.b", ""));
  // The same entry is reached by its number, in this object only.
  const int32_t v = 7;
  ASSERT_EQ(m1.update("org.example.a", TYPE_INT32, &v, 1), 0);
  EXPECT_EQ(std::make_tuple(m1.find(a).count, m1.find(a).data.i32[0]), std::make_tuple(1u, 7));
  EXPECT_EQ(m2.find("org.example.a").count, 0u);
}

TEST(VyMetadata, TypedEntriesUpdatesErasureCopiesAndRefusals) {
  const char name[] = "IMG_0001";
  const int32_t faces[8] = {10, 20, 110, 220, 30, 40, 130, 240};
  const int64_t wide[2] = {-1, int64_t{1} << 40};
  const camera_metadata_rational_t ratio{3, 4};
  // Key, type, values, their count and the size of one.
  const std::tuple<const char*, uint8_t, const void*, size_t, size_t> cases[] = {
      {"org.example.name", TYPE_BYTE, name, 9, 1},
      {"org.example.faces", TYPE_INT32, faces, 8, 4},
      {"org.example.wide", TYPE_INT64, wide, 2, 8},
      {"org.example.ratio", TYPE_RATIONAL, &ratio, 1, 8}};
  VyMetadata m;
  for (const auto& [key, type, values, count, size] : cases) {
    ASSERT_EQ(m.update(key, type, values, count), 0);
    const auto e = m.find(key);
    EXPECT_EQ(std::make_tuple(e.type, e.count), std::make_tuple(type, count)) << key;
    EXPECT_EQ(std::memcmp(e.data.u8, values, count * size), 0) << key;
  }
  EXPECT_EQ(m.entryCount(), 4u);
  // An update replaces the entry; a copy keeps its own.
  VyMetadata copy(m);
  const uint8_t two[2] = {5, 6};
  ASSERT_EQ(m.update("org.example.name", TYPE_BYTE, two, 2), 0);
  const auto replaced = m.find("org.example.name");
  EXPECT_EQ(std::string(replaced.data.u8, replaced.data.u8 + replaced.count), "\x05\x06");
  EXPECT_STREQ(reinterpret_cast<const char*>(copy.find("org.example.name").data.u8), name);
  EXPECT_EQ(m.erase("org.example.name"), 0);
  EXPECT_EQ(m.find("org.example.name").count, 0u);
  EXPECT_EQ(m.erase("org.example.name") + m.erase(uint32_t{0x1002F}), -2);
  copy = m;
  EXPECT_EQ(copy.entryCount(), 3u);
  // Unknown types, missing data and empty names are refused; an empty entry has no values.
  const int32_t v = 1;
  EXPECT_EQ(std::make_tuple(m.update("org.example.bad", NUM_TYPES, &v, 1),
                            m.update(uint32_t{5}, 200, &v, 1),
                            m.update(uint32_t{5}, TYPE_INT32, nullptr, 1),
                            m.update("", TYPE_INT32, &v, 1), m.entryCount()),
            std::make_tuple(-1, -1, -1, -1, 3u));
  EXPECT_EQ(m.update(uint32_t{5}, TYPE_INT32, nullptr, 0), 0);
  EXPECT_EQ(std::make_tuple(m.entryCount(), m.find(uint32_t{5}).count), std::make_tuple(4u, 0u));
}

auto fields(const hostsim::FrameConditions& c) {
  return std::tie(c.cct, c.luxIndex, c.aiScene, c.faceValues, c.zoomRatio, c.imageName,
                  c.stylizationType);
}

TEST(FrameMetadata, FieldsReadBackAsWritten) {
  const hostsim::FrameConditions c{
      70000,      412.9f, 0xFFFFFFFFu, hostsim::faceRectangles({{1, 2, 3, 4}, {5, 6, 7, 8}}), 1.5f,
      "IMG_0001", 3};
  auto m = hostsim::makeFrameMetadata(c);
  EXPECT_EQ(m->entryCount(), 7u);
  // Where the plugin reads each field is checked by the plugin's own tests.
  EXPECT_TRUE(fields(hostsim::readFrameConditions(*m)) == fields(c));

  // Absent fields stay absent; an incomplete face rectangle is still written.
  hostsim::FrameConditions partial;
  partial.faceValues = std::vector<int32_t>{9, 9, 9};
  m = hostsim::makeFrameMetadata(partial);
  EXPECT_EQ(m->entryCount(), 1u);
  EXPECT_TRUE(fields(hostsim::readFrameConditions(*m)) == fields(partial));
  // A record too short for the word is not read.
  const uint8_t shortRecord[8] = {};
  m->update("com.qti.stats.internal.perFrame.frameControl.AWBFrameControl", TYPE_BYTE, shortRecord,
            8);
  EXPECT_FALSE(hostsim::readFrameConditions(*m).cct);
}

}  // namespace
