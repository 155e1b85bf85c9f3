// Selects and blends the frame's 3D LUT (by AI scene) and lens-shading record
// (by zoom ratio) from the calibration store, across lux and CCT.
#pragma once

#include <cstdint>
#include <map>
#include <string>

#include "paramUtil.h"
#include "param_records.h"

class ParamTrigger {
public:
  ParamTrigger() = default;

  // Selects from the process-wide store.
  void initialize(param_trigger_init_info info);
  // From a given store (tools and tests); it must outlive the trigger.
  void initialize(param_trigger_init_info info, const ParamUtil& store);

  // false when the frame's AI scene has no parameter set, or when the chosen
  // cell names a LUT or shading block the store does not hold (the frame then
  // has no parameters). `changed` is set (never cleared) when new content
  // was written into `lut` or `shading`.
  bool trigger(param_trigger_t input, param_lut_t* lut, param_shading_float_t* shading,
               bool& changed);
  bool triggerLut(param_trigger_t input, param_lut_t* lut, bool& changed);
  // true unless the cell names a shading block the store does not hold.
  bool triggerShading(param_trigger_t input, param_shading_float_t* shading, bool& changed);

  template <typename T>
  static void findElementAndPrevious(const T* list, unsigned short count, unsigned short value,
                                     T& previous, T& element);

  // Last selected indices: lower-lux/lower-CCT, lower/upper, upper/lower, upper/upper.
  int16_t m_lutIndex[4] = {-1, -1, -1, -1};
  int16_t m_shadingIndex[4] = {-1, -1, -1, -1};

  // What the LUT or shading selection picks for `input`: the four corner
  // indices (order as above) and their blend weights, with no change detection
  // and nothing written. Tools draw a calibration's coverage with it, so the
  // picture is the selection itself. chooseLut is false for an unknown scene.
  struct Choice {
    uint16_t corner[4];
    float weight[4];
  };
  bool chooseLut(const param_trigger_t& input, Choice& choice) const;
  void chooseShading(const param_trigger_t& input, Choice& choice) const;

  // The bracket records of one lux/CCT cell and its corner indices a, b, c, d.
  struct Cell {
    param_lux_t luxPrev, luxElem;
    param_cct_t cctPrevPrev, cctPrevElem, cctElemPrev, cctElemElem;
    uint16_t corner[4];
  };

private:
  // One of the two outputs, as the shared selection sees it.
  struct Output {
    const char* function;  // the selection it serves, for its log lines
    const char* name;      // "lut" or "shading", as the log lines call it
    const char* pool;      // "LUT" or "shading"
    uint32_t blocks;       // blocks in that pool
    int16_t* remembered;   // m_lutIndex or m_shadingIndex
  };
  enum class Outcome { OutsidePool, Unchanged, Changed };
  // The part both selections share: the cell of `set` around the frame's
  // lux and CCT, its corners logged, checked against the pool and compared
  // with (then stored as) the remembered ones; `changed` is set when they
  // differ.
  Outcome select(const Output& out, const param_t* set, const param_trigger_t& input, Cell& cell,
                 bool& changed);
  // The three bracket searches of a band list (null: no set, an empty list).
  static Cell findCell(const param_t* set, uint16_t lux, uint16_t cct);
  // The LUT set of a scene and the shading set of a zoom ratio (null when
  // there is none).
  const param_t* sceneSet(const std::string& scene) const;
  const param_t* zoomSet(float zoomRatio) const;

  uint8_t m_debugMode = 0;
  std::string m_name;
  // The store selected from; it outlives the trigger and never changes.
  const ParamUtil* m_store = nullptr;
};
