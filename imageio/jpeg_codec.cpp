// JPEG through libjpeg(-turbo). A JPEG is already full-range BT.601 YCbCr, so
// 4:2:0 files are decoded straight to the camera's semi-planar YUV and YUV
// images encoded straight from it (libjpeg's raw data interface): no trip
// through RGB. Other files (CMYK and YCCK ones too) decode to RGBA, and RGBA encodes with 4:2:0
// chroma. Library errors longjmp back into small helpers that hold only
// trivially destructible locals, and turn into Failure there.
#include <algorithm>
#include <csetjmp>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <memory>
#include <vector>

// jpeglib.h needs size_t and FILE declared before it.
#include <jpeglib.h>
// The message codes (J_MESSAGE_CODE); jerror.h needs jpeglib.h first.
#include <jerror.h>
#include <libyuv/planar_functions.h>

#include "failure.h"
#include "image_files.h"
#include "yuv_convert.h"

namespace lumo {
namespace {

struct ErrorManager {
  jpeg_error_mgr base;
  std::jmp_buf jump;
  char message[JMSG_LENGTH_MAX];
  char lostData[JMSG_LENGTH_MAX];  // the first warning that pixels are missing
};

void onError(j_common_ptr info) {
  auto* err = reinterpret_cast<ErrorManager*>(info->err);
  (*info->err->format_message)(info, err->message);
  std::longjmp(err->jump, 1);
}

// libjpeg only warns about a file that ends early or data it cannot decode,
// and fills the rest of the picture with grey; for us that picture is not the
// file's. Warnings that lose nothing (extraneous bytes, unknown revisions)
// stay warnings.
void onMessage(j_common_ptr info, int level) {
  auto* err = reinterpret_cast<ErrorManager*>(info->err);
  if (level != -1) return;  // trace messages
  const int code = info->err->msg_code;
  const bool lost = code == JWRN_JPEG_EOF || code == JWRN_HIT_MARKER || code == JWRN_MUST_RESYNC ||
                    code == JWRN_HUFF_BAD_CODE || code == JWRN_ARITH_BAD_CODE;
  if (lost && err->lostData[0] == '\0') (*info->err->format_message)(info, err->lostData);
  ++info->err->num_warnings;
}

// libjpeg-turbo's Huffman decoder takes its fast path only while a whole
// MCU's worst case is buffered (512 bytes a block, 3 KB for 4:2:0), and its
// stdio source holds 4 KB: read through that, most MCUs of a photo take the
// slow path. This source reads the file in large steps instead, and
// otherwise behaves as the stdio one: an empty file is an error, and one
// that ends early is warned about and ends in an end-of-image marker.
struct FileSource {
  static constexpr size_t kBytes = size_t{1} << 18;
  jpeg_source_mgr base;
  std::FILE* file;
  std::vector<JOCTET> buffer;
  bool started = false;

  explicit FileSource(std::FILE* in) : file(in), buffer(kBytes) {
    base.next_input_byte = nullptr;
    base.bytes_in_buffer = 0;
    base.init_source = [](j_decompress_ptr) {};
    base.fill_input_buffer = [](j_decompress_ptr info) -> boolean {
      auto* s = reinterpret_cast<FileSource*>(info->src);
      size_t n = std::fread(s->buffer.data(), 1, s->buffer.size(), s->file);
      if (n == 0) {
        if (!s->started) ERREXIT(info, JERR_INPUT_EMPTY);
        WARNMS(info, JWRN_JPEG_EOF);
        s->buffer[0] = 0xFF;
        s->buffer[1] = JPEG_EOI;
        n = 2;
      }
      s->base.next_input_byte = s->buffer.data();
      s->base.bytes_in_buffer = n;
      s->started = true;
      return TRUE;
    };
    base.skip_input_data = [](j_decompress_ptr info, long count) {
      jpeg_source_mgr* src = info->src;
      if (count <= 0) return;
      while (size_t(count) > src->bytes_in_buffer) {
        count -= long(src->bytes_in_buffer);
        (*src->fill_input_buffer)(info);
      }
      src->next_input_byte += count;
      src->bytes_in_buffer -= size_t(count);
    };
    base.resync_to_restart = jpeg_resync_to_restart;
    base.term_source = [](j_decompress_ptr) {};
  }
};

bool readHeader(jpeg_decompress_struct& info, ErrorManager& err, FileSource& source) {
  if (setjmp(err.jump)) return false;
  info.src = &source.base;
  jpeg_read_header(&info, TRUE);
  return true;
}

// The encoder's counterpart: its stdio destination hands 4 KB at a time to
// the stream, and its Huffman encoder goes through a side buffer whenever
// less than an MCU's worst case is free. A large buffer of our own avoids
// both and the stream's many small writes.
struct FileDestination {
  static constexpr size_t kBytes = size_t{1} << 18;
  jpeg_destination_mgr base;
  std::FILE* file;
  std::vector<JOCTET> buffer;

