// Reference chart, renderer calls and in-memory encoding.
#include "pictures.h"

#include <chain_plan.h>
#include <effect_script.h>
#include <reference_renderer.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <stdexcept>

#include "failure.h"
#include "image_files.h"
#include "yuv_convert.h"

namespace lumo::report {
namespace {

Image renderChain(const Image& rgba, const render::EffectChain& chain) {
  Image in = rgba;
  Image out = makeImage(in.geometry);
  const render::ChainPlan plan(chain, in.geometry.width, in.geometry.height);
  render::renderReferenceRows(plan, render::frameView(in.geometry, in.bytes.data()),
                              render::frameView(out.geometry, out.bytes.data()), 0,
                              in.geometry.height);
  return out;
}

// Encoders write to a stream; an in-memory one keeps the bytes.
template <typename Encode>
std::vector<uint8_t> encodeToMemory(Encode encode) {
  char* data = nullptr;
  size_t size = 0;
  std::FILE* out = open_memstream(&data, &size);
  if (out == nullptr) throw Failure("report: cannot open an in-memory stream");
  try {
    encode(out);
  } catch (...) {
    std::fclose(out);
    std::free(data);
    throw;
  }
  std::fclose(out);
  std::vector<uint8_t> bytes(data, data + size);
  std::free(data);
  return bytes;
}

}  // namespace

const std::vector<ChartPatch>& chartPatches() {
  // Colour patches close to the classic colour checker's sRGB values, the
  // range of skin tones a portrait look has to keep, and a six-step grey ramp.
  static const std::vector<ChartPatch> kPatches = {
      {"dark skin", 115, 82, 68},
      {"light skin", 194, 150, 130},
      {"blue sky", 98, 122, 157},
      {"foliage", 87, 108, 67},
      {"blue flower", 133, 128, 177},
      {"bluish green", 103, 189, 170},
      {"orange", 214, 126, 44},
      {"purplish blue", 80, 91, 166},
      {"moderate red", 193, 90, 99},
      {"yellow green", 157, 188, 64},
      {"red", 175, 54, 60},
      {"blue", 56, 61, 150},
      {"skin very light", 241, 212, 190},
      {"skin light", 226, 184, 154},
      {"skin medium", 198, 145, 110},
      {"skin tan", 165, 114, 82},
      {"skin brown", 120, 80, 58},
      {"skin dark", 78, 52, 40},
      {"white", 243, 243, 242},
      {"grey 8", 200, 200, 200},
      {"grey 6.5", 160, 160, 160},
      {"grey 5", 122, 122, 121},
      {"grey 3.5", 85, 85, 85},
      {"black", 52, 52, 52},
  };
  return kPatches;
}

Image referenceChart() {
  Image chart = makeImage(completeGeometry(
      {PixelFormat::RGBA, kChartColumns * kChartPatch, kChartRows * kChartPatch, 0, 0}));
  const auto& patches = chartPatches();
  for (uint32_t y = 0; y < chart.geometry.height; ++y) {
    uint8_t* row = chart.row(y);
    for (uint32_t x = 0; x < chart.geometry.width; ++x) {
      const ChartPatch& p = patches[(y / kChartPatch) * kChartColumns + x / kChartPatch];
      uint8_t* px = row + 4 * x;
      px[0] = p.r;
      px[1] = p.g;
      px[2] = p.b;
      px[3] = 255;
    }
  }
  return chart;
}

Image applyLut(const Image& rgba, const uint8_t* lattice, double strength) {
  render::EffectChain chain;
  render::LutEffect lut;
  lut.strength = strength;
  lut.hasLattice = true;
  std::memcpy(lut.lattice.data(), lattice, lut.lattice.size());
  chain.luts.push_back(lut);
  chain.order.push_back(render::EffectKind::Lut);
  return renderChain(rgba, chain);
}

Image applyScript(const Image& rgba, const std::string& script, const uint8_t* lattice,
                  double strength) {
  render::ScriptResult parsed = render::parseEffectScript(script);
  if (!parsed.ok)
    throw std::invalid_argument("the renderer does not understand the script: " + parsed.error);
  for (render::LutEffect& lut : parsed.chain.luts) {
    lut.strength = strength;
    lut.hasLattice = true;
    std::memcpy(lut.lattice.data(), lattice, lut.lattice.size());
  }
  return renderChain(rgba, parsed.chain);
}

Image toRgba(const Image& image) {
  if (image.geometry.format == PixelFormat::RGBA) return image;
  return convertImage(image, PixelFormat::RGBA);
}

Image thumbnail(const Image& rgba, uint32_t maxSide) {
  const uint32_t w = rgba.geometry.width, h = rgba.geometry.height;
  const uint32_t side = std::max(w, h);
  if (side <= maxSide || side == 0) return rgba;
  const uint32_t tw = std::max(1u, uint32_t(uint64_t(w) * maxSide / side));
  const uint32_t th = std::max(1u, uint32_t(uint64_t(h) * maxSide / side));
  Image out = makeImage(completeGeometry({PixelFormat::RGBA, tw, th, 0, 0}));
  for (uint32_t y = 0; y < th; ++y) {
    const uint32_t y0 = uint32_t(uint64_t(y) * h / th),
                   y1 = std::max(y0 + 1, uint32_t(uint64_t(y + 1) * h / th));
    for (uint32_t x = 0; x < tw; ++x) {
      const uint32_t x0 = uint32_t(uint64_t(x) * w / tw),
                     x1 = std::max(x0 + 1, uint32_t(uint64_t(x + 1) * w / tw));
      uint64_t sum[4] = {};
      for (uint32_t sy = y0; sy < y1; ++sy)
        for (uint32_t sx = x0; sx < x1; ++sx)
          for (int c = 0; c < 4; ++c) sum[c] += rgba.row(sy)[4 * sx + c];
      const uint64_t n = uint64_t(y1 - y0) * (x1 - x0);
      for (int c = 0; c < 4; ++c) out.row(y)[4 * x + c] = uint8_t((sum[c] + n / 2) / n);
    }
  }
  return out;
}

std::vector<uint8_t> pngBytes(const Image& rgba) {
  return encodeToMemory([&](std::FILE* out) { encodePng(rgba, out, "report picture"); });
}

std::vector<uint8_t> jpegBytes(const Image& rgba, int quality) {
  return encodeToMemory([&](std::FILE* out) { encodeJpeg(rgba, out, "report picture", quality); });
}

}  // namespace lumo::report
