// Records the framework hands to plugins. The plugin reads only a few fields
// (processMode, the buffer maps, frameNum, the session metadata); the rest
// belong to the framework and are passed through untouched.
#pragma once

#include <vyalgo2/ImageParams.h>
#include <vyalgo2/VyMetadata.h>

#include <cstdint>
#include <map>
#include <memory>
#include <vector>

namespace vyalgo2 {

struct CreateInfo {
  uint32_t processMode = 0;  // 0 offline snapshot, 1 real-time preview
  uint32_t cameraId = 0;
  uint32_t nodeId = 0;
};

// Callbacks and identity of the pipeline node that hosts the plugin.
struct VyaNodeInterface {
  void* node = nullptr;
  uint32_t nodeId = 0;
  uint32_t pipelineId = 0;
};

struct VyaParams {
  std::shared_ptr<VyMetadata> pSessionMetadata;  // session parameters
  std::shared_ptr<VyMetadata> pStaticMetadata;   // camera characteristics
};

struct PreProcessInfo {
  uint32_t frameNum = 0;
};

struct ProcessRequestInfo {
  std::map<uint32_t, std::vector<ImageParams>> inputBuffers;   // port -> images
  std::map<uint32_t, std::vector<ImageParams>> outputBuffers;  // port -> images
  uint32_t frameNum = 0;
};

struct ProcessRequestInfoV2 {
  std::map<uint32_t, std::vector<ImageParams>> inputBuffers;
  std::map<uint32_t, std::vector<ImageParams>> outputBuffers;
  uint32_t frameNum = 0;
  uint64_t timestamp = 0;
};

struct FlushRequestInfo {
  uint32_t frameNum = 0;
};

struct ProcessPluginPrivMessage {
  uint32_t type = 0;
  void* payload = nullptr;
};

enum VyBufferAccessType : uint32_t {
  VY_BUFFER_ACCESS_DEFAULT = 0,
  VY_BUFFER_ACCESS_CPU = 1,
  VY_BUFFER_ACCESS_GPU = 2,
};

struct VyaFrameInfo {
  uint32_t format = 0;
  uint32_t width = 0;
  uint32_t height = 0;
};

struct customizeOutExtend {
  uint32_t flags = 0;
};

// Frame reordering a plugin may ask for; all zero means no reordering.
struct VyaFrameOrder {
  uint32_t count = 0;
  uint32_t order[8] = {};
};

}  // namespace vyalgo2
