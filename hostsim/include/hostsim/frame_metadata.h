// Writing (and reading back) the frame conditions the camera stack attaches
// to each frame: white balance, exposure, detected scene, faces, zoom, the
// snapshot name, and the session's stylisation type.
#pragma once

#include <vyalgo2/VyMetadata.h>

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace hostsim {

// Each field that holds a value becomes one metadata entry; empty ones are
// left out (as when the camera stack did not produce them).
struct FrameConditions {
  std::optional<uint32_t> cct;                     // kelvin, in the AWB frame-control record
  std::optional<float> luxIndex;                   // in the AEC frame-control record
  std::optional<uint32_t> aiScene;                 // scene id of the AI scene detector
  std::optional<std::vector<int32_t>> faceValues;  // four int32 per face
  std::optional<float> zoomRatio;
  std::optional<std::string> imageName;
  std::optional<uint8_t> stylizationType;
};

// Face values for rectangles given as (left, top, right, bottom).
std::vector<int32_t> faceRectangles(const std::vector<std::array<int32_t, 4>>& faces);

// Each returns 0, or -1 when the entry cannot be written.
int setAwbCct(VyMetadata& metadata, uint32_t cct);
int setAecLuxIndex(VyMetadata& metadata, float luxIndex);
int setAiScene(VyMetadata& metadata, uint32_t sceneId);
int setFaceValues(VyMetadata& metadata, const std::vector<int32_t>& values);
int setZoomRatio(VyMetadata& metadata, float zoomRatio);
// Stored with its terminating NUL, as the camera stack does.
int setImageName(VyMetadata& metadata, const std::string& name);
int setStylizationType(VyMetadata& metadata, uint8_t type);

// Writes every present field; 0 when all were written.
int writeFrameConditions(VyMetadata& metadata, const FrameConditions& conditions);
std::shared_ptr<VyMetadata> makeFrameMetadata(const FrameConditions& conditions);

// The fields whose entries are present and large enough to hold them.
FrameConditions readFrameConditions(const VyMetadata& metadata);

}  // namespace hostsim
