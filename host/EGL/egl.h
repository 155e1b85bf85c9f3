// EGL types the plugin touches (subset of <EGL/egl.h>).
#pragma once

typedef void* EGLClientBuffer;
