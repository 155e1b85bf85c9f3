// android::GraphicBuffer: wraps a gralloc buffer handle for the GPU.
#pragma once

#include <android/hardware_buffer.h>
#include <cutils/native_handle.h>
#include <utils/RefBase.h>
#include <utils/StrongPointer.h>

#include <cstdint>

namespace android {

using PixelFormat = int32_t;

class GraphicBuffer : public RefBase {
public:
  enum HandleWrapMethod : uint8_t {
    WRAP_HANDLE,  // the caller keeps ownership of the handle
    TAKE_HANDLE,
    TAKE_UNREGISTERED_HANDLE,
    CLONE_HANDLE,
  };

  enum {
    USAGE_SW_READ_OFTEN = 0x00000003U,
    USAGE_SW_WRITE_OFTEN = 0x00000030U,
    USAGE_HW_TEXTURE = 0x00000100U,
    USAGE_HW_RENDER = 0x00000200U,
  };

  GraphicBuffer(const native_handle_t* inHandle, HandleWrapMethod method, uint32_t inWidth,
                uint32_t inHeight, PixelFormat inFormat, uint32_t inLayerCount, uint64_t inUsage,
                uint32_t inStride);

  // 0 when the handle was accepted, a negative errno otherwise.
  int initCheck() const { return m_initCheck; }
  uint32_t getWidth() const { return m_width; }
  uint32_t getHeight() const { return m_height; }
  uint32_t getStride() const { return m_stride; }
  PixelFormat getPixelFormat() const { return m_format; }
  uint64_t getUsage() const { return m_usage; }
  const native_handle_t* getNativeBuffer() const { return m_handle; }

  AHardwareBuffer* toAHardwareBuffer();
  const AHardwareBuffer* toAHardwareBuffer() const;

protected:
  ~GraphicBuffer() override;

private:
  const native_handle_t* m_handle;
  HandleWrapMethod m_method;
  uint32_t m_width;
  uint32_t m_height;
  PixelFormat m_format;
  uint32_t m_layerCount;
  uint64_t m_usage;
  uint32_t m_stride;
  int m_initCheck;
};

}  // namespace android