  FileDestination(std::FILE* out) : file(out), buffer(kBytes) {
    base.init_destination = [](j_compress_ptr info) {
      auto* d = reinterpret_cast<FileDestination*>(info->dest);
      d->base.next_output_byte = d->buffer.data();
      d->base.free_in_buffer = d->buffer.size();
    };
    base.empty_output_buffer = [](j_compress_ptr info) -> boolean {
      auto* d = reinterpret_cast<FileDestination*>(info->dest);
      if (std::fwrite(d->buffer.data(), 1, d->buffer.size(), d->file) != d->buffer.size())
        ERREXIT(info, JERR_FILE_WRITE);
      d->base.next_output_byte = d->buffer.data();
      d->base.free_in_buffer = d->buffer.size();
      return TRUE;
    };
    base.term_destination = [](j_compress_ptr info) {
      auto* d = reinterpret_cast<FileDestination*>(info->dest);
      const size_t n = d->buffer.size() - d->base.free_in_buffer;
      if (n != 0 && std::fwrite(d->buffer.data(), 1, n, d->file) != n)
        ERREXIT(info, JERR_FILE_WRITE);
      if (std::fflush(d->file) != 0) ERREXIT(info, JERR_FILE_WRITE);
    };
  }
};

// YCbCr with one chroma sample per 2x2 block, of even size: the layout of
// an NV21 or NV12 buffer, so its planes can be taken as they are.
bool isPlainYuv420(const jpeg_decompress_struct& info) {
  const jpeg_component_info* c = info.comp_info;
  return info.jpeg_color_space == JCS_YCbCr && info.num_components == 3 &&
         c[0].h_samp_factor == 2 && c[0].v_samp_factor == 2 && c[1].h_samp_factor == 1 &&
         c[1].v_samp_factor == 1 && c[2].h_samp_factor == 1 && c[2].v_samp_factor == 1 &&
         info.image_width % 2 == 0 && info.image_height % 2 == 0 &&
         info.scale_num == info.scale_denom;
}

bool startDecode(jpeg_decompress_struct& info, ErrorManager& err, J_COLOR_SPACE out, bool raw) {
  if (setjmp(err.jump)) return false;
  info.raw_data_out = raw ? TRUE : FALSE;
  info.out_color_space = out;
  jpeg_start_decompress(&info);
  return true;
}

// Huffman-coded sequential scans spend at least two bits on every 8x8 block
// (a DC difference and an end of block), so a file smaller than that is cut
// short. Progressive and arithmetic-coded files can code long runs of empty
// blocks in a few bits: only their size is checked, and a short one is found
// when it is read, before the picture's buffer is made.
uint64_t leastScanBytes(const jpeg_decompress_struct& info) {
  if (info.progressive_mode || info.arith_code) return 0;
  uint64_t blocks = 0;
  for (int c = 0; c < info.num_components; ++c)
    blocks += uint64_t(info.comp_info[c].width_in_blocks) * info.comp_info[c].height_in_blocks;
  return blocks / 4;
}

// Photoshop's CMYK and YCCK files (with the Adobe marker) store inverted
// inks, 255 meaning none; others store the inks themselves. The libjpeg
// output row holds C, M, Y, K in the four bytes each RGBA pixel takes.
void cmykToRgba(Image& image, bool inverted) {
  const Geometry& g = image.geometry;
  for (uint32_t y = 0; y < g.height; ++y) {
    uint8_t* px = image.row(y);
    for (uint32_t x = 0; x < g.width; ++x, px += 4) {
      const unsigned k = inverted ? px[3] : 255u - px[3];
      for (int c = 0; c < 3; ++c) {
        const unsigned ink = inverted ? px[c] : 255u - px[c];
        px[c] = uint8_t((ink * k + 127) / 255);
      }
      px[3] = 255;
    }
  }
}

// libjpeg's raw rows cover whole 16x16 MCUs: 16 luma and 8 chroma rows per
// call, planes padded to a multiple of 16 pixels (8 chroma samples) wide.
// Where the picture's width is such a multiple, luma rows point straight
// into the image (12 MB less copied each way for a 12 MP frame); otherwise,
// and for rows past the picture, they are scratch rows. Chroma always goes
// through planar scratch rows: the image interleaves it.
struct RawRows {
  explicit RawRows(const Geometry& g)
      : lumaWidth((g.width + 15) & ~15u),
        chromaWidth(lumaWidth / 2),
        direct(lumaWidth == g.width),
        luma(size_t(lumaWidth) * 16),
        cb(size_t(chromaWidth) * 8),
        cr(size_t(chromaWidth) * 8) {
    for (int i = 0; i < 16; ++i) lumaRows[i] = scratchRow(i);
    for (int i = 0; i < 8; ++i) {
      cbRows[i] = cb.data() + size_t(i) * chromaWidth;
      crRows[i] = cr.data() + size_t(i) * chromaWidth;
    }
    planes[0] = lumaRows;
    planes[1] = cbRows;
    planes[2] = crRows;
  }
  uint8_t* scratchRow(uint32_t i) { return luma.data() + size_t(i) * lumaWidth; }
  uint32_t lumaWidth, chromaWidth;
  bool direct;  // luma rows may be the image's own
  std::vector<uint8_t> luma, cb, cr;
  JSAMPROW lumaRows[16], cbRows[8], crRows[8];
  JSAMPARRAY planes[3];
};

// Interleaves `rows` chroma rows of planar Cb and Cr into the image's
// chroma plane from chroma row `first`, in the image's order.
void mergeChroma(const RawRows& r, Image& yuv, uint32_t first, uint32_t rows) {
  const bool nv12 = yuv.geometry.format == PixelFormat::NV12;
  const uint8_t* u = r.cb.data();
  const uint8_t* v = r.cr.data();
  libyuv::MergeUVPlane(nv12 ? u : v, int(r.chromaWidth), nv12 ? v : u, int(r.chromaWidth),
                       yuv.chromaRow(first), int(yuv.geometry.stride), int(yuv.geometry.width / 2),
                       int(rows));
}

bool finishRawDecode(jpeg_decompress_struct& info, ErrorManager& err, Image& yuv, RawRows& r) {
  if (setjmp(err.jump)) return false;
  const uint32_t width = yuv.geometry.width, height = yuv.geometry.height;
  while (info.output_scanline < info.output_height) {
    const uint32_t top = info.output_scanline;
    const uint32_t rows = std::min(16u, height - top);
    for (uint32_t i = 0; i < 16; ++i)
      r.lumaRows[i] = r.direct && i < rows ? yuv.row(top + i) : r.scratchRow(i);
    jpeg_read_raw_data(&info, r.planes, 16);
    if (!r.direct)
      for (uint32_t i = 0; i < rows; ++i) std::memcpy(yuv.row(top + i), r.lumaRows[i], width);
    mergeChroma(r, yuv, top / 2, rows / 2);
  }
  jpeg_finish_decompress(&info);
  return true;
}

bool finishDecode(jpeg_decompress_struct& info, ErrorManager& err, Image& image) {
  if (setjmp(err.jump)) return false;
  while (info.output_scanline < info.output_height) {
    JSAMPROW row = image.row(info.output_scanline);
    jpeg_read_scanlines(&info, &row, 1);
  }
  jpeg_finish_decompress(&info);
  return true;
}

bool encode(jpeg_compress_struct& info, ErrorManager& err, const Image& rgba, FileDestination& out,
            int quality) {
  if (setjmp(err.jump)) return false;
  info.dest = &out.base;
  info.image_width = rgba.geometry.width;
  info.image_height = rgba.geometry.height;
  info.input_components = 4;
  info.in_color_space = JCS_EXT_RGBA;
  jpeg_set_defaults(&info);
  jpeg_set_quality(&info, quality, TRUE);
  jpeg_start_compress(&info, TRUE);
  while (info.next_scanline < info.image_height) {
    JSAMPROW row = const_cast<uint8_t*>(rgba.row(info.next_scanline));
    jpeg_write_scanlines(&info, &row, 1);
  }
  jpeg_finish_compress(&info);
  return true;
}

bool encodeRaw(jpeg_compress_struct& info, ErrorManager& err, const Image& yuv,
               FileDestination& out, int quality, RawRows& r) {
  if (setjmp(err.jump)) return false;
  const Geometry& g = yuv.geometry;
  info.dest = &out.base;
  info.image_width = g.width;
  info.image_height = g.height;
  info.input_components = 3;
  info.in_color_space = JCS_YCbCr;
  jpeg_set_defaults(&info);
  jpeg_set_quality(&info, quality, TRUE);
  info.raw_data_in = TRUE;
  info.comp_info[0].h_samp_factor = info.comp_info[0].v_samp_factor = 2;
  for (int c = 1; c < 3; ++c) info.comp_info[c].h_samp_factor = info.comp_info[c].v_samp_factor = 1;
  jpeg_start_compress(&info, TRUE);
  const bool nv12 = g.format == PixelFormat::NV12;
  const uint32_t cw = g.width / 2;
  while (info.next_scanline < info.image_height) {
    const uint32_t top = info.next_scanline;
    // Rows and columns past the picture repeat its last ones, as libjpeg's
    // own edge expansion would.
    for (uint32_t i = 0; i < 16; ++i) {
      const uint8_t* src = yuv.row(std::min(top + i, g.height - 1));
      // libjpeg only reads the rows it compresses from.
      if (r.direct) {
        r.lumaRows[i] = const_cast<uint8_t*>(src);
        continue;
      }
      std::memcpy(r.lumaRows[i], src, g.width);
      std::memset(r.lumaRows[i] + g.width, src[g.width - 1], r.lumaWidth - g.width);
    }
    for (uint32_t i = 0; i < 8; ++i) {
      const uint8_t* src = yuv.chromaRow(std::min(top / 2 + i, g.height / 2 - 1));
      uint8_t* u = r.cbRows[i];
      uint8_t* v = r.crRows[i];
      libyuv::SplitUVPlane(src, int(g.stride), nv12 ? u : v, int(r.chromaWidth), nv12 ? v : u,
                           int(r.chromaWidth), int(cw), 1);
      std::memset(u + cw, u[cw - 1], r.chromaWidth - cw);
      std::memset(v + cw, v[cw - 1], r.chromaWidth - cw);
    }
    jpeg_write_raw_data(&info, r.planes, 16);
  }
  jpeg_finish_compress(&info);
  return true;
}

struct FileCloser {
  void operator()(std::FILE* f) const { std::fclose(f); }
};

// An open file with its header read.
struct JpegReader {
  std::unique_ptr<std::FILE, FileCloser> file;
  FileSource source;
  jpeg_decompress_struct info;
  ErrorManager err;
  explicit JpegReader(const std::string& path)
      : file(std::fopen(path.c_str(), "rb")), source(file.get()) {
    if (!file) throw Failure(path + ": cannot open");
    info.err = jpeg_std_error(&err.base);
    err.base.error_exit = onError;
    err.base.emit_message = onMessage;
    err.lostData[0] = '\0';
    jpeg_create_decompress(&info);
    if (!readHeader(info, err, source)) {
      jpeg_destroy_decompress(&info);
      throw Failure(path + ": cannot decode JPEG: " + err.message);
    }
  }
  ~JpegReader() { jpeg_destroy_decompress(&info); }
  JpegReader(const JpegReader&) = delete;
  JpegReader& operator=(const JpegReader&) = delete;
};

}  // namespace

PictureSize jpegSize(const std::string& path) {
  const JpegReader r(path);
  return {r.info.image_width, r.info.image_height};
}

Image decodeJpeg(const std::string& path, std::optional<PixelFormat> yuv) {
  JpegReader r(path);
  jpeg_decompress_struct& info = r.info;
  ErrorManager& err = r.err;
  if (const std::string why = pictureSizeProblem(info.image_width, info.image_height); !why.empty())
    throw Failure(path + ": unusable JPEG size: " + why);
  std::error_code ec;
  const uint64_t fileBytes = std::filesystem::file_size(path, ec);
  if (const uint64_t least = leastScanBytes(info); !ec && fileBytes < least)
    throw Failure(path + ": truncated JPEG: " + std::to_string(info.image_width) + "x" +
                  std::to_string(info.image_height) + " pixels need at least " +
                  std::to_string(least) + " bytes of scan data, the file has " +
                  std::to_string(fileBytes));
  const bool raw = yuv && isYuv(*yuv) && !imageReferenceForced() && isPlainYuv420(info);
  const bool cmyk = info.jpeg_color_space == JCS_CMYK || info.jpeg_color_space == JCS_YCCK;
  const J_COLOR_SPACE out = raw ? JCS_YCbCr : cmyk ? JCS_CMYK : JCS_EXT_RGBA;
  if (!startDecode(info, err, out, raw))
    throw Failure(path + ": cannot decode JPEG: " + err.message);
  // A progressive file has been read whole by now.
  if (err.lostData[0] != '\0') throw Failure(path + ": truncated or damaged JPEG: " + err.lostData);
  const Geometry g = completeGeometry(
      {raw ? *yuv : PixelFormat::RGBA, info.output_width, info.output_height, 0, 0});
  const std::string bad = checkGeometry(g);
  if (!bad.empty()) throw Failure(path + ": unusable JPEG size: " + bad);
  // The raw decode writes every byte of a 4:2:0 buffer of the picture's own
  // size; the others only rows of pixels, so their padding starts cleared.
  Image image = raw ? makeImageForOverwrite(g) : makeImage(g);
  if (raw) {
    RawRows rows(g);
    if (!finishRawDecode(info, err, image, rows))
      throw Failure(path + ": cannot decode JPEG: " + err.message);
  } else if (!finishDecode(info, err, image)) {
    throw Failure(path + ": cannot decode JPEG: " + err.message);
  }
  if (err.lostData[0] != '\0') throw Failure(path + ": truncated or damaged JPEG: " + err.lostData);
  if (cmyk) cmykToRgba(image, info.saw_Adobe_marker);
  return image;
}

void encodeJpeg(const Image& image, std::FILE* out, const std::string& path, int quality) {
  jpeg_compress_struct info;
  ErrorManager err;
  info.err = jpeg_std_error(&err.base);
  err.base.error_exit = onError;
  jpeg_create_compress(&info);
  FileDestination dest(out);
  bool ok;
  if (isYuv(image.geometry.format)) {
    RawRows rows(image.geometry);
    ok = encodeRaw(info, err, image, dest, quality, rows);
  } else {
    ok = encode(info, err, image, dest, quality);
  }
  jpeg_destroy_compress(&info);
  if (!ok) throw Failure(path + ": cannot encode JPEG: " + err.message);
}

}  // namespace lumo
