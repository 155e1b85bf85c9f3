// Locking the buffer behind a FilterFrameParam and describing its planes.
#include "hardware_frame.h"

#include <platform/client_buffer.h>
#include <system/graphics.h>

namespace lumo::render {

LockedFrame::~LockedFrame() {
  if (m_locked) AHardwareBuffer_unlock(m_buffer, nullptr);
}

std::string describePlanes(const AHardwareBuffer_Desc& desc, const AHardwareBuffer_Planes& planes,
                           uint32_t width, uint32_t height, FrameView& view) {
  view = FrameView{};
  view.width = width;
  view.height = height;
  if (desc.format == HAL_PIXEL_FORMAT_RGBA_8888) {
    if (planes.planeCount < 1 || planes.planes[0].pixelStride != 4)
      return "RGBA plane is not 4 bytes per pixel";
    view.layout = FrameLayout::RGBA;
    view.luma = static_cast<uint8_t*>(planes.planes[0].data);
    view.lumaStride = planes.planes[0].rowStride;
    return {};
  }
  if (desc.format != HAL_PIXEL_FORMAT_YCrCb_420_SP && desc.format != HAL_PIXEL_FORMAT_YCbCr_420_SP)
    return "unsupported pixel format " + std::to_string(desc.format);
  if (planes.planeCount < 3) return "YUV buffer with fewer than 3 planes";
  const AHardwareBuffer_Plane& y = planes.planes[0];
  const AHardwareBuffer_Plane& cb = planes.planes[1];
  const AHardwareBuffer_Plane& cr = planes.planes[2];
  const auto* cbData = static_cast<uint8_t*>(cb.data);
  const auto* crData = static_cast<uint8_t*>(cr.data);
  if (y.pixelStride != 1 || cb.pixelStride != 2 || cr.pixelStride != 2 ||
      cb.rowStride != cr.rowStride)
    return "chroma is not semi-planar";
  // The interleaving order comes from the planes themselves.
  if (crData + 1 == cbData) {
    view.layout = FrameLayout::NV21;
    view.chroma = static_cast<uint8_t*>(cr.data);
  } else if (cbData + 1 == crData) {
    view.layout = FrameLayout::NV12;
    view.chroma = static_cast<uint8_t*>(cb.data);
  } else {
    return "chroma samples are not interleaved";
  }
  view.luma = static_cast<uint8_t*>(y.data);
  view.lumaStride = y.rowStride;
  view.chromaStride = cb.rowStride;
  return {};
}

std::string LockedFrame::lock(const videoprocess::FilterFrameParam& param, uint64_t usage) {
  if (param.clientBuffer == nullptr) return "no client buffer";
  m_buffer = vyplatform::hardwareBufferFromClientBuffer(param.clientBuffer);
  if (m_buffer == nullptr) return "client buffer has no hardware buffer";
  AHardwareBuffer_Desc desc{};
  AHardwareBuffer_describe(m_buffer, &desc);
  // The record's size wins when it names a part of the buffer; zero means all of it.
  const uint32_t width = param.width != 0 ? param.width : desc.width;
  const uint32_t height = param.height != 0 ? param.height : desc.height;
  if (width > desc.width || height > desc.height)
    return "frame " + std::to_string(width) + "x" + std::to_string(height) +
           " exceeds its buffer " + std::to_string(desc.width) + "x" + std::to_string(desc.height);
  AHardwareBuffer_Planes planes{};
  const int rc = AHardwareBuffer_lockPlanes(m_buffer, usage, -1, nullptr, &planes);
  if (rc != 0) return "lockPlanes failed: " + std::to_string(rc);
  m_locked = true;
  if (std::string why = describePlanes(desc, planes, width, height, m_view); !why.empty())
    return why;
  return checkFrameView(m_view);
}

}  // namespace lumo::render
