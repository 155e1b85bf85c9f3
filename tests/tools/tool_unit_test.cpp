// The tool's pieces. Image files and conversions: round trips through PNG,
// JPEG and raw dumps, geometry from dump names, checks on raw data, full-range
// BT.601. Text it reads: session lines (float spellings, scene names, raw tag
// payloads; bad lines are checked through the tool).
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

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
#include "dump_name.h"
#include "failure.h"
#include "frame_memory.h"
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

// Smooth in every channel, so JPEG stays close; alpha varies too unless opaque.
Image gradient(uint32_t w, uint32_t h, uint32_t stride = 0, bool opaque = false) {
  Image img = makeImage({PixelFormat::RGBA, w, h, stride, 0});
  for (uint32_t y = 0; y < h; ++y)
    for (uint32_t i = 0; i < 4 * w; ++i)
      img.row(y)[i] = uint8_t(i % 4 != 3 ? i / 4 * 2 + y * 3 * (i % 4)
                              : opaque   ? 255
                                         : 200 + i / 4);
  return img;
}

}  // namespace

class ImageIo : public ScratchTest {};

// CMYK JPEGs, inks stored inverted (255 meaning none) with the Adobe marker
// as Photoshop writes them, read as the opaque RGB their inks print.
TEST_F(ImageIo, CmykJpegsDecodeToRgb) {
  jpeg_compress_struct info;
  jpeg_error_mgr err;
  info.err = jpeg_std_error(&err);
  jpeg_create_compress(&info);
  std::FILE* f = std::fopen(path("c.jpg").c_str(), "wb");
  jpeg_stdio_dest(&info, f);
  info.image_width = info.image_height = 16;
  info.input_components = 4;
  info.in_color_space = JCS_CMYK;
  jpeg_set_defaults(&info);
  jpeg_set_quality(&info, 95, TRUE);
  jpeg_start_compress(&info, TRUE);
  std::vector<uint8_t> row;
  for (int x = 0; x < 16; ++x)
    for (int ink : {0, 0, 128, 64}) row.push_back(uint8_t(255 - ink));
  for (JSAMPROW r = row.data(); info.next_scanline < 16;) jpeg_write_scanlines(&info, &r, 1);
  jpeg_finish_compress(&info);
  jpeg_destroy_compress(&info);
  std::fclose(f);
  const Image got = readImage(path("c.jpg"));
  ASSERT_EQ(got.geometry.width, 16u);
  for (int k = 0; k < 4; ++k)
    EXPECT_NEAR(got.row(8)[4 * 8 + k], (std::array{191, 191, 95, 255}[k]), 3);
}

// PNG keeps every RGBA byte (padding dropped), and opaque pictures, written
// without alpha, read back the same at either compression.
TEST_F(ImageIo, PngIsExactAndJpegIsClose) {
  const Image opaque = gradient(19, 7, 24, true), in = gradient(37, 21, 40);
  for (auto [image, c] :
       {std::pair{&opaque, PngCompression::Smallest}, {&in, PngCompression::Fast}}) {
    setPngCompression(c);
    writeImage(path("p.png"), *image);
    const Image back = readImage(path("p.png"));
    ASSERT_EQ(back.geometry.stride, image->geometry.width);
    ASSERT_EQ(back.geometry.height, image->geometry.height);
    for (uint32_t y = 0; y < back.geometry.height; ++y)
      EXPECT_EQ(0, std::memcmp(back.row(y), image->row(y), 4 * back.geometry.width)) << y;
  }
  EXPECT_THROW(writeImage(path("nodir/x.png"), in), Failure);
}

