// The filter object: effect script, LUT upload, frame rendering, with a log
// line for every request it cannot honour.
#include "sdk_filter.h"

#include <android/log.h>

#include <chrono>

#include "effect_script.h"
#include "hardware_frame.h"

namespace lumo::render {

#define SDK_LOG(priority, ...) __android_log_print(priority, kLogTag, __VA_ARGS__)

SdkFilter::SdkFilter(videoprocess::VideoFormat format, RenderOptions options)
    : m_format(format), m_renderer(options) {}

bool SdkFilter::addLutEffectData(const uint8_t* lut, int size, int index, int channels, int depth) {
  std::lock_guard<std::mutex> lock(m_mutex);
  if (lut == nullptr) {
    SDK_LOG(ANDROID_LOG_ERROR, "addLutEffectData: no LUT data");
    return false;
  }
  if (size != kLutSize) {
    SDK_LOG(ANDROID_LOG_ERROR, "addLutEffectData: lattice size %d unsupported (only %d)", size,
            kLutSize);
    return false;
  }
  if (channels != kLutChannels) {
    SDK_LOG(ANDROID_LOG_ERROR, "addLutEffectData: %d channels unsupported (only %d)", channels,
            kLutChannels);
    return false;
  }
  const size_t luts = m_renderer.chain().luts.size();
  if (luts == 0) {
    SDK_LOG(ANDROID_LOG_ERROR, "addLutEffectData: the script has no CubeLutEffect");
    return false;
  }
  // -1 loads every LUT effect; otherwise the index counts LUT effects in script order.
  if (index < -1 || (index >= 0 && size_t(index) >= luts)) {
    SDK_LOG(ANDROID_LOG_ERROR, "addLutEffectData: no CubeLutEffect at index %d (%zu in the script)",
            index, luts);
    return false;
  }
  for (size_t i = 0; i < luts; ++i) {
    if (index == -1 || size_t(index) == i) m_renderer.setLattice(i, lut);
  }
  SDK_LOG(ANDROID_LOG_DEBUG, "addLutEffectData: %d-point lattice loaded (index %d, depth %d)", size,
          index, depth);
  return true;
}

int SdkFilter::getEffectCount() const {
  std::lock_guard<std::mutex> lock(m_mutex);
  return int(m_renderer.chain().size());
}

void SdkFilter::setFilterScript(std::string script) {
  std::lock_guard<std::mutex> lock(m_mutex);
  ScriptResult parsed = parseEffectScript(script);
  for (const std::string& warning : parsed.warnings)
    SDK_LOG(ANDROID_LOG_WARN, "setFilterScript: %s", warning.c_str());
  if (!parsed.ok) {
    SDK_LOG(ANDROID_LOG_ERROR, "setFilterScript: script not understood, no effects: %s",
            parsed.error.c_str());
  }
  m_renderer.setChain(std::move(parsed.chain));
  m_warnedMissingLut = false;
}

void SdkFilter::setProfiling(bool enable) {
  std::lock_guard<std::mutex> lock(m_mutex);
  m_profiling = enable;
}

void SdkFilter::clearEffects() {
  std::lock_guard<std::mutex> lock(m_mutex);
  m_renderer.setChain(EffectChain{});
}

int SdkFilter::processFrame(videoprocess::FilterFrameParam* in,
                            videoprocess::FilterFrameParam* out) {
  std::lock_guard<std::mutex> lock(m_mutex);
  if (in == nullptr || out == nullptr) {
    SDK_LOG(ANDROID_LOG_ERROR, "processFrame: missing %s frame",
            in == nullptr ? "input" : "output");
    return -1;
  }
  return render(*in, *out);
}

int SdkFilter::render(const videoprocess::FilterFrameParam& in,
                      const videoprocess::FilterFrameParam& out) {
  const auto start = std::chrono::steady_clock::now();
  const bool inPlace = in.clientBuffer == out.clientBuffer;
  LockedFrame source, target;
  std::string why = source.lock(
      in, inPlace ? AHARDWAREBUFFER_USAGE_CPU_READ_OFTEN | AHARDWAREBUFFER_USAGE_CPU_WRITE_OFTEN
                  : AHARDWAREBUFFER_USAGE_CPU_READ_OFTEN);
  if (!why.empty()) {
    SDK_LOG(ANDROID_LOG_ERROR, "processFrame: input unusable: %s", why.c_str());
    return -1;
  }
  if (!inPlace) {
    why = target.lock(out, AHARDWAREBUFFER_USAGE_CPU_WRITE_OFTEN);
    if (!why.empty()) {
      SDK_LOG(ANDROID_LOG_ERROR, "processFrame: output unusable: %s", why.c_str());
      return -1;
    }
  }
  for (const LutEffect& lut : m_renderer.chain().luts) {
    if (!lut.hasLattice && !m_warnedMissingLut) {
      SDK_LOG(ANDROID_LOG_WARN,
              "processFrame: CubeLutEffect has no LUT data; it leaves colours as they are");
      m_warnedMissingLut = true;
    }
  }
  const FrameView& src = source.view();
  const FrameView& dst = inPlace ? source.view() : target.view();
  why = m_renderer.render(src, dst);
  if (!why.empty()) {
    SDK_LOG(ANDROID_LOG_ERROR, "processFrame: %s", why.c_str());
    return -1;
  }
  if (m_profiling) {
    const double ms =
        std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
    SDK_LOG(ANDROID_LOG_INFO, "processFrame: %ux%u, %zu effects, %s path, %zu threads: %.3f ms",
            src.width, src.height, m_renderer.chain().size(),
            m_renderer.lastPath() == RenderPath::Reference ? "reference"
            : m_renderer.lastUsedFixedPoint()              ? "fixed-point"
                                                           : "fused",
            m_renderer.options().threads, ms);
  }
  return 0;
}

}  // namespace lumo::render
