// Frame conditions to and from camera metadata entries. The frame-control
// records are opaque byte blobs of the camera stack; only the words the
// camera consumers read are filled, the rest stays zero.
#include <hostsim/frame_metadata.h>
#include <lumo/contract.h>

#include <cstring>

namespace hostsim {
namespace {

using namespace lumo;  // the tags and payloads the camera and the plugin agree on

template <typename T>
int setWordInRecord(VyMetadata& m, const char* tag, size_t recordBytes, size_t offset, T value) {
  std::vector<uint8_t> record(recordBytes, 0);
  std::memcpy(record.data() + offset, &value, sizeof(value));
  return m.update(tag, kFrameControlType, record.data(), record.size());
}

template <typename T>
std::optional<T> wordInRecord(const VyMetadata& m, const char* tag, size_t offset) {
  const camera_metadata_ro_entry_t e = m.find(tag);
  if (e.count < offset + sizeof(T) || e.type != kFrameControlType) return std::nullopt;
  T value;
  std::memcpy(&value, e.data.u8 + offset, sizeof(value));
  return value;
}

}  // namespace

std::vector<int32_t> faceRectangles(const std::vector<std::array<int32_t, 4>>& faces) {
  std::vector<int32_t> out;
  out.reserve(faces.size() * kFaceRectangleValues);
  for (const auto& f : faces) out.insert(out.end(), f.begin(), f.end());
  return out;
}

int setAwbCct(VyMetadata& m, uint32_t cct) {
  return setWordInRecord(m, kTagAwbFrameControl, kAwbRecordBytes, kAwbCctOffset, cct);
}

int setAecLuxIndex(VyMetadata& m, float luxIndex) {
  return setWordInRecord(m, kTagAecFrameControl, kAecRecordBytes, kAecLuxOffset, luxIndex);
}

int setAiScene(VyMetadata& m, uint32_t sceneId) {
  // The detector publishes its result as one int32.
  int32_t value;
  std::memcpy(&value, &sceneId, sizeof(value));
  return m.update(kTagAiSceneResult, kAiSceneType, &value, 1);
}

int setFaceValues(VyMetadata& m, const std::vector<int32_t>& values) {
  return m.update(kTagFaceRectangles, kFaceRectanglesType, values.data(), values.size());
}

int setZoomRatio(VyMetadata& m, float zoomRatio) {
  return m.update(kTagZoomRatio, kZoomRatioType, &zoomRatio, 1);
}

int setImageName(VyMetadata& m, const std::string& name) {
  return m.update(kTagSnapshotImageName, kImageNameType, name.c_str(), name.size() + 1);
}

int setStylizationType(VyMetadata& m, uint8_t type) {
  return m.update(kTagStylizationType, kStylizationType, &type, 1);
}

int writeFrameConditions(VyMetadata& m, const FrameConditions& c) {
  int result = 0;
  auto check = [&result](int r) {
    if (r != 0) result = -1;
  };
  if (c.cct) check(setAwbCct(m, *c.cct));
  if (c.luxIndex) check(setAecLuxIndex(m, *c.luxIndex));
  if (c.aiScene) check(setAiScene(m, *c.aiScene));
  if (c.faceValues) check(setFaceValues(m, *c.faceValues));
  if (c.zoomRatio) check(setZoomRatio(m, *c.zoomRatio));
  if (c.imageName) check(setImageName(m, *c.imageName));
  if (c.stylizationType) check(setStylizationType(m, *c.stylizationType));
  return result;
}

std::shared_ptr<VyMetadata> makeFrameMetadata(const FrameConditions& conditions) {
  auto m = std::make_shared<VyMetadata>();
  writeFrameConditions(*m, conditions);
  return m;
}

FrameConditions readFrameConditions(const VyMetadata& m) {
  FrameConditions c;
  c.cct = wordInRecord<uint32_t>(m, kTagAwbFrameControl, kAwbCctOffset);
  c.luxIndex = wordInRecord<float>(m, kTagAecFrameControl, kAecLuxOffset);
  camera_metadata_ro_entry_t e = m.find(kTagAiSceneResult);
  if (e.count >= 1 && e.type == kAiSceneType) c.aiScene = static_cast<uint32_t>(e.data.i32[0]);
  e = m.find(kTagFaceRectangles);
  if (e.type == kFaceRectanglesType && e.count > 0)
    c.faceValues = std::vector<int32_t>(e.data.i32, e.data.i32 + e.count);
  e = m.find(kTagZoomRatio);
  if (e.count >= 1 && e.type == kZoomRatioType) c.zoomRatio = e.data.f[0];
  e = m.find(kTagSnapshotImageName);
  if (e.count > 0 && e.type == kImageNameType) {
    const char* text = reinterpret_cast<const char*>(e.data.u8);
    c.imageName = std::string(text, strnlen(text, e.count));
  }
  e = m.find(kTagStylizationType);
  if (e.count >= 1 && e.type == kStylizationType) c.stylizationType = e.data.u8[0];
  return c;
}

}  // namespace hostsim
