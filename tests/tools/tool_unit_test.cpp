// The tool's pieces. Image files and conversions: round trips through PNG,
// JPEG and raw dumps, geometry from dump names, checks on raw data, full-range
// BT.601. Text it reads: session lines (float spellings, scene names, raw tag
// payloads; bad lines are checked through the tool) and the plugin's
// parameter dumps.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <system/camera_metadata.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <thread>

// jpeglib.h needs size_t and FILE declared before it.
#include <jpeglib.h>

#include "atomic_file.h"
#include "declared_size.h"
#include "dump_name.h"
#include "exif_dump.h"
#include "failure.h"
#include "image_files.h"
#include "progress.h"
#include "session.h"
#include "tool_runner.h"
#include "yuv_convert.h"

using namespace lumo;
using lumo_test::declaringSize;
using lumo_test::ScratchTest;
namespace fs = std::filesystem;

namespace {

SessionFrame withMeta(const std::string& meta) {
  return parseFrameLine(R"({"instance": "preview", "meta": {)" + meta + "}}", "s.jsonl", 4);
}

// Smooth in every channel, so JPEG stays close; alpha varies too.
Image gradient(uint32_t w, uint32_t h, uint32_t stride = 0) {
  Image img = makeImage({PixelFormat::RGBA, w, h, stride, 0});
  for (uint32_t y = 0; y < h; ++y)
    for (uint32_t i = 0; i < 4 * w; ++i)
      img.row(y)[i] = uint8_t(i % 4 == 3 ? 200 + i / 4 : i / 4 * 2 + y * 3 * (i % 4));
  return img;
}

// A flat 16x16 CMYK JPEG (as YCCK when asked) of inks stored inverted, 255
// meaning none, with the Adobe marker, as Photoshop writes them.
void writeCmykJpeg(const std::string& path, const std::array<uint8_t, 4>& inks, bool ycck) {
  jpeg_compress_struct info;
  jpeg_error_mgr err;
  info.err = jpeg_std_error(&err);
  jpeg_create_compress(&info);
  std::FILE* f = std::fopen(path.c_str(), "wb");
  jpeg_stdio_dest(&info, f);
  info.image_width = info.image_height = 16;
  info.input_components = 4;
  info.in_color_space = JCS_CMYK;
  jpeg_set_defaults(&info);
  jpeg_set_colorspace(&info, ycck ? JCS_YCCK : JCS_CMYK);
  jpeg_set_quality(&info, 95, TRUE);
  jpeg_start_compress(&info, TRUE);
  std::vector<uint8_t> row;
  for (int x = 0; x < 16; ++x)
    for (uint8_t ink : inks) row.push_back(uint8_t(255 - ink));
  while (info.next_scanline < 16) {
    JSAMPROW r = row.data();
    jpeg_write_scanlines(&info, &r, 1);
  }
  jpeg_finish_compress(&info);
  jpeg_destroy_compress(&info);
  std::fclose(f);
}

}  // namespace

class ImageIo : public ScratchTest {};

// CMYK and YCCK JPEGs read as the RGB their inks print.
TEST_F(ImageIo, CmykJpegsDecodeToRgb) {
  const struct {
    std::array<uint8_t, 4> inks;  // C, M, Y, K
    bool ycck;
    std::array<int, 3> rgb;
  } cases[] = {
      {{0, 255, 255, 0}, false, {255, 0, 0}},
      {{0, 0, 0, 128}, false, {127, 127, 127}},
      {{255, 0, 0, 0}, true, {0, 255, 255}},
      {{0, 0, 128, 64}, true, {191, 191, 95}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.ycck ? "ycck" : "cmyk");
    writeCmykJpeg(path("c.jpg"), c.inks, c.ycck);
    const Image got = readImage(path("c.jpg"));
    ASSERT_EQ(got.geometry.width, 16u);
    for (int k = 0; k < 3; ++k) EXPECT_NEAR(got.row(8)[4 * 8 + k], c.rgb[k], 3) << k;
    EXPECT_EQ(got.row(8)[4 * 8 + 3], 255);
  }
}

