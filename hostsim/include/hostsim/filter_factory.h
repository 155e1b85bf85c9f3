// The filter SDK's factory seam on Linux. The SDK's
// ProcessorCreator::createFilter (render/) hands its own factory to makeFilter,
// which asks, in order: the fault injection, a test override, that factory,
// and finally falls back to a RecordingFilter.
#pragma once

#include <videoprocess/ProcessorCreator.h>

#include <functional>
#include <vector>

namespace hostsim {

using FilterFactory = std::function<videoprocess::VideoFilter*(videoprocess::VideoFormat, bool)>;

// A filter as createFilter hands it out: records the call, consumes a create
// fault (null), then asks a test's override or else `sdk` (a RecordingFilter
// on the default journal when `sdk` is empty), and puts what it gets behind
// the fault decorator.
videoprocess::VideoFilter* makeFilter(videoprocess::VideoFormat format, bool sharedContext,
                                      const FilterFactory& sdk);

// Replaces the factory while it lives (tests install recording or failing filters).
class FilterFactoryOverride {
public:
  explicit FilterFactoryOverride(FilterFactory factory);
  ~FilterFactoryOverride();
  FilterFactoryOverride(const FilterFactoryOverride&) = delete;
  FilterFactoryOverride& operator=(const FilterFactoryOverride&) = delete;

private:
  FilterFactory m_previous;
};

// Faults the simulated SDK produces, for the plugin's recovery paths.
struct FilterFaults {
  int failCreateCount = 0;  // next N createFilter calls return null (-1: all)
  int refuseLutCount = 0;   // next N addLutEffectData calls return false (-1: all)
  int failRenderCount = 0;  // next N processFrame calls return -1 (-1: all)
};
// Applies to filters made through createFilter while set; reset with {}.
// Every filter createFilter hands out (the SDK's included) sits behind a
// decorator that consumes these faults; a failed call does not reach the
// filter, but a RecordingFilter journals it with `failed` set.
void setFilterFaults(const FilterFaults& faults);
FilterFaults filterFaults();
// Consumes one fault of a kind; true when the call must fail.
bool takeCreateFault();
bool takeRefuseLutFault();
bool takeRenderFault();

// Number of createFilter calls so far, and the formats asked for.
int createFilterCalls();
std::vector<int> createFilterFormats();
void resetCreateFilterCalls();

}  // namespace hostsim
