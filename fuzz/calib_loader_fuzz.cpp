// The plugin's calibration store: the input (less a few trailing bytes) is
// the calibration file as it would arrive with an update; the trailing bytes
// are the lux, CCT, zoom ratio and scene of a few frames that are then
// triggered against whatever the store accepted.
#include <fuzzer/FuzzedDataProvider.h>
#include <lumo/contract.h>

#include <cstring>
#include <memory>

#include "fuzz_support.h"
#include "paramTrigger.h"
#include "paramUtil.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  lumofuzz::quietLogs();
  FuzzedDataProvider in(data, size);
  param_trigger_t triggers[lumofuzz::kLoaderTriggers];
  for (param_trigger_t& t : triggers) {
    // The camera's scene names, then one that no file carries and the empty name.
    constexpr size_t kNames = std::size(lumo::kSceneNames);
    const size_t pick = in.ConsumeIntegral<uint8_t>() % (kNames + 2);
    t.aiscene = pick < kNames ? lumo::kSceneNames[pick] : pick == kNames ? "unknown" : "";
    t.lux = in.ConsumeIntegral<uint16_t>();
    t.cct = in.ConsumeIntegral<uint16_t>();
    const uint32_t zoomBits = in.ConsumeIntegral<uint32_t>();
    std::memcpy(&t.zoom_ratio, &zoomBits, sizeof(float));
  }
  const std::vector<uint8_t> file = in.ConsumeRemainingBytes<uint8_t>();

  ParamUtil store(lumofuzz::writeScratch(lumo::kParamFileName, file.data(), file.size()));
  store.printParam();

  ParamTrigger trigger;
  param_trigger_init_info info;
  info.debug_mode = true;
  info.instance_name = "fuzz";
  trigger.initialize(info, store);
  auto lut = std::make_unique<param_lut_t>();
  auto shading = std::make_unique<param_shading_float_t>();
  for (const param_trigger_t& t : triggers) {
    bool changed = false;
    trigger.trigger(t, lut.get(), shading.get(), changed);
  }
  return 0;
}