// PNG keeps every RGBA byte (padding dropped), and opaque pictures, written
// without alpha, read back the same at either compression; JPEG stays close
// and is opaque.
TEST_F(ImageIo, PngIsExactAndJpegIsClose) {
  Image opaque = gradient(19, 7, 24);
  for (uint32_t y = 0; y < 7; ++y)
    for (uint32_t x = 0; x < 19; ++x) opaque.row(y)[4 * x + 3] = 255;
  for (PngCompression c : {PngCompression::Smallest, PngCompression::Fast}) {
    setPngCompression(c);
    writeImage(path("o.png"), opaque);
    const Image back = readImage(path("o.png"));
    ASSERT_EQ(back.geometry.width, 19u);
    for (uint32_t y = 0; y < 7; ++y) EXPECT_EQ(0, std::memcmp(back.row(y), opaque.row(y), 19 * 4));
  }
  const Image in = gradient(37, 21, 40);
  writeImage(path("g.png"), in);
  writeImage(path("g.jpg"), in, 98);
  const Image png = readImage(path("g.png")), jpg = readImage(path("g.jpg"));
  ASSERT_EQ(png.geometry.width, 37u);
  ASSERT_EQ(png.geometry.height, 21u);
  EXPECT_EQ(png.geometry.stride, 37u);
  ASSERT_EQ(jpg.geometry.width, 37u);
  double err = 0;
  for (uint32_t y = 0; y < 21; ++y) {
    ASSERT_EQ(0, std::memcmp(png.row(y), in.row(y), 37 * 4)) << "row " << y;
    for (uint32_t x = 0; x < 37; ++x) {
      for (int c = 0; c < 3; ++c) err += std::abs(jpg.row(y)[4 * x + c] - in.row(y)[4 * x + c]);
      EXPECT_EQ(jpg.row(y)[4 * x + 3], 255);
    }
  }
  EXPECT_LT(err / (37 * 21 * 3), 4.0);
}

// Errors name the file first; raw data must fit its geometry.
TEST_F(ImageIo, ReadsAcceptOnlyWhatTheDataSupports) {
  // A 6x3 NV12 with scanline 6 may keep its chroma padding rows or stop at the last used one.
  // name, size (-1: no such file), text of the error (nullptr: accepted)
  const std::tuple<std::string, long, const char*> cases[] = {
      {"a_6x4_8.nv21", 8 * 4 + 8 * 2, nullptr},
      {"b_6x3_8_6.nv12", 8 * 6 + 8 * 3, nullptr},
      {"c_6x3_8_6.nv12", 8 * 6 + 8 * 2, nullptr},
      {"d_6x4_8.nv21", 8 * 4 + 8 * 2 + 1, "bytes do not match"},
      {"e_6x4_8.rgba", 8 * 4 * 4, nullptr},
      {"f_6x4_8.rgba", 6 * 4 * 4, "bytes do not match"},
      {"broken.png", 100, ""},
      {"broken.jpg", 100, ""},
      {"nosize.nv21", 96, ""},
      {"missing.png", -1, ""}};
  for (const auto& [name, bytes, error] : cases) {
    SCOPED_TRACE(name);
    if (bytes >= 0) write(name, std::string(size_t(bytes), '\7'));
    try {
      readImage(path(name));
      EXPECT_EQ(error, nullptr) << "accepted";
    } catch (const Failure& e) {
      ASSERT_NE(error, nullptr) << e.what();
      EXPECT_EQ(std::string(e.what()).rfind(path(name), 0), 0u) << e.what();
      EXPECT_NE(std::string(e.what()).find(error), std::string::npos) << e.what();
    }
  }
}

