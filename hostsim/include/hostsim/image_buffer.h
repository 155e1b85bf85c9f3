// Gralloc-like image buffers: memfd-backed, mapped into this process, with a
// native handle that carries the file descriptor. An ImageBuffer owns its
// memory, its mapping and its handle; everything it hands out borrows them.
#pragma once

#include <cutils/native_handle.h>
#include <geometry.h>
#include <vyalgo2/ImageParams.h>
#include <vyalgo2/VyImageBuffer.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

namespace hostsim {

// HAL pixel format code of a format.
uint32_t halFormatOf(lumo::PixelFormat format);

class ImageBuffer {
public:
  // Allocates a zero-filled buffer; null with `error` set when the geometry
  // is impossible or the memory cannot be had.
  // The geometry's zero stride and scanline are completed first.
  static std::unique_ptr<ImageBuffer> allocate(const lumo::Geometry& geometry,
                                               std::string* error = nullptr);
  // A buffer over memory the caller owns: `size` bytes at `data`, the start
  // of the shared memory file `fd` (duplicated here), laid out as
  // `geometry`. Nothing is copied or cleared, and the memory must outlive
  // the buffer. Null with `error` set when the geometry does not fit.
  static std::unique_ptr<ImageBuffer> borrow(const lumo::Geometry& geometry, uint8_t* data,
                                             size_t size, int fd, std::string* error = nullptr);
  ~ImageBuffer();
  ImageBuffer(const ImageBuffer&) = delete;
  ImageBuffer& operator=(const ImageBuffer&) = delete;

  const lumo::Geometry& geometry() const { return m_geometry; }
  uint8_t* data() const { return m_data; }  // first byte of plane 0
  size_t size() const { return m_size; }
  int fd() const { return m_fd; }
  uint32_t planeCount() const { return lumo::planeCount(m_geometry); }
  uint8_t* plane(uint32_t index) const;  // null past the last plane
  size_t planeOffset(uint32_t index) const { return lumo::planeOffset(m_geometry, index); }
  // Bytes per row of a plane (0 past the last plane).
  size_t rowBytes(uint32_t index) const {
    return index < planeCount() ? lumo::rowBytes(m_geometry) : 0;
  }
  // Rows of a plane actually used.
  uint32_t planeRows(uint32_t index) const { return lumo::planeRows(m_geometry, index); }

  // The framework's description of this buffer (addresses, fds, offsets,
  // the native handle) with `metadata` attached.
  vyalgo2::ImageParams imageParams(std::shared_ptr<VyMetadata> metadata = nullptr) const;
  const native_handle_t* handle() const { return m_handle; }
  // The framework's image buffer record of this buffer, as the plugin
  // interface's convertImageParams makes it from imageParams().
  vyalgo2::VyImageBuffer imageBuffer() const;

private:
  ImageBuffer() = default;
  void publish();
  lumo::Geometry m_geometry;
  uint8_t* m_data = nullptr;
  size_t m_size = 0;
  int m_fd = -1;
  native_handle_t* m_handle = nullptr;
  bool m_ownsMemory = true;
};

// The mapping behind a native handle made by ImageBuffer (null when the
// handle is unknown); the renderer and GraphicBuffer use it.
const ImageBuffer* findImageBuffer(const native_handle_t* handle);

}  // namespace hostsim
