// .cube import through OpenColorIO and export as plain text.
#include <OpenColorIO/OpenColorIO.h>
#include <calib/cube_lut.h>

#include <cctype>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace OCIO = OCIO_NAMESPACE;

namespace calib {
namespace {

// Only the header lines matter for the report; OpenColorIO validates the rest.
CubeInfo scanHeader(const std::string& path) {
  CubeInfo info;
  std::ifstream in(path);
  std::string line;
  while (std::getline(in, line)) {
    if (!line.empty() && line.back() == '\r') line.pop_back();
    std::istringstream words(line);
    std::string key;
    words >> key;
    if (key == "TITLE") {
      const auto q1 = line.find('"'), q2 = line.rfind('"');
      if (q1 != std::string::npos && q2 > q1) info.title = line.substr(q1 + 1, q2 - q1 - 1);
    } else if (key == "LUT_3D_SIZE") {
      words >> info.size3d;
    } else if (key == "LUT_1D_SIZE") {
      words >> info.size1d;
    } else if (!key.empty() && (std::isdigit(static_cast<unsigned char>(key[0])) || key[0] == '-' ||
                                key[0] == '.')) {
      break;  // table data begins
    }
  }
  return info;
}

}  // namespace

LutBlock readCube(const std::string& path, CubeInfo* info) {
  if (!std::ifstream(path)) throw std::runtime_error(path + ": cannot open .cube file");
  if (info != nullptr) *info = scanHeader(path);
  std::vector<float> points(kLutEdge * kLutEdge * kLutEdge * 3);
  size_t o = 0;
  for (size_t b = 0; b < kLutEdge; ++b)
    for (size_t g = 0; g < kLutEdge; ++g)
      for (size_t r = 0; r < kLutEdge; ++r) {
        points[o++] = float(r) / float(kLutEdge - 1);
        points[o++] = float(g) / float(kLutEdge - 1);
        points[o++] = float(b) / float(kLutEdge - 1);
      }
  try {
    OCIO::ConstConfigRcPtr config = OCIO::Config::CreateRaw();
    OCIO::FileTransformRcPtr file = OCIO::FileTransform::Create();
    file->setSrc(path.c_str());
    file->setInterpolation(OCIO::INTERP_TETRAHEDRAL);
    file->setDirection(OCIO::TRANSFORM_DIR_FORWARD);
    OCIO::ConstProcessorRcPtr processor = config->getProcessor(file);
    OCIO::ConstCPUProcessorRcPtr cpu = processor->getOptimizedCPUProcessor(
        OCIO::BIT_DEPTH_F32, OCIO::BIT_DEPTH_F32, OCIO::OPTIMIZATION_NONE);
    OCIO::PackedImageDesc image(points.data(), long(kLutEdge * kLutEdge * kLutEdge), 1, 3);
    cpu->apply(image);
  } catch (const OCIO::Exception& e) {
    throw std::runtime_error(path + ": cannot read .cube file: " + e.what());
  }
  LutBlock lut(kLutBlockBytes);
  for (size_t i = 0; i < lut.size(); ++i) {
    const float v = points[i];
    lut[i] = std::isfinite(v) ? uint8_t(std::lround(std::fmin(std::fmax(v, 0.0f), 1.0f) * 255))
                              : uint8_t(0);
  }
  return lut;
}

std::string cubeText(const LutBlock& lut, const std::string& title) {
  std::string out = "TITLE \"" + title + "\"\nLUT_3D_SIZE " + std::to_string(kLutEdge) + "\n";
  char row[64];
  for (size_t i = 0; i + 2 < lut.size(); i += 3) {
    std::snprintf(row, sizeof(row), "%.6f %.6f %.6f\n", lut[i] / 255.0, lut[i + 1] / 255.0,
                  lut[i + 2] / 255.0);
    out += row;
  }
  return out;
}

}  // namespace calib
