// Gralloc-like image buffers backed by memfd and mapped into this process.
// Layouts: NV21 / NV12 are a Y plane of `scanline` rows followed directly by
// one interleaved chroma plane of ceil(scanline / 2) rows, both `stride`
// bytes per row; RGBA_8888 is one plane of `scanline` rows of 4 * `stride`
// bytes.
#include <hostsim/image_buffer.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <system/graphics.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <map>
#include <mutex>

#include "image_params_copy.h"
#include "native_handle_layout.h"

namespace hostsim {
namespace {

struct LiveBuffers {
  std::mutex mutex;
  std::map<const native_handle_t*, const ImageBuffer*> byHandle;
};

LiveBuffers& live() {
  static LiveBuffers l;
  return l;
}

bool isYuv420(PixelLayout layout) { return layout != PixelLayout::RGBA8888; }

uint32_t bytesPerPixel(PixelLayout layout) { return isYuv420(layout) ? 1 : 4; }

uint32_t halfUp(uint32_t v) { return v / 2 + v % 2; }

ImageGeometry resolved(const ImageGeometry& g) {
  ImageGeometry r = g;
  if (r.stride == 0) r.stride = isYuv420(r.layout) ? r.width + r.width % 2 : r.width;
  if (r.scanline == 0) r.scanline = r.height;
  return r;
}

// Total bytes of a resolved geometry; 0 when it does not fit in memory.
size_t totalBytes(const ImageGeometry& g) {
  const uint64_t row = static_cast<uint64_t>(g.stride) * bytesPerPixel(g.layout);
  uint64_t rows = g.scanline;
  if (isYuv420(g.layout)) rows += halfUp(g.scanline);
  const uint64_t total = row * rows;
  if (total == 0 || total > (uint64_t{1} << 40)) return 0;
  return static_cast<size_t>(total);
}

// Every byte of a frame buffer is written soon after it is made, so its
// pages are brought in up front: one call costs far less than faulting them
// in one by one. MAP_POPULATE alone is not enough on a shared mapping: it
// maps the pages for reading, and the first write still faults on each one
// (about twice the time, measured on a 12 MP buffer); populating for
// writing (Linux 5.14 on) avoids that. Huge pages are only asked for: shared
// memory gets them where the system allows it (shmem_enabled "advise").
void* mapFrame(int fd, size_t size) {
#ifdef MADV_POPULATE_WRITE
  void* p = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
  if (p == MAP_FAILED) return p;
  madvise(p, size, MADV_HUGEPAGE);
  if (madvise(p, size, MADV_POPULATE_WRITE) == 0) return p;
  munmap(p, size);
#endif
  return mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_POPULATE, fd, 0);
}

}  // namespace

uint32_t halFormatOf(PixelLayout layout) {
  switch (layout) {
    case PixelLayout::NV21:
      return HAL_PIXEL_FORMAT_YCrCb_420_SP;
    case PixelLayout::NV12:
      return HAL_PIXEL_FORMAT_YCbCr_420_SP;
    case PixelLayout::RGBA8888:
      return HAL_PIXEL_FORMAT_RGBA_8888;
  }
  return 0;
}

bool layoutOfHalFormat(uint32_t halFormat, PixelLayout& layout) {
  switch (halFormat) {
    case HAL_PIXEL_FORMAT_YCrCb_420_SP:
      layout = PixelLayout::NV21;
      return true;
    case HAL_PIXEL_FORMAT_YCbCr_420_SP:
      layout = PixelLayout::NV12;
      return true;
    case HAL_PIXEL_FORMAT_RGBA_8888:
      layout = PixelLayout::RGBA8888;
      return true;
    default:
      return false;
  }
}

const char* layoutName(PixelLayout layout) {
  switch (layout) {
    case PixelLayout::NV21:
      return "nv21";
    case PixelLayout::NV12:
      return "nv12";
    case PixelLayout::RGBA8888:
      return "rgba";
  }
  return "raw";
}

std::string validateGeometry(const ImageGeometry& geometry) {
  const ImageGeometry g = resolved(geometry);
  const std::string what = std::string(layoutName(g.layout)) + " " + std::to_string(g.width) + "x" +
                           std::to_string(g.height) + " stride " + std::to_string(g.stride) +
                           " scanline " + std::to_string(g.scanline);
  if (g.width == 0 || g.height == 0) return what + ": width and height must be non-zero";
  if (g.stride < g.width) return what + ": stride is below the width";
  // An odd width still needs a whole chroma pair for its last column.
  if (isYuv420(g.layout) && g.stride < g.width + g.width % 2)
    return what + ": stride cannot hold the last chroma pair of an odd width";
  if (g.scanline < g.height) return what + ": scanline is below the height";
  if (totalBytes(g) == 0) return what + ": too large";
  return std::string();
}