// A picture's header is checked before anything of its size is allocated:
// the side limit, and whether the file can hold that many pixels at all.
TEST_F(ImageIo, DeclaredSizesAreCheckedBeforeDecoding) {
  const struct {
    const char* name;
    uint32_t width, height;
    const char* error;
  } cases[] = {
      {"big.png", 23000, 23000, "unusable PNG size: 23000x23000 is above the 16384 pixel limit"},
      {"big.jpg", 23000, 23000, "unusable JPEG size: 23000x23000 is above the 16384 pixel limit"},
      {"hollow.png", 16000, 16000,
       "truncated PNG: 16000x16000 pixels need at least 744201 bytes of compressed data"},
      {"hollow.jpg", 16000, 16000,
       "truncated JPEG: 16000x16000 pixels need at least 1500000 bytes of scan data"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    declaringSize(path(c.name), c.width, c.height);
    const PictureSize size = pictureSize(path(c.name));
    EXPECT_EQ(size.width, c.width);
    EXPECT_EQ(size.height, c.height);
    try {
      readImage(path(c.name));
      ADD_FAILURE() << "decoded";
    } catch (const Failure& e) {
      EXPECT_EQ(std::string(e.what()).rfind(path(c.name) + ": " + c.error, 0), 0u) << e.what();
    }
  }
}

// An even-sized YUV image goes to JPEG as its own planes and, asked for in
// its own layout, comes back without a trip through RGB; either way it stays
// within a few code values of what went in (sizes off the 16-pixel MCU grid,
// padded strides).
TEST_F(ImageIo, YuvJpegRoundTripsThroughItsOwnPlanes) {
  const struct {
    PixelFormat format;
    uint32_t width, height, stride;
  } cases[] = {{PixelFormat::NV21, 32, 16, 0},
               {PixelFormat::NV12, 34, 18, 40},
               {PixelFormat::NV21, 6, 4, 8}};
  for (const auto& c : cases) {
    SCOPED_TRACE(std::string(formatName(c.format)) + " " + std::to_string(c.width));
    const Image in = convertImage(gradient(c.width, c.height), c.format, c.stride);
    writeImage(path("y.jpg"), in, 100);
    const Image yuv = readImage(path("y.jpg"), {}, c.format), rgba = readImage(path("y.jpg"));
    ASSERT_EQ(yuv.geometry.format, c.format);
    ASSERT_EQ(rgba.geometry.format, PixelFormat::RGBA);
    const Image expected = convertImage(in, PixelFormat::RGBA);
    int worstYuv = 0, worstRgb = 0;
    for (uint32_t y = 0; y < c.height; ++y)
      for (uint32_t x = 0; x < c.width; ++x) {
        worstYuv = std::max(worstYuv, std::abs(yuv.row(y)[x] - in.row(y)[x]));
        if (y % 2 == 0)
          worstYuv = std::max(worstYuv, std::abs(yuv.chromaRow(y / 2)[x] - in.chromaRow(y / 2)[x]));
        for (int k = 0; k < 3; ++k)
          worstRgb =
              std::max(worstRgb, std::abs(rgba.row(y)[4 * x + k] - expected.row(y)[4 * x + k]));
      }
    EXPECT_LE(worstYuv, 2);
    EXPECT_LE(worstRgb, 6);  // libjpeg's own chroma upsampling against whole-block chroma
  }
}

// A raw name says the format written; NV12 and NV21 differ in chroma order only.
TEST_F(ImageIo, RawWriteConvertsToTheFormatItsNameSays) {
  writeImage(path("x_6x4_6.nv12"), gradient(6, 4));
  const Image nv12 = readImage(path("x_6x4_6.nv12")), nv21 = convertImage(nv12, PixelFormat::NV21);
  EXPECT_EQ(fs::file_size(path("x_6x4_6.nv12")), 6u * 4 + 6 * 2);
  EXPECT_EQ(nv21.chromaRow(1)[2], nv12.chromaRow(1)[3]);
  EXPECT_EQ(nv21.chromaRow(1)[3], nv12.chromaRow(1)[2]);
  EXPECT_THROW(writeImage(path("nodir/x.png"), nv12), Failure);
}

// Writer threads commit side by side without touching the process umask, and
// every file gets the permissions the umask gives, synced or not.
TEST_F(ImageIo, ConcurrentCommitsKeepTheUmaskAndTheModes) {
  const mode_t mask = ::umask(0);
  ::umask(mask);
  ASSERT_EQ(startupUmask(), mask);
  std::vector<std::thread> writers;
  for (Durability d :
       {Durability::visible, Durability::visible, Durability::visible, Durability::sync})
    writers.emplace_back([&, d, t = writers.size()] {
      for (int i = 0; i < (d == Durability::sync ? 20 : 1000); ++i)
        writeFileAtomically(path("w" + std::to_string(t) + "_" + std::to_string(i)), "x", 1, d);
    });
  for (std::thread& w : writers) w.join();
  const mode_t now = ::umask(mask);
  EXPECT_EQ(now, mask);
  int files = 0;
  for (const fs::directory_entry& e : fs::directory_iterator(dir)) {
    ++files;
    EXPECT_EQ(fs::status(e).permissions(), fs::perms(0666 & ~mask)) << e.path();
  }
  EXPECT_EQ(files, 3020);
}

// A raw dump's bytes land unchanged at every size the frame memory serves
// from the heap or from whole mappings; a tight dump's missing chroma rows
// come back neutral, and new images start blank, on reused memory too.
TEST_F(ImageIo, RawDumpsReadBackExactlyWithNeutralMissingRows) {
  struct Case {
    uint32_t width, height, scanline;
    bool tight;
  } cases[] = {
      {6, 4, 0, false}, {64, 10, 12, true}, {1024, 720, 0, false}, {4000, 3000, 3008, true}};
  for (const Case& c : cases) {
    const Geometry g{PixelFormat::NV21, c.width, c.height, c.width,
                     c.scanline ? c.scanline : c.height};
    const size_t full = bufferBytes(g);
    const size_t size = c.tight ? chromaOffset(g) + size_t(g.stride) * (c.height / 2) : full;
    std::string bytes(size, '\0');
    for (size_t i = 0; i < size; ++i) bytes[i] = char(i * 2654435761u >> 13);
    const std::string name = "d_" + std::to_string(c.width) + "x" + std::to_string(c.height) + "_" +
                             std::to_string(c.width) + "_" + std::to_string(g.scanline) + ".nv21";
    write(name, bytes);
    const Image image = readImage(path(name));
    SCOPED_TRACE(name);
    ASSERT_EQ(image.bytes.size(), full);
    EXPECT_EQ(std::memcmp(image.bytes.data(), bytes.data(), size), 0);
    EXPECT_EQ(std::count(image.bytes.begin() + std::ptrdiff_t(size), image.bytes.end(), 128),
              std::ptrdiff_t(full - size));
    EXPECT_TRUE(Image(image).bytes == image.bytes);
    // Memory handed back by an earlier frame is cleared before it serves again.
    makeImage(g).bytes.assign(full, 0xEE);
    const Image blank = makeImage(g);
    EXPECT_EQ(
        std::count(blank.bytes.begin(), blank.bytes.begin() + std::ptrdiff_t(chromaOffset(g)), 0),
        std::ptrdiff_t(chromaOffset(g)));
  }
}

// Full-range BT.601 as JFIF defines it, worked out by hand: Y per pixel, chroma
// the rounded mean over the pixels a sample covers (one at an odd edge), clamped.
TEST(YuvConvert, ReferenceFollowsJfifOnKnownColours) {
  const uint8_t rgb[9][3] = {{255, 0, 0}, {0, 0, 255}, {255, 255, 255}, {0, 0, 0},  {255, 0, 0},
                             {255, 0, 0}, {0, 0, 255}, {0, 0, 255},     {0, 255, 0}};
  const uint8_t y[9] = {76, 29, 255, 0, 76, 76, 29, 29, 150};
  // red+blue: U 84.972 and 255.5 average 170.236; V 255.5 and 107.265 average 181.383.
  const uint8_t u[5] = {170, 128, 85, 255, 44}, v[5] = {181, 128, 255, 107, 21};
  Image rgba = makeImage({PixelFormat::RGBA, 9, 1, 0, 0});
  for (int x = 0; x < 9; ++x) std::memcpy(rgba.row(0) + 4 * x, rgb[x], 3);
  for (PixelFormat f : {PixelFormat::NV12, PixelFormat::NV21}) {
    Image yuv = makeImage({f, 9, 1, 10, 0});
    rgbaToYuvReference(rgba, yuv);
    const int uAt = f == PixelFormat::NV12 ? 0 : 1;  // NV21 stores V first
    for (int x = 0; x < 9; ++x) EXPECT_EQ(yuv.row(0)[x], y[x]) << formatName(f) << " x " << x;
    for (int i = 0; i < 5; ++i) {
      EXPECT_EQ(yuv.chromaRow(0)[2 * i + uAt], u[i]) << formatName(f) << " sample " << i;
      EXPECT_EQ(yuv.chromaRow(0)[2 * i + 1 - uAt], v[i]) << formatName(f) << " sample " << i;
    }
  }
}

// libyuv's fixed-point JPEG-matrix kernels against the double-precision
// reference, both ways, on random bytes with odd sizes and padded rows.
TEST(YuvConvert, FastPathsAgreeWithTheReferenceWithinTwoCodeValues) {
  using Convert = void (*)(const Image&, Image&);
  const struct {
    PixelFormat from, to;
    Convert reference, fast;
  } cases[] = {
      {PixelFormat::NV21, PixelFormat::RGBA, yuvToRgbaReference, yuvToRgbaFast},
      {PixelFormat::NV12, PixelFormat::RGBA, yuvToRgbaReference, yuvToRgbaFast},
      {PixelFormat::RGBA, PixelFormat::NV21, rgbaToYuvReference, rgbaToYuvFast},
      {PixelFormat::RGBA, PixelFormat::NV12, rgbaToYuvReference, rgbaToYuvFast},
  };
  for (const auto& c : cases) {
    Image in = makeImage({c.from, 33, 17, 40, 20});
    uint32_t seed = 12345;
    for (auto& b : in.bytes) b = uint8_t((seed = seed * 1103515245u + 12345u) >> 16);
    Image ref = makeImage({c.to, 33, 17, 36, 18}), fast = ref;
    c.reference(in, ref);
    c.fast(in, fast);
    int worst = 0;
    for (size_t i = 0; i < ref.bytes.size(); ++i)
      worst = std::max(worst, std::abs(int(ref.bytes[i]) - int(fast.bytes[i])));
    EXPECT_LE(worst, 2) << formatName(c.from) << " to " << formatName(c.to);
  }
}

TEST(Progress, LineSaysFramesRateAndTimeLeft) {
  const struct {
    size_t done, total;
    double seconds;
    const char* text;
  } cases[] = {{0, 8, 0.0, "frames 0/8  0.0 fps"},
               {2, 8, 1.0, "frames 2/8  2.0 fps  0:03 left"},
               {1, 200, 2.0, "frames 1/200  0.5 fps  6:38 left"},
               {8, 8, 4.0, "frames 8/8  2.0 fps"}};
  for (const auto& c : cases) EXPECT_EQ(progressText(c.done, c.total, c.seconds), c.text);
}

// Geometry as "WxH stride scanline format" ("-": none in the name; 0 and "?": not said).
TEST(DumpName, ReadsBothNamingStylesAndIgnoresNamesWithoutGeometry) {
  const std::pair<const char*, const char*> cases[] = {
      {"IMG_0001_[lumofilter]_OfflineSnapshot_frame[7]_input_4000x3000_4032.nv21",
       "4000x3000 4032 0 nv21"},
      {"/tmp/a_b/out_1920x1080_1920_1088.nv12", "1920x1080 1920 1088 nv12"},
      {"cap_width_640_height_480_stride_704_scanline_512.yuv", "640x480 704 512 ?"},
      {"cap_nv12_width_64_height_48_stride_64.raw", "64x48 64 0 nv12"},
      {"frame_RGBA_32x16.bin", "32x16 0 0 rgba"},
      {"Width_8_Height_6.rgba", "8x6 0 0 rgba"},
      {"photo.jpg", "-"},
      {"frame_12.nv21", "-"},
      {"4000x3000_dir/plain.nv21", "-"},  // folders do not count
      {"x_4000x3000_4032_trailing.nv21", "-"},
      {"a_12345678901x5.nv21", "-"},
  };
  for (const auto& [name, want] : cases) {
    const auto g = geometryFromName(name);
    EXPECT_EQ(!g ? "-"
                 : std::to_string(g->width) + "x" + std::to_string(g->height) + " " +
                       std::to_string(g->stride) + " " + std::to_string(g->scanline) + " " +
                       (g->format ? formatName(*g->format) : "?"),
              want)
        << name;
  }
  // Format words count only when they stand alone; the extension's case does not matter.
  EXPECT_EQ(formatFromName("a_nv21_b.bin"), PixelFormat::NV21);
  EXPECT_EQ(formatFromName("anv21.bin"), std::nullopt);
  EXPECT_EQ(formatFromName("x.NV12"), PixelFormat::NV12);
}

TEST(Session, FloatSpellingsAndSceneNames) {
  const std::pair<const char*, uint32_t> floats[] = {
      {"1.5", 0x3fc00000u},       {R"("0x3f800000")", 0x3f800000u}, {R"("inf")", 0x7f800000u},
      {R"("-inf")", 0xff800000u}, {R"("0x00000001")", 0x1u},        {"-0.0", 0x80000000u}};
  for (const auto& [json, bits] : floats)
    EXPECT_EQ(std::bit_cast<uint32_t>(*withMeta(std::string(R"("lux": )") + json).meta.lux), bits)
        << json;
  EXPECT_TRUE(std::isnan(*withMeta(R"("zoom": "nan")").meta.zoom));
  // The portrait class has no detector id: it is sent as one face over scene 0.
  const std::pair<std::string, uint32_t> scenes[] = {{"common", 0},          {"food", 2},
                                                     {"plants", 3},          {"night", 9},
                                                     {"sunrise_sunset", 13}, {"protrait", 0}};
  for (const auto& [name, id] : scenes) {
    const FrameMeta m = withMeta(R"("scene": ")" + name + "\"").meta;
    EXPECT_EQ(m.scene, id) << name;
    EXPECT_EQ(m.faces, name == "protrait" ? std::optional(1u) : std::nullopt) << name;
  }
}