// Errors name the file first. A picture's header is checked before anything
// of its size is allocated: the side limit, and whether the file can hold that
// many pixels at all. Raw data must fit its geometry (accepted raw layouts: see
// the raw layout tests).
TEST_F(ImageIo, ReadsRefuseWhatTheDataCannotHold) {
  // name, side its header declares (0: 49 bytes of junk instead, -1: no file), error after the path
  const std::tuple<std::string, int, std::string> cases[] = {
      {"big.png", 23000, "unusable PNG size: 23000x23000 is above the 16384 pixel limit"},
      {"big.jpg", 23000, "unusable JPEG size: 23000x23000 is above the 16384 pixel limit"},
      {"hollow.png", 16000, "truncated PNG: 16000x16000 pixels need at least 744201 bytes of"},
      {"hollow.jpg", 16000, "truncated JPEG: 16000x16000 pixels need at least 1500000 bytes of"},
      {"d_6x4_8.nv21", 0, "49 bytes do not match"},
      {"broken.png", 0, ""},
      {"broken.jpg", 0, ""},
      {"nosize.nv21", 0, ""},
      {"missing.png", -1, ""},
  };
  for (const auto& [name, side, error] : cases) {
    if (side > 0) {
      declaringSize(path(name), uint32_t(side), uint32_t(side));
      const PictureSize size = pictureSize(path(name));
      EXPECT_EQ(std::pair(size.width, size.height), std::pair(uint32_t(side), uint32_t(side)));
    } else if (side == 0) {
      write(name, std::string(49, '\7'));
    }
    EXPECT_THAT([&] { readImage(path(name)); },
                testing::ThrowsMessage<Failure>(testing::StartsWith(path(name) + ": " + error)));
  }
}

// An even-sized YUV image goes to JPEG as its own planes and, asked for in
// its own layout, comes back without a trip through RGB; either way it stays
// within a few code values of what went in (sizes off the 16-pixel MCU grid,
// padded strides).
TEST_F(ImageIo, YuvJpegRoundTripsThroughItsOwnPlanes) {
  for (const auto& [format, width, height, stride] : {std::tuple{PixelFormat::NV21, 32u, 16u, 0u},
                                                      {PixelFormat::NV12, 34u, 18u, 40u},
                                                      {PixelFormat::NV21, 6u, 4u, 8u}}) {
    SCOPED_TRACE(width);
    const Image in = convertImage(gradient(width, height), format, stride);
    writeImage(path("y.jpg"), in, 100);
    const Image yuv = readImage(path("y.jpg"), {}, format), rgba = readImage(path("y.jpg"));
    ASSERT_EQ(yuv.geometry.format, format);
    ASSERT_EQ(rgba.geometry.format, PixelFormat::RGBA);
    const Image expected = convertImage(in, PixelFormat::RGBA);
    int worstYuv = 0, worstRgb = 0;
    for (uint32_t y = 0; y < height; ++y)
      for (uint32_t x = 0; x < width; ++x) {
        worstYuv = std::max(worstYuv, std::abs(yuv.row(y)[x] - in.row(y)[x]));
        if (y % 2 == 0)
          worstYuv = std::max(worstYuv, std::abs(yuv.chromaRow(y / 2)[x] - in.chromaRow(y / 2)[x]));
        for (int k = 0; k < 3; ++k)
          worstRgb =
              std::max(worstRgb, std::abs(rgba.row(y)[4 * x + k] - expected.row(y)[4 * x + k]));
      }
    EXPECT_LE(worstYuv, 2);
    EXPECT_LE(worstRgb, 6);  // libjpeg's own chroma upsampling against whole-block chroma
    // 640 KB of skipped markers, end-of-image codes inside, cross the reader's 256 KB steps.
    std::string jpeg = lumo_test::readText(path("y.jpg")), pad(65518, '\xD9');
    for (size_t k = 0; k < pad.size(); k += 2) pad[k] = '\xFF';
    for (int i = 0; i < 10; ++i) jpeg.insert(2, "\xFF\xE9\xFF\xF0" + pad);
    write("m.jpg", jpeg);
    EXPECT_TRUE(readImage(path("m.jpg"), {}, format).bytes == yuv.bytes);
  }
  // Noise at full quality, about 780 KB of JPEG: the encoder's 256 KB steps read back whole.
  Image noise = makeImage({PixelFormat::RGBA, 800, 600, 0, 0});
  for (size_t i = 0; i < noise.bytes.size(); ++i) noise.bytes[i] = uint8_t(i * 2654435761u >> 13);
  writeImage(path("n.jpg"), noise, 100);
  const Image y = readImage(path("n.jpg"), {}, PixelFormat::NV21),
              want = convertImage(noise, PixelFormat::NV21);
  long error = 0;  // luma off by less than two on average: nothing lost or repeated
  for (size_t i = 0; i < 800 * 600; ++i) error += std::abs(y.bytes[i] - want.bytes[i]);
  EXPECT_LT(error, 2 * 800 * 600);
  std::FILE* full = std::fopen("/dev/full", "wb");  // a full disk fails the write, naming the file
  EXPECT_THAT([&] { encodeJpeg(noise, full, "n.jpg", 90); },
              testing::ThrowsMessage<Failure>(testing::StartsWith("n.jpg: cannot encode JPEG")));
  std::fclose(full);
}

