// Gralloc-like image buffers: memfd-backed, mapped into this process, with a
// native handle that carries the file descriptor. An ImageBuffer owns its
// memory, its mapping and its handle; everything it hands out borrows them.
#pragma once

#include <cutils/native_handle.h>
#include <vyalgo2/ImageParams.h>
#include <vyalgo2/VyImageBuffer.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

namespace hostsim {

enum class PixelLayout { NV21, NV12, RGBA8888 };

// HAL pixel format code of a layout, and back (false for anything else).
uint32_t halFormatOf(PixelLayout layout);
bool layoutOfHalFormat(uint32_t halFormat, PixelLayout& layout);
const char* layoutName(PixelLayout layout);  // "nv21", "nv12", "rgba"

struct ImageGeometry {
  PixelLayout layout = PixelLayout::NV21;
  uint32_t width = 0;
  uint32_t height = 0;
  // Pixels per row; 0 means the width (rounded up to even for 4:2:0, whose
  // last chroma pair of an odd width needs the extra byte).
  uint32_t stride = 0;
  uint32_t scanline = 0;  // rows of the luma (or RGBA) plane; 0 means height
};

// Empty when the geometry can be allocated, otherwise why not (zero sizes,
// stride below width, or for 4:2:0 below the even-rounded width, scanline
// below height, too large). Odd 4:2:0 sizes are allowed: the last chroma
// row and column then cover a single luma row or column.
std::string validateGeometry(const ImageGeometry& geometry);

class ImageBuffer {
public:
  // Allocates a zero-filled buffer; null with `error` set when the geometry
  // is impossible or the memory cannot be had.
  static std::unique_ptr<ImageBuffer> allocate(const ImageGeometry& geometry,
                                               std::string* error = nullptr);
  ~ImageBuffer();
  ImageBuffer(const ImageBuffer&) = delete;
  ImageBuffer& operator=(const ImageBuffer&) = delete;

  const ImageGeometry& geometry() const { return m_geometry; }
  uint8_t* data() const { return m_data; }  // first byte of plane 0
  size_t size() const { return m_size; }
  int fd() const { return m_fd; }
  uint32_t planeCount() const;
  uint8_t* plane(uint32_t index) const;      // null past the last plane
  size_t planeOffset(uint32_t index) const;  // bytes from the start
  size_t rowBytes(uint32_t index) const;     // bytes per row of a plane
  uint32_t planeRows(uint32_t index) const;  // rows of a plane actually used

  // The framework's description of this buffer (addresses, fds, offsets,
  // the native handle) with `metadata` attached.
  vyalgo2::ImageParams imageParams(std::shared_ptr<VyMetadata> metadata = nullptr) const;
  const native_handle_t* handle() const { return m_handle; }
  // The framework's image buffer record of this buffer, as the plugin
  // interface's convertImageParams makes it from imageParams().
  vyalgo2::VyImageBuffer imageBuffer() const;

private:
  ImageBuffer() = default;
  ImageGeometry m_geometry;
  uint8_t* m_data = nullptr;
  size_t m_size = 0;
  int m_fd = -1;
  native_handle_t* m_handle = nullptr;
};

// The mapping behind a native handle made by ImageBuffer (null when the
// handle is unknown); the renderer and GraphicBuffer use it.
const ImageBuffer* findImageBuffer(const native_handle_t* handle);

}  // namespace hostsim
