// Calibration records shared by the store, its dump and the trigger: the
// band records the two calibration trees are made of, and the trigger's
// input, initialisation and output records.
#pragma once

#include <lumo/calib_layout.h>

#include <cstddef>
#include <cstdint>
#include <string>

// One CCT band. Same image as the 6-byte file record.
struct param_cct_t {
  uint16_t param_start;          // lower CCT limit, kelvin, inclusive
  uint16_t param_end;            // upper CCT limit, kelvin, inclusive
  uint16_t param_cct_lut_index;  // block index into the pool of its tree
};
static_assert(sizeof(param_cct_t) == calib_layout::kCctBytes,
              "param_cct_t must match the file record");

// One lux band with its CCT bands (a view of an array the store owns).
struct param_lux_t {
  uint16_t start;  // lower lux limit, inclusive
  uint16_t end;    // upper lux limit, inclusive
  const param_cct_t* param_cct;
  uint16_t param_cct_count;
};

// The band list of one AI scene or one zoom ratio. A plain value: copying
// it copies the view, never the array (owned by the store).
struct param_t {
  const param_lux_t* param_lux;
  uint16_t param_lux_count;
};

// Which pool the block indices of a band list refer to. Other values are
// allowed (the reader then updates neither count), hence the fixed type.
enum param_type_t : int {
  PARAM_TYPE_SHADING = 0,
  PARAM_TYPE_LUT = 1,
};

// A 17 x 17 x 17 lattice of 3 bytes, in the calibration file's byte order.
constexpr size_t LUT_BYTES = calib_layout::kLutBlockBytes;
constexpr size_t SHADING_FLOATS = calib_layout::kShadingFloats;
constexpr size_t SHADING_BYTES = calib_layout::kShadingBlockBytes;

struct param_lut_t {
  uint8_t data[LUT_BYTES];
};
static_assert(sizeof(param_lut_t) == LUT_BYTES, "param_lut_t is the bare lattice");

// SmoothStartValue, SmoothEndValue, SmoothCoordScale, SmoothValueScale,
// LightDarkPreserveK, LightDarkPreserveB, LightDarkPreserveV, LightDarkPreserveT.
struct param_shading_float_t {
  float data[SHADING_FLOATS];
};
static_assert(sizeof(param_shading_float_t) == SHADING_BYTES, "eight packed floats");

// Trigger input of one frame.
struct param_trigger_t {
  uint16_t lux = 0;         // lux index, truncated to an integer
  uint16_t cct = 0;         // kelvin
  float zoom_ratio = 0.0f;  // chooses the shading set
  std::string aiscene;      // chooses the LUT set; exact, case-sensitive
};

struct param_trigger_init_info {
  bool debug_mode = false;  // 1: print the outputs after every selection
  std::string instance_name;
};
