// The recording filter and its journal.
#include <hostsim/recording_filter.h>

#include <algorithm>
#include <mutex>
#include <set>
#include <utility>

namespace hostsim {
namespace {

// Live recording filters, so the fault decorator can journal the calls it
// fails without needing run-time type information from the filter.
struct LiveRecorders {
  std::mutex mutex;
  std::set<const videoprocess::VideoFilter*> filters;
};

LiveRecorders& liveRecorders() {
  static LiveRecorders l;
  return l;
}

}  // namespace

void FilterJournal::add(FilterCall call) {
  std::lock_guard<std::mutex> lock(m_mutex);
  m_calls.push_back(std::move(call));
}

std::vector<FilterCall> FilterJournal::calls() const {
  std::lock_guard<std::mutex> lock(m_mutex);
  return m_calls;
}

std::vector<std::string> FilterJournal::names() const {
  std::lock_guard<std::mutex> lock(m_mutex);
  std::vector<std::string> out;
  out.reserve(m_calls.size());
  for (const auto& c : m_calls) out.push_back(c.name);
  return out;
}

int FilterJournal::destroyed() const {
  std::lock_guard<std::mutex> lock(m_mutex);
  return m_destroyed;
}

void FilterJournal::noteDestroyed() {
  std::lock_guard<std::mutex> lock(m_mutex);
  ++m_destroyed;
}

void FilterJournal::clear() {
  std::lock_guard<std::mutex> lock(m_mutex);
  m_calls.clear();
  m_destroyed = 0;
}

std::shared_ptr<FilterJournal> defaultFilterJournal() {
  static std::shared_ptr<FilterJournal> journal = std::make_shared<FilterJournal>();
  return journal;
}

RecordingFilter::RecordingFilter(videoprocess::VideoFormat format,
                                 std::shared_ptr<FilterJournal> journal)
    : m_format(format), m_journal(journal ? std::move(journal) : defaultFilterJournal()) {
  std::lock_guard<std::mutex> lock(liveRecorders().mutex);
  liveRecorders().filters.insert(this);
}

RecordingFilter::~RecordingFilter() {
  {
    std::lock_guard<std::mutex> lock(liveRecorders().mutex);
    liveRecorders().filters.erase(this);
  }
  m_journal->noteDestroyed();
}

RecordingFilter* RecordingFilter::recorderOf(videoprocess::VideoFilter* filter) {
  std::lock_guard<std::mutex> lock(liveRecorders().mutex);
  return liveRecorders().filters.count(filter) != 0 ? static_cast<RecordingFilter*>(filter)
                                                    : nullptr;
}

FilterCall RecordingFilter::lutCall(const uint8_t* lut, int size, int index, int channels,
                                    int depth) {
  FilterCall call;
  call.name = "addLutEffectData";
  call.size = size;
  call.index = index;
  call.channels = channels;
  call.depth = depth;
  if (lut != nullptr && size > 0 && channels > 0 && size <= 256 && channels <= 16) {
    const size_t bytes = static_cast<size_t>(size) * size * size * channels;
    call.lut.assign(lut, lut + bytes);
  }
  return call;
}

FilterCall RecordingFilter::frameCall(videoprocess::FilterFrameParam* in,
                                      videoprocess::FilterFrameParam* out) {
  FilterCall call;
  call.name = "processFrame";
  if (in != nullptr) call.in = *in;
  if (out != nullptr) call.out = *out;
  return call;
}

void RecordingFilter::recordFailed(FilterCall call) {
  call.failed = true;
  m_journal->add(std::move(call));
}

bool RecordingFilter::addLutEffectData(const uint8_t* lut, int size, int index, int channels,
                                       int depth) {
  m_journal->add(lutCall(lut, size, index, channels, depth));
  return lut != nullptr;
}

int RecordingFilter::getEffectCount() const {
  if (m_script.empty()) return 0;
  return 1 + static_cast<int>(std::count(m_script.begin(), m_script.end(), '@'));
}

void RecordingFilter::setFilterScript(std::string script) {
  FilterCall call;
  call.name = "setFilterScript";
  call.script = script;
  m_journal->add(std::move(call));
  m_script = std::move(script);
}

void RecordingFilter::setProfiling(bool enable) {
  FilterCall call;
  call.name = "setProfiling";
  call.index = enable ? 1 : 0;
  m_journal->add(std::move(call));
}

int RecordingFilter::processFrame(videoprocess::FilterFrameParam* in,
                                  videoprocess::FilterFrameParam* out) {
  m_journal->add(frameCall(in, out));
  return 0;
}

void RecordingFilter::clearEffects() {
  FilterCall call;
  call.name = "clearEffects";
  m_journal->add(std::move(call));
  m_script.clear();
}

}  // namespace hostsim
