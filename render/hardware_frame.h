// The pixels behind a FilterFrameParam: the EGL client buffer leads to an
// AHardwareBuffer, which is described and locked for CPU access.
#pragma once

#include <android/hardware_buffer.h>
#include <videoprocess/FilterFrameParam.h>

#include <string>

#include "frame_view.h"

namespace lumo::render {

// Holds the buffer locked while it lives.
class LockedFrame {
public:
  LockedFrame() = default;
  ~LockedFrame();
  LockedFrame(const LockedFrame&) = delete;
  LockedFrame& operator=(const LockedFrame&) = delete;

  // Empty on success, otherwise why the frame cannot be used.
  std::string lock(const videoprocess::FilterFrameParam& param, uint64_t usage);
  const FrameView& view() const { return m_view; }
  AHardwareBuffer* buffer() const { return m_buffer; }

private:
  AHardwareBuffer* m_buffer = nullptr;
  bool m_locked = false;
  FrameView m_view;
};

// The view of a locked buffer's planes; empty string on success.
std::string describePlanes(const AHardwareBuffer_Desc& desc, const AHardwareBuffer_Planes& planes,
                           uint32_t width, uint32_t height, FrameView& view);

}  // namespace lumo::render