// Tags as "number type xcount payload" (types: 0 byte, 1 int32, 2 float, 3 int64, 4 double);
// "-" is a name left for the vendor tag table to resolve.
TEST(Session, RawTagsCarryExactPayloads) {
  const SessionFrame f = withMeta(R"("tags": {
      "0x1002F": {"type": "f32", "values": ["0x40000000", 1]},
      "ANDROID_STATISTICS_FACE_RECTANGLES": {"type": "i32", "values": [-1, 2]},
      "com.x.f64": {"type": "f64", "values": ["-inf"]},
      "com.x.i64": {"type": "i64", "values": ["0xffffffffffffffff"]},
      "com.x.short": {"type": "u8", "values": [1, 255]},
      "com.x.u32": {"type": "u32", "values": [4294967295]},
      "zentor.snapshot.imageName": {"type": "string", "values": "IMG"}})");
  // In key order, the order the tags come back in.
  const std::vector<std::string> want = {"0x1002f 2 x2 000000400000803f",
                                         "0x110006 1 x2 ffffffff02000000",
                                         "- 4 x1 000000000000f0ff",
                                         "- 3 x1 ffffffffffffffff",
                                         "- 0 x2 01ff",
                                         "- 1 x1 ffffffff",
                                         "- 0 x4 494d4700"};
  std::vector<std::string> got;
  for (const RawTag& t : f.meta.tags) {
    char head[40];
    std::snprintf(head, sizeof head, "%#x %u x%zu ", t.number.value_or(0), t.type, t.count);
    std::string text = t.number ? head : "-" + std::string(std::strchr(head, ' '));
    for (uint8_t b : t.payload) text += {"0123456789abcdef"[b >> 4], "0123456789abcdef"[b & 15]};
    got.push_back(text);
  }
  EXPECT_EQ(got, want);
}

