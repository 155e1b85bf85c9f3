// Pictures of the report: the reference chart, a LUT (or a whole effect
// script) applied to a picture by the renderer's own reference path, scaled
// thumbnails, and their encoding as PNG or JPEG bytes for data URIs.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "image.h"

namespace lumo::report {

// Patch layout of the reference chart: colour patches, skin tones and a grey
// ramp, each patch kChartPatch pixels square.
constexpr int kChartColumns = 6;
constexpr int kChartRows = 4;
constexpr int kChartPatch = 10;

struct ChartPatch {
  const char* name;
  uint8_t r, g, b;  // sRGB
};
// Row by row: two rows of colour patches, one of skin tones, one grey ramp.
const std::vector<ChartPatch>& chartPatches();
// kChartColumns * kChartPatch by kChartRows * kChartPatch, RGBA.
Image referenceChart();

// The picture through one LUT block (17^3 RGB bytes, red fastest) at the
// given strength, by the renderer's reference arithmetic.
Image applyLut(const Image& rgba, const uint8_t* lattice, double strength = 1.0);
// The picture through an effect script with its LUT effects given `lattice`
// at `strength` (other effects as the script says). Throws
// std::invalid_argument when the renderer does not understand the script.
Image applyScript(const Image& rgba, const std::string& script, const uint8_t* lattice,
                  double strength);

// RGBA of any image the tool holds (YUV goes through full-range BT.601).
Image toRgba(const Image& image);
// Box-filtered so neither side exceeds `maxSide` (never enlarged).
Image thumbnail(const Image& rgba, uint32_t maxSide);

std::vector<uint8_t> pngBytes(const Image& rgba);
std::vector<uint8_t> jpegBytes(const Image& rgba, int quality);

}  // namespace lumo::report
