// Per-frame camera metadata as the plugin reads it: tag names, payload
// readers that refuse short payloads, and the scene-id and lux conversions.
#pragma once

#include <system/camera_metadata.h>

#include <cstddef>
#include <cstdint>
#include <string>

namespace lumo {

constexpr const char* kTagAwbFrameControl =
    "com.qti.stats.internal.perFrame.frameControl.AWBFrameControl";
constexpr const char* kTagAecFrameControl =
    "com.qti.stats.internal.perFrame.frameControl.AECFrameControl";
constexpr const char* kTagAiSceneResult = "zentor.ai.asd.algoSceneDetectedAIResult";
constexpr const char* kTagSnapshotImageName = "zentor.snapshot.imageName";
constexpr const char* kTagStylizationType = "com.zentor.sessionparams.stylizationType";

// Byte positions of the words read from the frame-control records.
constexpr size_t kAwbCctOffset = 12;  // uint32, kelvin
constexpr size_t kAecLuxOffset = 96;  // float, lux index

// Bytes one value of a metadata type takes; 0 for an unknown type.
size_t metadataTypeBytes(uint8_t type);
// Bytes of an entry's payload (count values of its type).
size_t payloadBytes(const camera_metadata_ro_entry_t& entry);

// Copies `width` bytes at `offset` of the payload into `out`. false when the
// tag is absent or its payload is too short to hold them: a truncated
// record counts as a missing one.
bool readPayload(const camera_metadata_ro_entry_t& entry, size_t offset, size_t width, void* out);

bool readU32(const camera_metadata_ro_entry_t& entry, size_t offset, uint32_t& out);
bool readFloat(const camera_metadata_ro_entry_t& entry, size_t offset, float& out);

// The text of a byte-string entry, up to its first NUL or its end.
bool readString(const camera_metadata_ro_entry_t& entry, std::string& out);

// Calibration scene name of a scene-detection id; "common" for ids without one.
const char* sceneNameForId(uint32_t sceneId);
// Name of the scene chosen when faces are present.
constexpr const char* kPortraitScene = "protrait";
constexpr const char* kCommonScene = "common";

// The lux index as the trigger takes it: truncated toward zero to int32
// (NaN giving 0, saturating beyond the int32 range), then its low 16 bits.
uint16_t luxFromIndex(float luxIndex);

}  // namespace lumo