class ExifDump : public ScratchTest {};

// One line per block: frame|width|height|aiscene|lux|cct|zoom|shading|lut bytes.
TEST_F(ExifDump, BlocksSplitAtFrameNumbersOrAtWidth) {
  const std::string lut = "lut_algo_input=[ 250 251 252 253 254 255 0 1 2 3]\n";
  write("preview.txt",
        "frameNum=3\nwidth=64\nheight=48\naiscene=night\nlux=10\ncct=4200\n"
        "zoom_ratio=2.000000\nshading=[ 0.3 1 1 -0.55 -0.5 1.2 0.2 1]\n" +
            lut + "frameNum=4\nwidth=64\naiscene=food\n");
  write("snapshot.txt",
        "width=8\nheight=6\naiscene=protrait\n" + lut + "width=9\naiscene=common\n");
  const auto blocks = [&](const char* file) {
    std::string out;
    for (const ExifBlock& b : readExifDump(path(file))) {
      out += (b.frameNum ? std::to_string(*b.frameNum) : "-") + "|" + b.width + "|" + b.height +
             "|" + b.aiscene + "|" + b.lux + "|" + b.cct + "|" + b.zoomRatio + "|" + b.shading +
             "|";
      for (uint8_t v : b.lut) out += std::to_string(v) + " ";
      out += "\n";
    }
    return out;
  };
  const std::string bytes = "250 251 252 253 254 255 0 1 2 3 \n";
  EXPECT_EQ(blocks("preview.txt"),
            "3|64|48|night|10|4200|2.000000|[ 0.3 1 1 -0.55 -0.5 1.2 0.2 1]|" + bytes +
                "4|64||food|||||\n");
  EXPECT_EQ(blocks("snapshot.txt"), "-|8|6|protrait|||||" + bytes + "-|9||common|||||\n");
  EXPECT_EQ(blocks("missing_exif.txt"), "");
}

