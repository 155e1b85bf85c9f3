// The filter SDK's filter object: an effect chain described by a script,
// a 3D LUT uploaded separately, and a render call.
#pragma once

#include <videoprocess/FilterFrameParam.h>

#include <cstdint>
#include <string>

namespace videoprocess {

class VideoFilter {
public:
  VideoFilter() = default;
  VideoFilter(const VideoFilter&) = delete;
  VideoFilter& operator=(const VideoFilter&) = delete;
  virtual ~VideoFilter() = default;

  // Loads a `size`^3 lattice of `channels` bytes per point into the LUT
  // effect of the current script. false when the data cannot be used.
  virtual bool addLutEffectData(const uint8_t* lut, int size, int index, int channels,
                                int depth) = 0;
  // Number of effects in the current chain.
  virtual int getEffectCount() const = 0;
  // Replaces the effect chain with the one the script describes.
  virtual void setFilterScript(std::string script) = 0;
  // Switches the SDK's own per-frame statistics on or off.
  virtual void setProfiling(bool enable) = 0;
  // Renders `in` into `out` (which may be the same image). 0 on success.
  virtual int processFrame(FilterFrameParam* in, FilterFrameParam* out) = 0;
  // Drops every effect (and the uploaded LUT).
  virtual void clearEffects() = 0;
};

}  // namespace videoprocess
