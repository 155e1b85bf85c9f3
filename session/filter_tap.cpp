// The filter decorator behind FilterTap.
#include "filter_tap.h"

#include <hostsim/recording_filter.h>

#include <utility>

namespace lumo {
namespace {

class TappedFilter : public videoprocess::VideoFilter {
public:
  TappedFilter(videoprocess::VideoFilter* inner, std::shared_ptr<FilterTap::Journal> journal)
      : m_inner(inner), m_journal(std::move(journal)) {}
  ~TappedFilter() override { delete m_inner; }

  bool addLutEffectData(const uint8_t* lut, int size, int index, int channels, int depth) override {
    m_lutLoaded = m_inner->addLutEffectData(lut, size, index, channels, depth);
    return m_lutLoaded;
  }
  int getEffectCount() const override { return m_inner->getEffectCount(); }
  void setFilterScript(std::string script) override {
    m_script = script;
    m_lutLoaded = false;  // a new chain has no LUT until one is loaded into it
    m_inner->setFilterScript(std::move(script));
  }
  void setProfiling(bool enable) override { m_inner->setProfiling(enable); }
  int processFrame(videoprocess::FilterFrameParam* in,
                   videoprocess::FilterFrameParam* out) override {
    const int result = m_inner->processFrame(in, out);
    std::lock_guard<std::mutex> lock(m_journal->mutex);
    m_journal->renders.push_back(
        {m_script, m_lutLoaded, result, in ? in->width : 0u, in ? in->height : 0u});
    return result;
  }
  void clearEffects() override {
    m_script.clear();
    m_lutLoaded = false;
    m_inner->clearEffects();
  }

private:
  videoprocess::VideoFilter* m_inner;
  std::shared_ptr<FilterTap::Journal> m_journal;
  std::string m_script;
  bool m_lutLoaded = false;
};

}  // namespace

FilterTap::FilterTap()
    : m_journal(std::make_shared<Journal>()),
      m_override([journal = m_journal](videoprocess::VideoFormat format,
                                       bool shared) -> videoprocess::VideoFilter* {
        // Looked up per filter: the SDK registers itself when its library
        // loads, which may be with the plugin, after the tap was made.
        const hostsim::FilterFactory sdk = hostsim::sdkFilterFactory();
        videoprocess::VideoFilter* inner =
            sdk ? sdk(format, shared) : new hostsim::RecordingFilter(format, nullptr);
        return inner == nullptr ? nullptr : new TappedFilter(inner, journal);
      }) {}

std::vector<FilterRender> FilterTap::take() {
  std::lock_guard<std::mutex> lock(m_journal->mutex);
  return std::exchange(m_journal->renders, {});
}

}  // namespace lumo