// The peak counts the RGBA picture and result and both host buffers.
TEST(FrameSize, MemoryNeedIsRefusedAgainstWhatIsAvailable) {
  struct Case {
    uint32_t w, h, stride, scanline;
    PixelFormat format;
    uint64_t available;
    bool refused;
  };
  const Case cases[] = {
      {4000, 3000, 4032, 3008, PixelFormat::NV21, 8ull << 30, false},
      {16384, 16384, 16384, 16384, PixelFormat::NV21, 2ull << 30, true},
      {16384, 16384, 16384, 16384, PixelFormat::NV21, 0, false},  // unknown: not refused
      {1000, 1000, 1000, 1000, PixelFormat::RGBA, 15'999'999, true},
      {1000, 1000, 1000, 1000, PixelFormat::RGBA, 16'000'000, false},
  };
  for (const Case& c : cases) {
    const std::string problem =
        frameMemoryProblem(c.w, c.h, c.stride, c.scanline, c.format, c.available);
    EXPECT_EQ(!problem.empty(), c.refused) << c.w << "x" << c.h << " " << c.available;
    if (c.refused) {
      EXPECT_NE(problem.find("more than the"), std::string::npos) << problem;
    }
  }
  EXPECT_EQ(framePeakBytes(4, 2, 6, 4, PixelFormat::NV21), 2u * 32 + 2u * 36);
}
