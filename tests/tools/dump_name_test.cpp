// Geometry and format read from raw dump names, in both naming styles.
#include "dump_name.h"

#include <gtest/gtest.h>

using namespace lumo;

TEST(DumpName, ReadsBothNamingStylesAndIgnoresNamesWithoutGeometry) {
  struct Case {
    const char* name;
    uint32_t w, h, stride, scanline;  // w 0: no geometry in the name
    std::optional<PixelFormat> format;
  } cases[] = {
      {"IMG_0001_[lumofilter]_OfflineSnapshot_frame[7]_input_4000x3000_4032.nv21", 4000, 3000, 4032,
       0, PixelFormat::Nv21},
      {"/tmp/a_b/out_1920x1080_1920_1088.nv12", 1920, 1080, 1920, 1088, PixelFormat::Nv12},
      {"cap_width_640_height_480_stride_704_scanline_512.yuv", 640, 480, 704, 512, std::nullopt},
      {"cap_nv12_width_64_height_48_stride_64.raw", 64, 48, 64, 0, PixelFormat::Nv12},
      {"frame_RGBA_32x16.bin", 32, 16, 0, 0, PixelFormat::Rgba},
      {"Width_8_Height_6.rgba", 8, 6, 0, 0, PixelFormat::Rgba},
      {"photo.jpg", 0, 0, 0, 0, {}},
      {"frame_12.nv21", 0, 0, 0, 0, {}},
      {"4000x3000_dir/plain.nv21", 0, 0, 0, 0, {}},  // folders do not count
      {"x_4000x3000_4032_trailing.nv21", 0, 0, 0, 0, {}},
      {"a_12345678901x5.nv21", 0, 0, 0, 0, {}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    const auto g = geometryFromName(c.name);
    ASSERT_EQ(g.has_value(), c.w != 0);
    if (!g) continue;
    EXPECT_EQ(g->width, c.w);
    EXPECT_EQ(g->height, c.h);
    EXPECT_EQ(g->stride, c.stride);
    EXPECT_EQ(g->scanline, c.scanline);
    EXPECT_EQ(g->format, c.format);
  }
  // Format words count only when they stand alone; the extension's case does not matter.
  EXPECT_EQ(formatFromName("a_nv21_b.bin"), PixelFormat::Nv21);
  EXPECT_EQ(formatFromName("anv21.bin"), std::nullopt);
  EXPECT_EQ(formatFromName("x.NV12"), PixelFormat::Nv12);
}
