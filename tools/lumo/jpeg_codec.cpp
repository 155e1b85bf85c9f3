// JPEG through libjpeg(-turbo): decoded to RGB, kept as RGBA; encoded from
// RGB with 4:2:0 chroma. Library errors longjmp back into small helpers that
// hold only trivially destructible locals, and turn into Failure there.
#include <csetjmp>
#include <cstddef>
#include <cstdio>
#include <memory>

// jpeglib.h needs size_t and FILE declared before it.
#include <jpeglib.h>
// The message codes (J_MESSAGE_CODE); jerror.h needs jpeglib.h first.
#include <jerror.h>

#include "failure.h"
#include "image_files.h"

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

bool startDecode(jpeg_decompress_struct& info, ErrorManager& err, std::FILE* file) {
  if (setjmp(err.jump)) return false;
  jpeg_stdio_src(&info, file);
  jpeg_read_header(&info, TRUE);
  info.out_color_space = JCS_EXT_RGBA;
  jpeg_start_decompress(&info);
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

bool encode(jpeg_compress_struct& info, ErrorManager& err, const Image& rgba, std::FILE* out,
            int quality) {
  if (setjmp(err.jump)) return false;
  jpeg_stdio_dest(&info, out);
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

struct FileCloser {
  void operator()(std::FILE* f) const { std::fclose(f); }
};

}  // namespace

Image decodeJpeg(const std::string& path) {
  std::unique_ptr<std::FILE, FileCloser> file(std::fopen(path.c_str(), "rb"));
  if (!file) throw Failure(path + ": cannot open");
  jpeg_decompress_struct info;
  ErrorManager err;
  info.err = jpeg_std_error(&err.base);
  err.base.error_exit = onError;
  err.base.emit_message = onMessage;
  err.lostData[0] = '\0';
  jpeg_create_decompress(&info);
  std::unique_ptr<jpeg_decompress_struct, void (*)(jpeg_decompress_struct*)> guard(
      &info, [](jpeg_decompress_struct* i) { jpeg_destroy_decompress(i); });
  if (!startDecode(info, err, file.get()))
    throw Failure(path + ": cannot decode JPEG: " + err.message);
  const Geometry g =
      completeGeometry({PixelFormat::Rgba, info.output_width, info.output_height, 0, 0});
  const std::string bad = checkGeometry(g);
  if (!bad.empty()) throw Failure(path + ": unusable JPEG size: " + bad);
  Image image = makeImage(g);
  if (!finishDecode(info, err, image)) throw Failure(path + ": cannot decode JPEG: " + err.message);
  if (err.lostData[0] != '\0') throw Failure(path + ": truncated or damaged JPEG: " + err.lostData);
  return image;
}

void encodeJpeg(const Image& rgba, std::FILE* out, const std::string& path, int quality) {
  jpeg_compress_struct info;
  ErrorManager err;
  info.err = jpeg_std_error(&err.base);
  err.base.error_exit = onError;
  jpeg_create_compress(&info);
  const bool ok = encode(info, err, rgba, out, quality);
  jpeg_destroy_compress(&info);
  if (!ok) throw Failure(path + ": cannot encode JPEG: " + err.message);
}

}  // namespace lumo
