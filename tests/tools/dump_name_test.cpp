// Geometry and format read from raw dump names, in both naming styles.
#include "dump_name.h"

#include <gtest/gtest.h>

using namespace lumo;

TEST(DumpName, ReadsBothNamingStyles) {
  struct Case {
    const char* name;
    uint32_t w, h, stride, scanline;
    std::optional<PixelFormat> format;
  } cases[] = {
      {"IMG_0001_[lumofilter]_OfflineSnapshot_frame[7]_input_4000x3000_4032.nv21", 4000, 3000, 4032,
       0, PixelFormat::Nv21},
      {"/tmp/a_b/out_1920x1080_1920_1088.nv12", 1920, 1080, 1920, 1088, PixelFormat::Nv12},
      {"cap_width_640_height_480_stride_704_scanline_512.yuv", 640, 480, 704, 512, std::nullopt},
      {"cap_nv12_width_64_height_48_stride_64.raw", 64, 48, 64, 0, PixelFormat::Nv12},
      {"frame_RGBA_32x16.bin", 32, 16, 0, 0, PixelFormat::Rgba},
      {"Width_8_Height_6.rgba", 8, 6, 0, 0, PixelFormat::Rgba},
  };
  for (const auto& c : cases) {
    const auto g = geometryFromName(c.name);
    ASSERT_TRUE(g.has_value()) << c.name;
    EXPECT_EQ(g->width, c.w) << c.name;
    EXPECT_EQ(g->height, c.h) << c.name;
    EXPECT_EQ(g->stride, c.stride) << c.name;
    EXPECT_EQ(g->scanline, c.scanline) << c.name;
    EXPECT_EQ(g->format, c.format) << c.name;
  }
}

TEST(DumpName, IgnoresNamesWithoutGeometry) {
  for (const char* name : {"photo.jpg", "frame_12.nv21", "4000x3000_dir/plain.nv21",
                           "x_4000x3000_4032_trailing.nv21", "a_12345678901x5.nv21"}) {
    EXPECT_FALSE(geometryFromName(name).has_value()) << name;
  }
}

TEST(DumpName, FormatWordsMustStandAlone) {
  EXPECT_EQ(formatFromName("a_nv21_b.bin"), PixelFormat::Nv21);
  EXPECT_EQ(formatFromName("anv21.bin"), std::nullopt);
  EXPECT_EQ(formatFromName("x.NV12"), PixelFormat::Nv12);
}
