// The filter SDK's factory seam on Linux. ProcessorCreator::createFilter asks,
// in order: the fault injection, a test override, the registered SDK (the
// renderer registers itself when its library loads), and finally falls back
// to a RecordingFilter.
#pragma once

#include <videoprocess/ProcessorCreator.h>

#include <functional>
#include <vector>

namespace hostsim {

using FilterFactory = std::function<videoprocess::VideoFilter*(videoprocess::VideoFormat, bool)>;

// Called by the SDK stand-in at load time. Returns true.
bool registerSdkFilterFactory(FilterFactory factory);
bool hasSdkFilterFactory();
// The registered SDK factory (empty when none), for overrides that decorate it.
FilterFactory sdkFilterFactory();

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
