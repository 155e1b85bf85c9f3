// Camera metadata: entries by vendor tag name and by number, absent tags,
// counts, updates and erasure.
#include <gtest/gtest.h>
#include <system/camera_metadata_tags.h>
#include <vyalgo2/VyMetadata.h>

#include <cstring>

namespace {

TEST(VyMetadata, AbsentTagsHaveNoCountAndNoData) {
  VyMetadata m;
  const camera_metadata_ro_entry_t byName = m.find("org.example.never.registered.anywhere");
  const camera_metadata_ro_entry_t byNumber = m.find(uint32_t{ANDROID_CONTROL_ZOOM_RATIO});
  const camera_metadata_ro_entry_t nullName = m.find(static_cast<const char*>(nullptr));
  for (const auto& e : {byName, byNumber, nullName}) {
    EXPECT_EQ(e.count, 0u);
    EXPECT_EQ(e.data.u8, nullptr);
  }
  EXPECT_EQ(m.entryCount(), 0u);
  // Looking a name up does not give it a number: the next two names
  // registered get consecutive ones.
  const uint32_t before = VyMetadata::vendorTagId("org.example.probe.before");
  m.find("org.example.probe.between");
  EXPECT_EQ(VyMetadata::vendorTagId("org.example.probe.after"), before + 1);
}

TEST(VyMetadata, VendorTagsShareProcessWideNumbersAboveTheStandardRange) {
  const uint32_t a = VyMetadata::vendorTagId("org.example.a");
  const uint32_t b = VyMetadata::vendorTagId("org.example.b");
  EXPECT_GE(a, 0x80000000u);
  EXPECT_GE(b, 0x80000000u);
  EXPECT_NE(a, b);
  EXPECT_EQ(VyMetadata::vendorTagId("org.example.a"), a);
  EXPECT_EQ(VyMetadata::vendorTagName(b), "org.example.b");
  EXPECT_EQ(VyMetadata::vendorTagName(0x1002F), "");

  VyMetadata m1, m2;
  const int32_t v = 7;
  ASSERT_EQ(m1.update("org.example.a", TYPE_INT32, &v, 1), 0);
  // The same entry is reached by its number, in this object only.
  EXPECT_EQ(m1.find(a).count, 1u);
  EXPECT_EQ(m1.find(a).data.i32[0], 7);
  EXPECT_EQ(m2.find("org.example.a").count, 0u);
}

TEST(VyMetadata, TypedEntriesKeepTheirValuesAndCounts) {
  VyMetadata m;
  const int32_t faces[8] = {10, 20, 110, 220, 30, 40, 130, 240};
  const float zoom = 2.5f;
  const char name[] = "IMG_0001";
  const int64_t wide[2] = {-1, int64_t{1} << 40};
  const double precise = 0.1;
  const camera_metadata_rational_t ratio{3, 4};
  ASSERT_EQ(m.update(uint32_t{ANDROID_STATISTICS_FACE_RECTANGLES}, TYPE_INT32, faces, 8), 0);
  ASSERT_EQ(m.update(uint32_t{ANDROID_CONTROL_ZOOM_RATIO}, TYPE_FLOAT, &zoom, 1), 0);
  ASSERT_EQ(m.update("org.example.name", TYPE_BYTE, name, sizeof(name)), 0);
  ASSERT_EQ(m.update("org.example.wide", TYPE_INT64, wide, 2), 0);
  ASSERT_EQ(m.update("org.example.double", TYPE_DOUBLE, &precise, 1), 0);
  ASSERT_EQ(m.update("org.example.ratio", TYPE_RATIONAL, &ratio, 1), 0);
  EXPECT_EQ(m.entryCount(), 6u);

  auto f = m.find(uint32_t{ANDROID_STATISTICS_FACE_RECTANGLES});
  EXPECT_EQ(f.count, 8u);
  EXPECT_EQ(f.type, TYPE_INT32);
  EXPECT_EQ(f.tag, 0x110006u);
  EXPECT_EQ(f.data.i32[6], 130);
  EXPECT_FLOAT_EQ(m.find(uint32_t{ANDROID_CONTROL_ZOOM_RATIO}).data.f[0], 2.5f);
  auto n = m.find("org.example.name");
  EXPECT_EQ(n.count, 9u);
  EXPECT_STREQ(reinterpret_cast<const char*>(n.data.u8), "IMG_0001");
  EXPECT_EQ(m.find("org.example.wide").data.i64[1], int64_t{1} << 40);
  EXPECT_DOUBLE_EQ(m.find("org.example.double").data.d[0], 0.1);
  EXPECT_EQ(m.find("org.example.ratio").data.r[0].denominator, 4);
}

TEST(VyMetadata, UpdateReplacesEraseRemovesCopiesAreIndependent) {
  VyMetadata m;
  const uint8_t one = 1, two[2] = {5, 6};
  ASSERT_EQ(m.update("org.example.style", TYPE_BYTE, &one, 1), 0);
  VyMetadata copy(m);
  ASSERT_EQ(m.update("org.example.style", TYPE_BYTE, two, 2), 0);
  EXPECT_EQ(m.find("org.example.style").count, 2u);
  EXPECT_EQ(m.find("org.example.style").data.u8[1], 6);
  EXPECT_EQ(copy.find("org.example.style").count, 1u);
  EXPECT_EQ(copy.find("org.example.style").data.u8[0], 1);

  EXPECT_EQ(m.erase("org.example.style"), 0);
  EXPECT_EQ(m.find("org.example.style").count, 0u);
  EXPECT_EQ(m.erase("org.example.style"), -1);
  EXPECT_EQ(m.erase(uint32_t{0x1002F}), -1);
  copy = m;
  EXPECT_EQ(copy.entryCount(), 0u);
}

TEST(VyMetadata, RejectsUnknownTypesAndMissingData) {
  VyMetadata m;
  const int32_t v = 1;
  EXPECT_EQ(m.update("org.example.bad", NUM_TYPES, &v, 1), -1);
  EXPECT_EQ(m.update(uint32_t{5}, 200, &v, 1), -1);
  EXPECT_EQ(m.update(uint32_t{5}, TYPE_INT32, nullptr, 1), -1);
  EXPECT_EQ(m.update("", TYPE_INT32, &v, 1), -1);
  EXPECT_EQ(m.entryCount(), 0u);
  // An empty entry is present but has no values.
  EXPECT_EQ(m.update(uint32_t{5}, TYPE_INT32, nullptr, 0), 0);
  EXPECT_EQ(m.entryCount(), 1u);
  EXPECT_EQ(m.find(uint32_t{5}).count, 0u);
}

}  // namespace
