// The filter SDK's filter object on Linux: script, LUT upload and rendering
// on the CPU through FrameRenderer.
#pragma once

#include <videoprocess/VideoFilter.h>

#include <cstdint>
#include <mutex>
#include <string>

#include "frame_renderer.h"

namespace lumo::render {

inline constexpr const char* kLogTag = "VideoProcess";

class SdkFilter : public videoprocess::VideoFilter {
public:
  SdkFilter(videoprocess::VideoFormat format, RenderOptions options);
  ~SdkFilter() override = default;

  bool addLutEffectData(const uint8_t* lut, int size, int index, int channels, int depth) override;
  int getEffectCount() const override;
  void setFilterScript(std::string script) override;
  void setProfiling(bool enable) override;
  int processFrame(videoprocess::FilterFrameParam* in,
                   videoprocess::FilterFrameParam* out) override;
  void clearEffects() override;

  videoprocess::VideoFormat format() const { return m_format; }

private:
  int render(const videoprocess::FilterFrameParam& in, const videoprocess::FilterFrameParam& out);

  const videoprocess::VideoFormat m_format;
  mutable std::mutex m_mutex;  // the host serialises calls; this keeps misuse harmless
  FrameRenderer m_renderer;
  bool m_profiling = false;
  bool m_warnedMissingLut = false;
};

}  // namespace lumo::render
