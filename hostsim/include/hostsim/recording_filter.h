// A filter that renders nothing and records every call it receives, so tests
// can check what the plugin asked of the SDK and in which order.
#pragma once

#include <videoprocess/VideoFilter.h>

#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace hostsim {

struct FilterCall {
  std::string name;    // "addLutEffectData", "setFilterScript", "processFrame", "clearEffects", ...
  std::string script;  // setFilterScript
  std::vector<uint8_t> lut;                          // addLutEffectData: size^3 * channels bytes
  int size = 0, index = 0, channels = 0, depth = 0;  // addLutEffectData
  videoprocess::FilterFrameParam in{}, out{};        // processFrame
  bool failed = false;  // refused or failed by an injected fault (see filter_factory.h)
};

// Shared by a test and the filters it makes: survives the filter's deletion.
class FilterJournal {
public:
  void add(FilterCall call);
  std::vector<FilterCall> calls() const;
  std::vector<std::string> names() const;
  int destroyed() const;
  void noteDestroyed();
  void clear();

private:
  mutable std::mutex m_mutex;
  std::vector<FilterCall> m_calls;
  int m_destroyed = 0;
};

// The journal of recording filters made without one (createFilter's fallback
// when no SDK is registered).
std::shared_ptr<FilterJournal> defaultFilterJournal();

class RecordingFilter : public videoprocess::VideoFilter {
public:
  // A null journal means defaultFilterJournal().
  RecordingFilter(videoprocess::VideoFormat format, std::shared_ptr<FilterJournal> journal);
  ~RecordingFilter() override;

  bool addLutEffectData(const uint8_t* lut, int size, int index, int channels, int depth) override;
  int getEffectCount() const override;
  void setFilterScript(std::string script) override;
  void setProfiling(bool enable) override;
  int processFrame(videoprocess::FilterFrameParam* in,
                   videoprocess::FilterFrameParam* out) override;
  void clearEffects() override;

  videoprocess::VideoFormat format() const { return m_format; }
  const std::string& script() const { return m_script; }

  // `filter` as a live RecordingFilter, or null when it is something else.
  static RecordingFilter* recorderOf(videoprocess::VideoFilter* filter);
  // Journal entries for the two calls a fault can fail.
  static FilterCall lutCall(const uint8_t* lut, int size, int index, int channels, int depth);
  static FilterCall frameCall(videoprocess::FilterFrameParam* in,
                              videoprocess::FilterFrameParam* out);
  // Journals a call that a fault failed before it reached this filter.
  void recordFailed(FilterCall call);

private:
  videoprocess::VideoFormat m_format;
  std::shared_ptr<FilterJournal> m_journal;
  std::string m_script;
};

}  // namespace hostsim
