// Off the phone there is no EGL driver: the host's EGL client buffer is the
// AHardwareBuffer itself, and the filter SDK stand-in turns it back into
// pixels with the AHardwareBuffer calls.
#pragma once

#include <EGL/egl.h>
#include <android/hardware_buffer.h>

namespace vyplatform {

AHardwareBuffer* hardwareBufferFromClientBuffer(EGLClientBuffer buffer);

}  // namespace vyplatform
