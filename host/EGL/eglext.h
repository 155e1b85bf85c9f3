// EGL extension entry used to hand an AHardwareBuffer to the GPU
// (EGL_ANDROID_get_native_client_buffer).
#pragma once

#include <EGL/egl.h>
#include <android/hardware_buffer.h>

#ifdef __cplusplus
extern "C" {
#endif

EGLClientBuffer eglGetNativeClientBufferANDROID(const struct AHardwareBuffer* buffer);

#ifdef __cplusplus
}
#endif
