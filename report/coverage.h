// What the plugin's own selection picks over a plane of lux x CCT values:
// the calibration file is loaded by the plugin's store and every sample goes
// through ParamTrigger's choice (the same bracket search and weights a frame
// gets), so the map shows the selection, not a re-implementation of it.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace lumo::report {

struct CoverageSample {
  bool found = false;  // the scene has a parameter set
  std::array<uint16_t, 4> corner{};
  std::array<float, 4> weight{};
  bool inPool = true;  // every corner names a block the store holds
};

struct CoverageMap {
  std::string key;                      // scene name, or zoom ratio as text
  std::vector<double> lux;              // sample columns
  std::vector<double> cct;              // sample rows
  std::vector<CoverageSample> samples;  // cct.size() * lux.size(), row-major
};

// Log-spaced lux values from 1 to `maxLux` (integers, no repeats) and
// evenly spaced CCT values over [lo, hi].
std::vector<double> luxAxis(double maxLux, size_t count);
std::vector<double> cctAxis(double lo, double hi, size_t count);

class SelectionProbe {
public:
  // Loads `calibrationPath` with the plugin's store; its log lines are held
  // back while probing (a sample above every band makes the bracket search
  // complain, which is what the map shows anyway).
  explicit SelectionProbe(const std::string& calibrationPath);
  ~SelectionProbe();
  SelectionProbe(const SelectionProbe&) = delete;
  SelectionProbe& operator=(const SelectionProbe&) = delete;

  bool loaded() const;  // the store took the file
  uint32_t lutCount() const;
  uint32_t shadingCount() const;

  CoverageSample lut(const std::string& scene, uint16_t lux, uint16_t cct) const;
  CoverageSample shading(float zoom, uint16_t lux, uint16_t cct) const;

  CoverageMap sceneMap(const std::string& scene, const std::vector<double>& lux,
                       const std::vector<double>& cct) const;
  CoverageMap zoomMap(float zoom, const std::vector<double>& lux,
                      const std::vector<double>& cct) const;

  // The frame's blended LUT as the plugin computes it (false: no parameters).
  bool blendedLut(const std::string& scene, uint16_t lux, uint16_t cct,
                  std::vector<uint8_t>& lut) const;

private:
  struct State;
  std::unique_ptr<State> m_state;
};

}  // namespace lumo::report
