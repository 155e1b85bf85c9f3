// Encodes a calibration description into the byte layout the plugin loads
// (lumo/calib_layout.h), and writes it to disk atomically.
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <limits>
#include <stdexcept>
#include <string>
#include <vector>

#include "atomic_file.h"
#include "calib/calibration_file.h"
#include "failure.h"

namespace calib {
namespace {

constexpr size_t kU16Max = std::numeric_limits<uint16_t>::max();

class Encoder {
public:
  void u16(uint16_t v) {
    bytes.push_back(static_cast<uint8_t>(v & 0xFF));
    bytes.push_back(static_cast<uint8_t>(v >> 8));
  }
  void f32(float v) {
    uint32_t bits;
    std::memcpy(&bits, &v, sizeof(bits));
    for (int i = 0; i < 4; i++) bytes.push_back(static_cast<uint8_t>(bits >> (8 * i)));
  }
  // A NUL-terminated text in a zero-filled field; longer texts are cut.
  void text(const std::string& s, size_t field) {
    const size_t n = std::min(s.size(), field - 1);
    bytes.insert(bytes.end(), s.begin(), s.begin() + static_cast<std::ptrdiff_t>(n));
    bytes.insert(bytes.end(), field - n, 0);
  }
  void padTo(size_t size) {
    if (bytes.size() < size) bytes.resize(size, 0);
  }
  std::vector<uint8_t> bytes;
};

uint16_t checkedU16(size_t value, const std::string& what) {
  if (value > kU16Max) {
    throw std::invalid_argument(what + " is " + std::to_string(value) + ", more than 65535");
  }
  return static_cast<uint16_t>(value);
}

void encodeBands(Encoder& out, const std::vector<LuxBand>& bands, const std::string& where) {
  out.u16(checkedU16(bands.size(), where + " lux band count"));
  for (size_t i = 0; i < bands.size(); i++) {
    const LuxBand& lux = bands[i];
    out.u16(lux.start);
    out.u16(lux.end);
    out.u16(checkedU16(lux.ccts.size(), where + " lux band " + std::to_string(i) + " CCT count"));
    for (const CctBand& cct : lux.ccts) {
      out.u16(cct.start);
      out.u16(cct.end);
      out.u16(cct.index);
    }
  }
}

// Encodes one block and returns its size as the header declares it.
uint16_t finishBlock(Encoder& block, const std::optional<uint16_t>& declared,
                     const std::string& where) {
  const size_t contents = block.bytes.size();
  if (!declared) return checkedU16(contents, where + " size");
  if (*declared < contents) {
    throw std::invalid_argument(where + " declaredSize " + std::to_string(*declared) +
                                " is smaller than its contents (" + std::to_string(contents) +
                                " bytes)");
  }
  block.padTo(*declared);
  return *declared;
}

// An override may only move a part further back, leaving zeros before it.
size_t placeAt(const std::optional<uint16_t>& override, size_t natural, const std::string& what) {
  if (!override) return natural;
  if (*override < natural) {
    throw std::invalid_argument(what + " " + std::to_string(*override) +
                                " would overlap what precedes it (which ends at " +
                                std::to_string(natural) + ")");
  }
  return *override;
}

}  // namespace

std::vector<uint8_t> serialize(const CalibrationFile& file) {
  std::vector<Encoder> blocks;
  std::vector<uint16_t> sceneSizes;
  std::vector<uint16_t> zoomSizes;
  for (size_t i = 0; i < file.scenes.size(); i++) {
    const SceneBlock& scene = file.scenes[i];
    const std::string where = "scene " + std::to_string(i) + " (" + scene.name + ")";
    Encoder block;
    block.text(scene.name, kSceneNameBytes);
    encodeBands(block, scene.luxBands, where);
    sceneSizes.push_back(finishBlock(block, scene.declaredSize, where));
    blocks.push_back(std::move(block));
  }
  for (size_t j = 0; j < file.zooms.size(); j++) {
    const ZoomBlock& zoom = file.zooms[j];
    const std::string where = "zoom block " + std::to_string(j);
    Encoder block;
    block.f32(zoom.ratio);
    encodeBands(block, zoom.luxBands, where);
    zoomSizes.push_back(finishBlock(block, zoom.declaredSize, where));
    blocks.push_back(std::move(block));
  }

  const uint16_t sceneCount = checkedU16(file.scenes.size(), "scene count");
  const uint16_t zoomCount = checkedU16(file.zooms.size(), "zoom block count");
  const size_t headerBytes = calib_layout::headerBytes(sceneCount, zoomCount);
  const size_t paramStart = placeAt(file.paramDataOffset, headerBytes, "paramDataOffset");
  size_t paramBytes = 0;
  for (uint16_t s : sceneSizes) paramBytes += s;
  for (uint16_t s : zoomSizes) paramBytes += s;
  const size_t lutStart = placeAt(file.lutDataOffset, paramStart + paramBytes, "lutDataOffset");

  Encoder out;
  out.u16(sceneCount);
  for (uint16_t s : sceneSizes) out.u16(s);
  out.u16(checkedU16(paramStart, "paramDataOffset"));
  out.u16(checkedU16(lutStart, "lutDataOffset"));
  out.u16(file.lut3dSize);
  out.u16(zoomCount);
  for (uint16_t s : zoomSizes) out.u16(s);
  out.text(file.triggerControl, kTextFieldBytes);
  out.text(file.paramType, kTextFieldBytes);
  out.text(file.paramRange, kTextFieldBytes);
  out.padTo(paramStart);
  for (const Encoder& block : blocks) {
    out.bytes.insert(out.bytes.end(), block.bytes.begin(), block.bytes.end());
  }
  out.padTo(lutStart);
  for (size_t i = 0; i < file.luts.size(); i++) {
    if (file.luts[i].size() != kLutBlockBytes) {
      throw std::invalid_argument("LUT " + std::to_string(i) + " has " +
                                  std::to_string(file.luts[i].size()) + " bytes, not " +
                                  std::to_string(kLutBlockBytes));
    }
    out.bytes.insert(out.bytes.end(), file.luts[i].begin(), file.luts[i].end());
  }
  for (const ShadingBlock& shading : file.shadings) {
    for (float v : shading) out.f32(v);
  }
  out.bytes.insert(out.bytes.end(), file.trailingBytes.begin(), file.trailingBytes.end());
  return std::move(out.bytes);
}

bool writeFile(const CalibrationFile& file, const std::string& path, std::string* error) {
  auto fail = [&](const std::string& message) {
    if (error != nullptr) *error = message;
    return false;
  };
  std::vector<uint8_t> bytes;
  try {
    bytes = serialize(file);
  } catch (const std::invalid_argument& e) {
    return fail(e.what());
  }
  // The device loads this file at boot: it reaches the disk before it
  // replaces the previous one.
  try {
    lumo::writeFileAtomically(path, bytes.data(), bytes.size(), lumo::Durability::sync);
  } catch (const lumo::Failure& e) {
    return fail(e.what());
  }
  return true;
}

}  // namespace calib
