// Tag names and payload layouts of the metadata the camera stack attaches
// to frames and sessions, as the simulator writes them.
#pragma once

#include <cstddef>

namespace hostsim {

constexpr const char* kTagAwbFrameControl =
    "com.qti.stats.internal.perFrame.frameControl.AWBFrameControl";
constexpr const char* kTagAecFrameControl =
    "com.qti.stats.internal.perFrame.frameControl.AECFrameControl";
constexpr const char* kTagAiSceneResult = "zentor.ai.asd.algoSceneDetectedAIResult";
constexpr const char* kTagSnapshotImageName = "zentor.snapshot.imageName";
constexpr const char* kTagStylizationType = "com.zentor.sessionparams.stylizationType";

// Frame-control records are opaque byte blobs; the words the camera
// consumers read sit at fixed offsets.
constexpr size_t kAwbRecordBytes = 64;
constexpr size_t kAwbCctOffset = 12;  // uint32 kelvin
constexpr size_t kAecRecordBytes = 128;
constexpr size_t kAecLuxOffset = 96;  // float lux index

}  // namespace hostsim
