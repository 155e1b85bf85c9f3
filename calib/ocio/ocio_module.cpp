// OpenColorIO behind the module's entry points.
#include "ocio_module.h"

#include <OpenColorIO/OpenColorIO.h>

namespace OCIO = OCIO_NAMESPACE;

namespace calib::ocio {
namespace {

const char* formatOfExtension(const char* extension) {
  const std::string ext = extension;
  for (int i = 0; i < OCIO::FileTransform::GetNumFormats(); ++i)
    if (ext == OCIO::FileTransform::GetFormatExtensionByIndex(i))
      return OCIO::FileTransform::GetFormatNameByIndex(i);
  return nullptr;
}

void readStructure(const OCIO::ConstProcessorRcPtr& processor, LutSourceInfo& info) {
  const OCIO::GroupTransformRcPtr group = processor->createGroupTransform();
  for (int i = 0; i < group->getNumTransforms(); ++i) {
    const OCIO::ConstTransformRcPtr t = group->getTransform(i);
    if (auto lut3 = OCIO::DynamicPtrCast<const OCIO::Lut3DTransform>(t)) {
      const int n = int(lut3->getGridSize());
      info.size3d = n;
      info.lattice.resize(size_t(n) * n * n * 3);
      size_t o = 0;
      for (int b = 0; b < n; ++b)
        for (int g = 0; g < n; ++g)
          for (int r = 0; r < n; ++r) {
            float v[3];
            lut3->getValue(r, g, b, v[0], v[1], v[2]);
            for (float x : v) info.lattice[o++] = x;
          }
    } else if (auto lut1 = OCIO::DynamicPtrCast<const OCIO::Lut1DTransform>(t)) {
      info.size1d = int(lut1->getLength());
    } else if (auto m = OCIO::DynamicPtrCast<const OCIO::MatrixTransform>(t)) {
      // A domain is a scale and offset in front of the lattice: in' = (in - min) / (max - min).
      double m44[16], offset[4];
      m->getMatrix(m44);
      m->getOffset(offset);
      for (int c = 0; c < 3; ++c) {
        const double scale = m44[c * 5];
        if (scale == 0) continue;
        info.domainMin[c] = -offset[c] / scale;
        info.domainMax[c] = info.domainMin[c] + 1 / scale;
      }
    } else if (auto range = OCIO::DynamicPtrCast<const OCIO::RangeTransform>(t)) {
      if (range->hasMinInValue()) info.domainMin.fill(range->getMinInValue());
      if (range->hasMaxInValue()) info.domainMax.fill(range->getMaxInValue());
    }
  }
}

struct Lut {
  OCIO::ConstCPUProcessorRcPtr cpu;
};

void* open(const char* source, LutSourceInfo* info, std::string* error) {
  try {
    // Files are cached by name; a name seen before may hold new contents.
    OCIO::ClearAllCaches();
    OCIO::ConstConfigRcPtr config = OCIO::Config::CreateRaw();
    OCIO::FileTransformRcPtr file = OCIO::FileTransform::Create();
    file->setSrc(source);
    // "Best" is tetrahedral for lattices and still allowed for 1D tables.
    file->setInterpolation(OCIO::INTERP_BEST);
    file->setDirection(OCIO::TRANSFORM_DIR_FORWARD);
    OCIO::ConstProcessorRcPtr processor = config->getProcessor(file);
    readStructure(processor, *info);
    return new Lut{processor->getOptimizedCPUProcessor(OCIO::BIT_DEPTH_F32, OCIO::BIT_DEPTH_F32,
                                                       OCIO::OPTIMIZATION_NONE)};
  } catch (const OCIO::Exception& e) {
    *error = e.what();
    return nullptr;
  }
}

void apply(const void* lut, float* rgb, long count) {
  OCIO::PackedImageDesc image(rgb, count, 1, 3);
  static_cast<const Lut*>(lut)->cpu->apply(image);
}

void close(void* lut) { delete static_cast<Lut*>(lut); }

constexpr Module kModule{formatOfExtension, open, apply, close};

}  // namespace
}  // namespace calib::ocio

extern "C" __attribute__((visibility("default"))) const calib::ocio::Module* lumoOcioModule() {
  return &calib::ocio::kModule;
}
