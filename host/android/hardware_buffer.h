// AHardwareBuffer NDK surface (subset of <android/hardware_buffer.h>).
#pragma once

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef struct AHardwareBuffer AHardwareBuffer;

typedef struct AHardwareBuffer_Desc {
  uint32_t width;
  uint32_t height;
  uint32_t layers;
  uint32_t format; /* the HAL pixel format the buffer was allocated with */
  uint64_t usage;
  uint32_t stride; /* row stride in pixels */
  uint32_t rfu0;
  uint64_t rfu1;
} AHardwareBuffer_Desc;

typedef struct AHardwareBuffer_Plane {
  void* data;
  uint32_t pixelStride; /* bytes between two samples of this plane */
  uint32_t rowStride;   /* bytes between two rows of this plane */
} AHardwareBuffer_Plane;

typedef struct AHardwareBuffer_Planes {
  uint32_t planeCount;
  AHardwareBuffer_Plane planes[4];
} AHardwareBuffer_Planes;

typedef struct ARect {
  int32_t left;
  int32_t top;
  int32_t right;
  int32_t bottom;
} ARect;

enum {
  AHARDWAREBUFFER_USAGE_CPU_READ_OFTEN = 3ULL,
  AHARDWAREBUFFER_USAGE_CPU_WRITE_OFTEN = 3ULL << 4,
  AHARDWAREBUFFER_USAGE_GPU_SAMPLED_IMAGE = 1ULL << 8,
  AHARDWAREBUFFER_USAGE_GPU_FRAMEBUFFER = 1ULL << 9,
};

void AHardwareBuffer_acquire(AHardwareBuffer* buffer);
void AHardwareBuffer_release(AHardwareBuffer* buffer);
void AHardwareBuffer_describe(const AHardwareBuffer* buffer, AHardwareBuffer_Desc* outDesc);
// Y, Cb, Cr planes for YUV buffers (pixelStride 2 for semi-planar chroma),
// one plane for RGBA. Returns 0 on success, a negative errno otherwise.
int AHardwareBuffer_lockPlanes(AHardwareBuffer* buffer, uint64_t usage, int32_t fence,
                               const ARect* rect, AHardwareBuffer_Planes* outPlanes);
int AHardwareBuffer_lock(AHardwareBuffer* buffer, uint64_t usage, int32_t fence, const ARect* rect,
                         void** outVirtualAddress);
int AHardwareBuffer_unlock(AHardwareBuffer* buffer, int32_t* fence);

#ifdef __cplusplus
}
#endif
