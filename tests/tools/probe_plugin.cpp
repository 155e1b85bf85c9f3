// A stand-in plugin under the real provider name: it logs every host call with
// its process mode and what it received (geometry as WxH/stride/scanline, then
// the tags it reads) and inverts the luma of YUV frames, so tests see what the host did.
#include <android/log.h>
#include <system/camera_metadata_tags.h>
#include <vyalgo2/PluginWraper.h>
#include <vyalgo2/Provider.h>

#include <cstring>

namespace {

using namespace vyalgo2;

constexpr const char* kTag = "Probe";

class ProbePlugin : public PluginWraper {
public:
  int initialize(CreateInfo* info, VyaNodeInterface) override {
    m_mode = info->processMode;
    __android_log_print(ANDROID_LOG_INFO, kTag, "initialize %u", m_mode);
    return 0;
  }
  int preProcess(PreProcessInfo) override { return 0; }
  bool isEnabled(VyaParams params) override {
    int type = -1;
    if (params.pSessionMetadata) {
      const auto e = params.pSessionMetadata->find("com.zentor.sessionparams.stylizationType");
      if (e.count != 0) type = e.data.u8[0];
    }
    __android_log_print(ANDROID_LOG_INFO, kTag, "isEnabled %u stylization=%d", m_mode, type);
    return type > 0;
  }
  int processRequest(ProcessRequestInfo* request) override {
    const ImageParams& in = request->inputBuffers.at(0).at(0);
    const ImageParams& out = request->outputBuffers.at(0).at(0);
    const VyMetadata& m = *in.pMetadata;
    const auto awb = m.find("com.qti.stats.internal.perFrame.frameControl.AWBFrameControl");
    const auto aec = m.find("com.qti.stats.internal.perFrame.frameControl.AECFrameControl");
    const auto scene = m.find("zentor.ai.asd.algoSceneDetectedAIResult");
    const auto faces = m.find(uint32_t(ANDROID_STATISTICS_FACE_RECTANGLES));
    const auto zoom = m.find(uint32_t(ANDROID_CONTROL_ZOOM_RATIO));
    const auto name = m.find("zentor.snapshot.imageName");
    uint32_t cct = 0;
    float lux = 0;
    if (awb.count >= 16) std::memcpy(&cct, awb.data.u8 + 12, 4);
    if (aec.count >= 100) std::memcpy(&lux, aec.data.u8 + 96, 4);
    __android_log_print(
        ANDROID_LOG_INFO, kTag,
        "process %u frame=%u %ux%u/%u/%u fmt=%u awb=%zu cct=%u lux=%f scene=%d faces=%zu "
        "zoom=%f name=%s",
        m_mode, request->frameNum, in.width, in.height, in.stride, in.scanline, in.format,
        awb.count, cct, double(lux), scene.count ? scene.data.i32[0] : -1, faces.count,
        zoom.count ? double(zoom.data.f[0]) : -1.0,
        name.count ? reinterpret_cast<const char*>(name.data.u8) : "-");
    const auto* src = reinterpret_cast<const uint8_t*>(in.planeAddress[0]);
    auto* dst = reinterpret_cast<uint8_t*>(out.planeAddress[0]);
    for (uint32_t y = 0; y < in.height; ++y)
      for (size_t x = 0; x < in.width; ++x)
        dst[y * out.stride + x] = uint8_t(255 - src[y * in.stride + x]);
    return 0;
  }
  int processRequest(ProcessRequestInfoV2*) override { return 0; }
  int flushRequest(FlushRequestInfo*) override { return 0; }
  void destroy() override { __android_log_print(ANDROID_LOG_INFO, kTag, "destroy %u", m_mode); }
  void reset() override {}

private:
  uint32_t m_mode = 99;
};

class ProbeProvider : public PluginWraperProvider {
public:
  unsigned int getVersion() const override { return PLUMA_INTERFACE_VERSION; }
  std::string plumaGetType() const override { return PLUMA_PROVIDER_TYPE; }
  PluginWraper* create() const override { return new ProbePlugin; }
  std::string getName() const override { return "com.zentor.plugin.vylumofilter"; }
};

}  // namespace

extern "C" __attribute__((visibility("default"))) bool tavuconnect(ProviderManager* registry) {
  return registry->add(new ProbeProvider);
}