std::unique_ptr<ImageBuffer> ImageBuffer::allocate(const ImageGeometry& geometry,
                                                   std::string* error) {
  auto fail = [error](const std::string& why) {
    if (error) *error = why;
    return std::unique_ptr<ImageBuffer>();
  };
  std::string why = validateGeometry(geometry);
  if (!why.empty()) return fail(why);
  std::unique_ptr<ImageBuffer> b(new ImageBuffer);
  b->m_geometry = resolved(geometry);
  b->m_size = totalBytes(b->m_geometry);
  b->m_fd = memfd_create("vyhost-image", MFD_CLOEXEC);
  if (b->m_fd < 0) return fail(std::string("memfd_create: ") + std::strerror(errno));
  if (ftruncate(b->m_fd, static_cast<off_t>(b->m_size)) != 0)
    return fail(std::string("ftruncate: ") + std::strerror(errno));
  void* p = mapFrame(b->m_fd, b->m_size);
  if (p == MAP_FAILED) return fail(std::string("mmap: ") + std::strerror(errno));
  b->m_data = static_cast<uint8_t*>(p);

  const ImageGeometry& g = b->m_geometry;
  b->m_handle = native_handle_create(1, kHandleInts);
  b->m_handle->data[0] = b->m_fd;
  int* ints = b->m_handle->data + 1;
  ints[kHandleMagic] = kHandleMagicValue;
  ints[kHandleFormat] = static_cast<int>(halFormatOf(g.layout));
  ints[kHandleWidth] = static_cast<int>(g.width);
  ints[kHandleHeight] = static_cast<int>(g.height);
  ints[kHandleStride] = static_cast<int>(g.stride);
  ints[kHandleScanline] = static_cast<int>(g.scanline);
  ints[kHandleSizeLow] = static_cast<int>(static_cast<uint64_t>(b->m_size) & 0xFFFFFFFFu);
  ints[kHandleSizeHigh] = static_cast<int>(static_cast<uint64_t>(b->m_size) >> 32);

  std::lock_guard<std::mutex> lock(live().mutex);
  live().byHandle[b->m_handle] = b.get();
  return b;
}

ImageBuffer::~ImageBuffer() {
  if (m_handle != nullptr) {
    std::lock_guard<std::mutex> lock(live().mutex);
    live().byHandle.erase(m_handle);
  }
  if (m_data != nullptr) munmap(m_data, m_size);
  if (m_handle != nullptr) native_handle_delete(m_handle);  // the fd is closed below
  if (m_fd >= 0) close(m_fd);
}

uint32_t ImageBuffer::planeCount() const { return isYuv420(m_geometry.layout) ? 2 : 1; }

size_t ImageBuffer::planeOffset(uint32_t index) const {
  if (index == 0 || index >= planeCount()) return 0;
  return static_cast<size_t>(m_geometry.stride) * m_geometry.scanline;
}

uint8_t* ImageBuffer::plane(uint32_t index) const {
  if (index >= planeCount()) return nullptr;
  return m_data + planeOffset(index);
}

size_t ImageBuffer::rowBytes(uint32_t index) const {
  if (index >= planeCount()) return 0;
  return static_cast<size_t>(m_geometry.stride) * bytesPerPixel(m_geometry.layout);
}

uint32_t ImageBuffer::planeRows(uint32_t index) const {
  if (index >= planeCount()) return 0;
  return index == 0 ? m_geometry.height : halfUp(m_geometry.height);
}

vyalgo2::ImageParams ImageBuffer::imageParams(std::shared_ptr<VyMetadata> metadata) const {
  vyalgo2::ImageParams p;
  p.format = halFormatOf(m_geometry.layout);
  p.width = m_geometry.width;
  p.height = m_geometry.height;
  p.stride = m_geometry.stride;
  p.scanline = m_geometry.scanline;
  p.pMetadata = std::move(metadata);
  p.numberOfPlanes = planeCount();
  for (uint32_t i = 0; i < planeCount(); ++i) {
    p.planeFd[i] = m_fd;
    p.planeAddress[i] = reinterpret_cast<uint64_t>(plane(i));
    p.planeOffset[i] = planeOffset(i);
  }
  p.phHandle = m_handle;
  return p;
}

vyalgo2::VyImageBuffer ImageBuffer::imageBuffer() const {
  vyalgo2::VyImageBuffer record;
  copyImageParams(imageParams(), record);
  return record;
}

// By handle first; a handle cloned from one of ours (its own fd on the same
// memory) is recognised by the file behind the fd.
const ImageBuffer* findImageBuffer(const native_handle_t* handle) {
  if (handle == nullptr) return nullptr;
  std::lock_guard<std::mutex> lock(live().mutex);
  auto it = live().byHandle.find(handle);
  if (it != live().byHandle.end()) return it->second;
  if (handle->numFds < 1 || handle->numInts < kHandleInts ||
      handle->data[handle->numFds + kHandleMagic] != kHandleMagicValue)
    return nullptr;
  struct stat wanted {};
  if (fstat(handle->data[0], &wanted) != 0) return nullptr;
  for (const auto& [h, buffer] : live().byHandle) {
    struct stat have {};
    if (fstat(buffer->fd(), &have) == 0 && have.st_dev == wanted.st_dev &&
        have.st_ino == wanted.st_ino)
      return buffer;
  }
  return nullptr;
}

}  // namespace hostsim
