// The plugin's metadata reader (fillMetaDataInfo) over frames whose entries
// have arbitrary types and sizes: the tags the plugin reads, given as other
// components might write them (short records, wrong types, unterminated
// names, huge counts), mixed with unrelated tags.
#include <fuzzer/FuzzedDataProvider.h>
#include <system/camera_metadata_tags.h>
#include <vyalgo2/ImageParams.h>
#include <vyalgo2/VyMetadata.h>

#include <memory>

#include "VyLumoFilterPlugin.h"
#include "fuzz_support.h"
#include "lumoFrameMetadata.h"

namespace {

// Tags the reader looks at, plus two it does not.
const char* const kNamedTags[] = {lumo::kTagAwbFrameControl, lumo::kTagAecFrameControl,
                                  lumo::kTagAiSceneResult,   lumo::kTagSnapshotImageName,
                                  lumo::kTagStylizationType, "com.example.unrelated"};
const uint32_t kNumberedTags[] = {static_cast<uint32_t>(ANDROID_CONTROL_ZOOM_RATIO),
                                  static_cast<uint32_t>(ANDROID_STATISTICS_FACE_RECTANGLES),
                                  0x10000u};

// Bytes per value of each camera metadata type (byte, int32, float, int64,
// double, rational).
const size_t kTypeBytes[] = {1, 4, 4, 8, 8, 8};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  lumofuzz::quietLogs();
  FuzzedDataProvider in(data, size);
  auto metadata = std::make_shared<VyMetadata>();
  const int entries = in.ConsumeIntegralInRange<int>(0, 12);
  for (int e = 0; e < entries && in.remaining_bytes() != 0; ++e) {
    const uint8_t which = in.ConsumeIntegral<uint8_t>();
    const uint8_t type = in.ConsumeIntegralInRange<uint8_t>(0, 5);
    const size_t count = in.ConsumeIntegralInRange<size_t>(0, 160);
    std::vector<uint8_t> payload = in.ConsumeBytes<uint8_t>(count * kTypeBytes[type]);
    payload.resize(count * kTypeBytes[type]);  // zeros when the input ran out
    const size_t named = std::size(kNamedTags);
    const size_t slot = which % (named + std::size(kNumberedTags));
    if (slot < named)
      metadata->update(kNamedTags[slot], type, payload.data(), count);
    else
      metadata->update(kNumberedTags[slot - named], type, payload.data(), count);
  }
  vyalgo2::ImageParams image{};
  image.pMetadata = in.ConsumeBool() ? metadata : nullptr;
  VyLumoFilterPlugin plugin;
  plugin.fillMetaDataInfo(image);
  return 0;
}
