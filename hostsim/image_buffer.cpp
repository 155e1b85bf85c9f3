// Gralloc-like image buffers backed by memfd and mapped into this process,
// laid out as lumo::Geometry describes.
#include <fcntl.h>
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

uint32_t halFormatOf(lumo::PixelFormat format) {
  static const uint32_t kHal[] = {HAL_PIXEL_FORMAT_YCrCb_420_SP, HAL_PIXEL_FORMAT_YCbCr_420_SP,
                                  HAL_PIXEL_FORMAT_RGBA_8888};
  return kHal[static_cast<size_t>(format)];
}

namespace {

std::string geometryProblem(const lumo::Geometry& g) {
  const std::string why = lumo::checkGeometry(g);
  if (why.empty()) return why;
  return std::string(lumo::formatName(g.format)) + " " + std::to_string(g.width) + "x" +
         std::to_string(g.height) + " stride " + std::to_string(g.stride) + " scanline " +
         std::to_string(g.scanline) + ": " + why;
}

}  // namespace

// The handle carries the fd and the geometry, and makes the buffer findable.
void ImageBuffer::publish() {
  const lumo::Geometry& g = m_geometry;
  m_handle = native_handle_create(1, kHandleInts);
  m_handle->data[0] = m_fd;
  int* ints = m_handle->data + 1;
  ints[kHandleMagic] = kHandleMagicValue;
  ints[kHandleFormat] = static_cast<int>(halFormatOf(g.format));
  ints[kHandleWidth] = static_cast<int>(g.width);
  ints[kHandleHeight] = static_cast<int>(g.height);
  ints[kHandleStride] = static_cast<int>(g.stride);
  ints[kHandleScanline] = static_cast<int>(g.scanline);
  ints[kHandleSizeLow] = static_cast<int>(static_cast<uint64_t>(m_size) & 0xFFFFFFFFu);
  ints[kHandleSizeHigh] = static_cast<int>(static_cast<uint64_t>(m_size) >> 32);
  std::lock_guard<std::mutex> lock(live().mutex);
  live().byHandle[m_handle] = this;
}

std::unique_ptr<ImageBuffer> ImageBuffer::allocate(const lumo::Geometry& geometry,
                                                   std::string* error) {
  auto fail = [error](const std::string& why) {
    if (error) *error = why;
    return std::unique_ptr<ImageBuffer>();
  };
  const lumo::Geometry g = lumo::completeGeometry(geometry);
  if (const std::string why = geometryProblem(g); !why.empty()) return fail(why);
  std::unique_ptr<ImageBuffer> b(new ImageBuffer);
  b->m_geometry = g;
  b->m_size = lumo::bufferBytes(g);
  b->m_fd = memfd_create("vyhost-image", MFD_CLOEXEC);
  if (b->m_fd < 0) return fail(std::string("memfd_create: ") + std::strerror(errno));
  if (ftruncate(b->m_fd, static_cast<off_t>(b->m_size)) != 0)
    return fail(std::string("ftruncate: ") + std::strerror(errno));
  void* p = mapFrame(b->m_fd, b->m_size);
  if (p == MAP_FAILED) return fail(std::string("mmap: ") + std::strerror(errno));
  b->m_data = static_cast<uint8_t*>(p);
  b->publish();
  return b;
}

std::unique_ptr<ImageBuffer> ImageBuffer::borrow(const lumo::Geometry& geometry, uint8_t* data,
                                                 size_t size, int fd, std::string* error) {
  auto fail = [error](const std::string& why) {
    if (error) *error = why;
    return std::unique_ptr<ImageBuffer>();
  };
  const lumo::Geometry g = lumo::completeGeometry(geometry);
  if (const std::string why = geometryProblem(g); !why.empty()) return fail(why);
  if (data == nullptr || size < lumo::bufferBytes(g))
    return fail("the memory lent is smaller than a " + std::string(lumo::formatName(g.format)) +
                " buffer of " + std::to_string(lumo::bufferBytes(g)) + " bytes");
  std::unique_ptr<ImageBuffer> b(new ImageBuffer);
  b->m_geometry = g;
  b->m_size = lumo::bufferBytes(g);
  b->m_fd = fcntl(fd, F_DUPFD_CLOEXEC, 0);
  if (b->m_fd < 0) return fail(std::string("dup: ") + std::strerror(errno));
  b->m_data = data;
  b->m_ownsMemory = false;
  b->publish();
  return b;
}

ImageBuffer::~ImageBuffer() {
  if (m_handle != nullptr) {
    std::lock_guard<std::mutex> lock(live().mutex);
    live().byHandle.erase(m_handle);
  }
  if (m_data != nullptr && m_ownsMemory) munmap(m_data, m_size);
  if (m_handle != nullptr) native_handle_delete(m_handle);  // the fd is closed below
  if (m_fd >= 0) close(m_fd);
}

uint8_t* ImageBuffer::plane(uint32_t index) const {
  if (index >= planeCount()) return nullptr;
  return m_data + planeOffset(index);
}

vyalgo2::ImageParams ImageBuffer::imageParams(std::shared_ptr<VyMetadata> metadata) const {
  vyalgo2::ImageParams p;
  p.format = halFormatOf(m_geometry.format);
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
