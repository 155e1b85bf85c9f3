// Camera metadata entry records (subset of <system/camera_metadata.h>).
#pragma once

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

enum {
  TYPE_BYTE = 0,
  TYPE_INT32 = 1,
  TYPE_FLOAT = 2,
  TYPE_INT64 = 3,
  TYPE_DOUBLE = 4,
  TYPE_RATIONAL = 5,
  NUM_TYPES
};

typedef struct camera_metadata_rational {
  int32_t numerator;
  int32_t denominator;
} camera_metadata_rational_t;

typedef struct camera_metadata_ro_entry {
  size_t index;
  uint32_t tag;
  uint8_t type;
  size_t count;  // number of values of `type`; 0 when the tag is absent
  union {
    const uint8_t* u8;
    const int32_t* i32;
    const float* f;
    const int64_t* i64;
    const double* d;
    const camera_metadata_rational_t* r;
  } data;
} camera_metadata_ro_entry_t;

#ifdef __cplusplus
}
#endif
