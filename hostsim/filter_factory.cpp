// The factory chain createFilter goes through on Linux (injected failure,
// test override, the SDK's factory, the recording fallback) and
// the decorator that makes every filter it hands out subject to the
// injected LUT and render faults.
#include <hostsim/filter_factory.h>
#include <hostsim/recording_filter.h>

#include <mutex>
#include <utility>
#include <vector>

namespace hostsim {
namespace {

struct FactoryState {
  std::mutex mutex;
  FilterFactory override;
  FilterFaults faults;
  std::vector<int> formats;  // of every createFilter call
};

FactoryState& state() {
  static FactoryState s;
  return s;
}

// Consumes one fault from a counter: positive counts down, negative is forever.
bool take(int& counter) {
  if (counter == 0) return false;
  if (counter > 0) --counter;
  return true;
}

// Forwards to the filter it owns unless a fault is due; a failed call still
// reaches the journal of a recording filter, marked as failed.
class FaultInjectingFilter : public videoprocess::VideoFilter {
public:
  explicit FaultInjectingFilter(videoprocess::VideoFilter* inner) : m_inner(inner) {}
  ~FaultInjectingFilter() override { delete m_inner; }

  bool addLutEffectData(const uint8_t* lut, int size, int index, int channels, int depth) override {
    if (takeRefuseLutFault()) {
      if (RecordingFilter* r = RecordingFilter::recorderOf(m_inner))
        r->recordFailed(RecordingFilter::lutCall(lut, size, index, channels, depth));
      return false;
    }
    return m_inner->addLutEffectData(lut, size, index, channels, depth);
  }
  int getEffectCount() const override { return m_inner->getEffectCount(); }
  void setFilterScript(std::string script) override { m_inner->setFilterScript(std::move(script)); }
  void setProfiling(bool enable) override { m_inner->setProfiling(enable); }
  int processFrame(videoprocess::FilterFrameParam* in,
                   videoprocess::FilterFrameParam* out) override {
    if (takeRenderFault()) {
      if (RecordingFilter* r = RecordingFilter::recorderOf(m_inner))
        r->recordFailed(RecordingFilter::frameCall(in, out));
      return -1;
    }
    return m_inner->processFrame(in, out);
  }
  void clearEffects() override { m_inner->clearEffects(); }

private:
  videoprocess::VideoFilter* m_inner;
};

}  // namespace

FilterFactoryOverride::FilterFactoryOverride(FilterFactory factory) {
  std::lock_guard<std::mutex> lock(state().mutex);
  m_previous = std::move(state().override);
  state().override = std::move(factory);
}

FilterFactoryOverride::~FilterFactoryOverride() {
  std::lock_guard<std::mutex> lock(state().mutex);
  state().override = std::move(m_previous);
}

void setFilterFaults(const FilterFaults& faults) {
  std::lock_guard<std::mutex> lock(state().mutex);
  state().faults = faults;
}

FilterFaults filterFaults() {
  std::lock_guard<std::mutex> lock(state().mutex);
  return state().faults;
}

bool takeCreateFault() {
  std::lock_guard<std::mutex> lock(state().mutex);
  return take(state().faults.failCreateCount);
}

bool takeRefuseLutFault() {
  std::lock_guard<std::mutex> lock(state().mutex);
  return take(state().faults.refuseLutCount);
}

bool takeRenderFault() {
  std::lock_guard<std::mutex> lock(state().mutex);
  return take(state().faults.failRenderCount);
}

int createFilterCalls() {
  std::lock_guard<std::mutex> lock(state().mutex);
  return static_cast<int>(state().formats.size());
}

std::vector<int> createFilterFormats() {
  std::lock_guard<std::mutex> lock(state().mutex);
  return state().formats;
}

void resetCreateFilterCalls() {
  std::lock_guard<std::mutex> lock(state().mutex);
  state().formats.clear();
}

videoprocess::VideoFilter* makeFilter(videoprocess::VideoFormat format, bool sharedContext,
                                      const FilterFactory& sdk) {
  FilterFactory factory;
  {
    std::lock_guard<std::mutex> lock(state().mutex);
    state().formats.push_back(static_cast<int>(format));
    factory = state().override ? state().override : sdk;
  }
  if (takeCreateFault()) return nullptr;
  // The factory runs unlocked: it may itself consult the seam.
  videoprocess::VideoFilter* made =
      factory ? factory(format, sharedContext) : new RecordingFilter(format, nullptr);
  if (made == nullptr) return nullptr;
  return new FaultInjectingFilter(made);
}

}  // namespace hostsim