// Writer threads commit side by side without touching the process umask, and
// every file gets the permissions the umask gives, synced or not.
TEST_F(ImageIo, ConcurrentCommitsKeepTheUmaskAndTheModes) {
  const mode_t mask = ::umask(0);
  ::umask(mask);
  ASSERT_EQ(startupUmask(), mask);
  std::vector<std::thread> writers;
  for (Durability d : {Durability::visible, Durability::visible, Durability::sync})
    writers.emplace_back([&, d, t = writers.size()] {
      for (int i = 0; i < (d == Durability::sync ? 20 : 1000); ++i)
        writeFileAtomically(path("w" + std::to_string(t) + "_" + std::to_string(i)), "x", 1, d);
    });
  for (std::thread& w : writers) w.join();
  EXPECT_EQ(::umask(mask), mask);
  size_t files = 0;
  for (const fs::directory_entry& e : fs::directory_iterator(dir))
    files += fs::status(e).permissions() == fs::perms(0666 & ~mask);
  EXPECT_EQ(files, 2020u);
}

// A raw dump's bytes land unchanged at every size the frame memory serves
// from the heap or from whole mappings; a tight dump's missing chroma rows
// come back neutral, and new images start blank, on reused memory too.
TEST_F(ImageIo, RawDumpsReadBackExactlyWithNeutralMissingRows) {
  // width, height, scanline, tight (the chroma plane stops after its last row)
  for (const auto& [width, height, scanline, tight] :
       {std::tuple{6u, 4u, 4u, false}, {1024u, 720u, 720u, false}, {4000u, 3000u, 3008u, true}}) {
    const Geometry g{PixelFormat::NV21, width, height, width, scanline};
    const size_t full = bufferBytes(g);
    const size_t size = tight ? chromaOffset(g) + size_t(g.stride) * (height / 2) : full;
    std::string bytes(size, '\0');
    for (size_t i = 0; i < size; ++i) bytes[i] = char(i * 2654435761u >> 13);
    const std::string name = "d_" + std::to_string(width) + "x" + std::to_string(height) + "_" +
                             std::to_string(width) + "_" + std::to_string(scanline) + ".nv21";
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
  Image nv12;
  for (PixelFormat f : {PixelFormat::NV12, PixelFormat::NV21}) {
    Image yuv = makeImage({f, 9, 1, 10, 0});
    rgbaToYuvReference(rgba, yuv);
    if (f == PixelFormat::NV12) nv12 = yuv;
    // Copies between paddings, and the swap between the chroma orders, are exact.
    EXPECT_TRUE(convertImage(convertImage(yuv, f, 12), PixelFormat::NV12, 10).bytes == nv12.bytes);
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
  for (PixelFormat yuv : {PixelFormat::NV21, PixelFormat::NV12})
    for (bool toRgba : {true, false}) {
      const PixelFormat from = toRgba ? yuv : PixelFormat::RGBA,
                        to = toRgba ? PixelFormat::RGBA : yuv;
      Image in = makeImage({from, 33, 17, 40, 20});
      uint32_t seed = 12345;
      for (auto& b : in.bytes) b = uint8_t((seed = seed * 1103515245u + 12345u) >> 16);
      Image ref = makeImage({to, 33, 17, 36, 18}), fast = ref;
      (toRgba ? yuvToRgbaReference : rgbaToYuvReference)(in, ref);
      (toRgba ? yuvToRgbaFast : rgbaToYuvFast)(in, fast);
      int worst = 0;
      for (size_t i = 0; i < ref.bytes.size(); ++i)
        worst = std::max(worst, std::abs(int(ref.bytes[i]) - int(fast.bytes[i])));
      EXPECT_LE(worst, 2) << formatName(from) << " to " << formatName(to);
    }
}

TEST(Progress, LineSaysFramesRateAndTimeLeft) {
  // done, total, seconds, line
  const std::tuple<size_t, size_t, double, const char*> cases[] = {
      {0, 8, 0.0, "frames 0/8  0.0 fps"},
      {2, 8, 1.0, "frames 2/8  2.0 fps  0:03 left"},
      {1, 200, 2.0, "frames 1/200  0.5 fps  6:38 left"},
      {8, 8, 4.0, "frames 8/8  2.0 fps"}};
  for (const auto& [done, total, seconds, text] : cases)
    EXPECT_EQ(progressText(done, total, seconds), text);
}

// Geometry as "WxH stride scanline format" ("-": none in the name; 0 and "?": not
// said). The plugin's own names and plain WxH_stride_scanline ones: see the raw layout tests.
TEST(DumpName, ReadsBothNamingStylesAndIgnoresNamesWithoutGeometry) {
  const std::pair<const char*, const char*> cases[] = {
      {"cap_nv12_width_64_height_48_stride_64.raw", "64x48 64 0 nv12"},
      {"frame_RGBA_32x16.bin", "32x16 0 0 rgba"},
      {"Width_8_Height_6.rgba", "8x6 0 0 rgba"},
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
  const std::pair<std::string, uint32_t> scenes[] = {{"food", 2}, {"plants", 3}, {"protrait", 0}};
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

// The peak counts the RGBA picture and result and both host buffers.
TEST(FrameSize, MemoryNeedIsRefusedAgainstWhatIsAvailable) {
  // side, stride = scanline, format, available memory (0: unknown, never refused), refused
  const std::tuple<uint32_t, uint32_t, PixelFormat, uint64_t, bool> cases[] = {
      {16384, 16384, PixelFormat::NV21, 2ull << 30, true},
      {16384, 16384, PixelFormat::NV21, 0, false},
      {1000, 1000, PixelFormat::RGBA, 15'999'999, true},
      {1000, 1000, PixelFormat::RGBA, 16'000'000, false},
  };
  for (const auto& [side, stride, format, available, refused] : cases) {
    const std::string problem = frameMemoryProblem(side, side, stride, stride, format, available);
    EXPECT_EQ(problem.find("more than the") != std::string::npos, refused) << problem;
  }
  EXPECT_EQ(framePeakBytes(4, 2, 6, 4, PixelFormat::NV21), 2u * 32 + 2u * 36);
}

TEST(FrameMemory, TrimReleasesTheKeptBlocks) {
  const auto frameFiles = [] {
    std::error_code ec;
    return std::ranges::count_if(fs::directory_iterator("/proc/self/fd"), [&](const auto& e) {
      return fs::read_symlink(e.path(), ec).string().find("lumo-frame") != std::string::npos;
    });
  };
  frameMemoryTrim();
  const auto live = frameFiles();
  frameFree(frameAlloc(size_t{4} << 20), size_t{4} << 20);  // kept for the next frame
  EXPECT_EQ(frameFiles(), live + 1);
  frameMemoryTrim();
  EXPECT_EQ(frameFiles(), live);
}
