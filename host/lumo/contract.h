// What the colour-look plugin and the camera host agree on, written once:
// the provider and instance names, the system properties, the device paths
// and dump names, the metadata tags with their payloads, the scene table in
// the camera's own spelling and the rule that faces make a portrait. The
// plugin, the simulator, the tools, the fuzz targets and the tests all take
// these facts from here.
#pragma once

#include <system/camera_metadata.h>
#include <system/camera_metadata_tags.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>

namespace lumo {

// The provider the plugin registers, and the names of its two instances.
constexpr const char* kProviderName = "com.zentor.plugin.vylumofilter";
constexpr const char* kPreviewInstance = "RealTimePreview";
constexpr const char* kSnapshotInstance = "OfflineSnapshot";

// System properties. The first four are read once when the library loads;
// the debug overrides when an instance initialises in debug mode.
constexpr const char* kPropForceEnable = "persist.vendor.camera.lumofilter.forceEnable";
constexpr const char* kPropBypassMode = "persist.vendor.camera.lumofilter.bypassMode";
constexpr const char* kPropDumpMode = "persist.vendor.camera.lumofilter.dumpMode";
constexpr const char* kPropDebug = "persist.vendor.camera.lumofilter.debug";
constexpr const char* kPropDebugScene = "persist.vendor.camera.lumofilter.aiscene";
constexpr const char* kPropDebugLux = "persist.vendor.camera.lumofilter.lux";
constexpr const char* kPropDebugCct = "persist.vendor.camera.lumofilter.cct";

// Device paths (phone spelling; the simulator maps them under its root).
constexpr const char* kParamFilePath = "/odm/etc/camera/lumo_filter_param.bin";
constexpr const char* kParamFileName = "lumo_filter_param.bin";
constexpr const char* kDumpFolder = "/data/vendor/camera/";

// Dump names, as printf formats.
// Preview text dump: instance name, local time "%Y-%m-%d_%H-%M-%S".
constexpr const char* kPreviewExifName = "lumo_filter_%s_%s_exif.txt";
// Snapshot text dump: image name, instance name.
constexpr const char* kSnapshotExifName = "%s_lumo_filter_%s_exif.txt";
constexpr const char* kExifSuffix = "_exif.txt";
// Image dump: image name, module, instance, frame number, role, width,
// height, stride; the host's dump utility adds the format's extension.
constexpr const char* kImageDumpName = "%s_[%s]_%s_frame[%u]_%s_%ux%u_%u";
constexpr const char* kImageDumpModule = "lumofilter";

// Vendor metadata tags read per frame, found by name.
constexpr const char* kTagAwbFrameControl =
    "com.qti.stats.internal.perFrame.frameControl.AWBFrameControl";
constexpr const char* kTagAecFrameControl =
    "com.qti.stats.internal.perFrame.frameControl.AECFrameControl";
constexpr const char* kTagAiSceneResult = "zentor.ai.asd.algoSceneDetectedAIResult";
constexpr const char* kTagSnapshotImageName = "zentor.snapshot.imageName";
// The session's stylisation switch, read when the host asks whether to run.
constexpr const char* kTagStylizationType = "com.zentor.sessionparams.stylizationType";

// Payloads. The frame-control records are opaque byte blobs (TYPE_BYTE) of
// the camera stack; only one word of each is read.
constexpr uint8_t kFrameControlType = TYPE_BYTE;
constexpr size_t kAwbRecordBytes = 64;
constexpr size_t kAwbCctOffset = 12;  // uint32, kelvin
constexpr size_t kAecRecordBytes = 128;
constexpr size_t kAecLuxOffset = 96;                 // float, lux index
constexpr uint8_t kAiSceneType = TYPE_INT32;         // one scene id
constexpr uint8_t kFaceRectanglesType = TYPE_INT32;  // four values a face
constexpr size_t kFaceRectangleValues = 4;
constexpr uint8_t kZoomRatioType = TYPE_FLOAT;   // one float
constexpr uint8_t kImageNameType = TYPE_BYTE;    // NUL-terminated text
constexpr uint8_t kStylizationType = TYPE_BYTE;  // one byte, non-zero: run
// Standard tags, found by number.
constexpr uint32_t kTagFaceRectangles = ANDROID_STATISTICS_FACE_RECTANGLES;
constexpr uint32_t kTagZoomRatio = ANDROID_CONTROL_ZOOM_RATIO;

// Bytes one value of a metadata type takes; 0 for an unknown type.
inline size_t metadataTypeBytes(uint8_t type) {
  switch (type) {
    case TYPE_BYTE:
      return 1;
    case TYPE_INT32:
    case TYPE_FLOAT:
      return 4;
    case TYPE_INT64:
    case TYPE_DOUBLE:
    case TYPE_RATIONAL:
      return 8;
    default:
      return 0;
  }
}

// The scene table: detector ids and the calibration scene each one selects.
// The spelling is the camera's ("protrait" included); calibration files
// must use it, since scene names are matched byte for byte.
constexpr const char* kCommonScene = "common";
constexpr const char* kPlantsScene = "plants";
constexpr const char* kNightScene = "night";
constexpr const char* kSunsetScene = "sunrise_sunset";
constexpr const char* kFoodScene = "food";
constexpr const char* kPortraitScene = "protrait";
constexpr uint32_t kCommonSceneId = 0;
struct SceneIdName {
  uint32_t id;
  const char* name;
};
// The first row with a name gives that name's usual id.
constexpr SceneIdName kSceneIds[] = {
    {3, kPlantsScene}, {4, kPlantsScene}, {5, kPlantsScene},  {6, kPlantsScene}, {9, kNightScene},
    {10, kNightScene}, {14, kNightScene}, {13, kSunsetScene}, {2, kFoodScene},
};
// Every scene the camera reports, in the order tools list them.
constexpr const char* kSceneNames[] = {kCommonScene, kPlantsScene, kNightScene,
                                       kSunsetScene, kFoodScene,   kPortraitScene};

// The calibration scene of a detector id; common for an id without one.
inline const char* sceneNameForId(uint32_t id) {
  for (const SceneIdName& row : kSceneIds) {
    if (row.id == id) return row.name;
  }
  return kCommonScene;
}

// The usual detector id of a scene name. false for the portrait (which the
// camera reports through faces, not an id) and for unknown names.
inline bool detectorIdOfScene(const char* name, uint32_t& id) {
  if (std::strcmp(name, kCommonScene) == 0) {
    id = kCommonSceneId;
    return true;
  }
  for (const SceneIdName& row : kSceneIds) {
    if (std::strcmp(row.name, name) == 0) {
      id = row.id;
      return true;
    }
  }
  return false;
}

inline bool isCameraScene(const std::string& name) {
  for (const char* known : kSceneNames) {
    if (name == known) return true;
  }
  return false;
}

// "common, plants, ..., protrait", for messages.
inline std::string sceneNameList() {
  std::string list;
  for (const char* name : kSceneNames) list += (list.empty() ? "" : ", ") + std::string(name);
  return list;
}

// Faces make a portrait: any face rectangle overrides the detected scene.
// A face is four values, so an entry of 1 to 3 values counts no face.
inline uint32_t faceCountOf(size_t values) { return static_cast<uint32_t>(values >> 2); }
inline bool facesMakePortrait(uint32_t faces) { return faces != 0; }

}  // namespace lumo
