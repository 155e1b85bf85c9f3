// In-memory description of a calibration file ("lumo_filter_param.bin"):
// the AI-scene and zoom-ratio band trees and the LUT and shading pools, plus
// the knobs needed to write the odd shapes the format allows.
#pragma once

#include <lumo/calib_layout.h>

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace calib {

// The layout's sizes under the names the toolkit uses.
constexpr size_t kLutEdge = calib_layout::kLutEdge;
constexpr size_t kLutBlockBytes = calib_layout::kLutBlockBytes;
constexpr size_t kShadingBlockFloats = calib_layout::kShadingFloats;
constexpr size_t kTextFieldBytes = calib_layout::kTextBytes;
constexpr size_t kSceneNameBytes = calib_layout::kSceneNameBytes;

struct CctBand {
  uint16_t start = 0;  // kelvin, inclusive
  uint16_t end = 0;
  uint16_t index = 0;  // block in the LUT pool (scenes) or shading pool (zooms)
};

struct LuxBand {
  uint16_t start = 0;
  uint16_t end = 0;
  std::vector<CctBand> ccts;
};

struct SceneBlock {
  std::string name;  // at most 63 bytes survive (NUL-terminated 64-byte field)
  std::vector<LuxBand> luxBands;
  // Declared block size; unset means exactly the encoded contents. A larger
  // value leaves (zero) trailing bytes that readers skip.
  std::optional<uint16_t> declaredSize;
};

struct ZoomBlock {
  float ratio = 1.0f;
  std::vector<LuxBand> luxBands;
  std::optional<uint16_t> declaredSize;
};

// One LUT block: 17^3 points of R, G, B bytes, red varying fastest.
using LutBlock = std::vector<uint8_t>;  // kLutBlockBytes
// SmoothStartValue, SmoothEndValue, SmoothCoordScale, SmoothValueScale,
// LightDarkPreserveK, LightDarkPreserveB, LightDarkPreserveV, LightDarkPreserveT.
using ShadingBlock = std::array<float, kShadingBlockFloats>;

struct CalibrationFile {
  std::vector<SceneBlock> scenes;
  std::vector<ZoomBlock> zooms;
  std::vector<LutBlock> luts;
  std::vector<ShadingBlock> shadings;
  uint16_t lut3dSize = 17;  // informational only; blocks are always 14739 bytes
  std::string triggerControl;
  std::string paramType;
  std::string paramRange;
  // Header overrides; unset means "where the writer puts it" (parameter data
  // right after the header, pools right after the parameter data). An
  // override places the part at that offset with zeros before it; one that
  // would overlap what precedes it is refused.
  std::optional<uint16_t> paramDataOffset;
  std::optional<uint16_t> lutDataOffset;
  std::vector<uint8_t> trailingBytes;  // appended after the pools
};

// Encodes the description. Throws std::invalid_argument naming the field
// when something cannot be encoded (a LUT of the wrong size, offsets past
// 65535, a declared size smaller than the contents, ...).
std::vector<uint8_t> serialize(const CalibrationFile& file);

// Writes atomically (temporary file, synced, then rename). false with `error`
// set: what is wrong with `file`, or the disk's failure naming `path`.
bool writeFile(const CalibrationFile& file, const std::string& path, std::string* error);

}  // namespace calib
