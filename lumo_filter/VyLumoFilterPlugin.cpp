// VyLumoFilterPlugin: switches, lifecycle, the per-frame request path, the
// metadata reader and the filter driver. Every log line of the plugin object
// is written from this file.
#include "VyLumoFilterPlugin.h"

#include <EGL/eglext.h>
#include <cutils/properties.h>
#include <lumo/contract.h>
#include <ui/GraphicBuffer.h>
#include <utils/StrongPointer.h>
#include <videoprocess/ProcessorCreator.h>
#include <vyalgo2/PluginUtils.h>
#include <vyalgo2/VyMetadata.h>

#include "lumoEffectScript.h"
#include "lumoFrameMetadata.h"
#include "lumo_log.h"

// Read once at library load, in this order.
int32_t VyLumoFilterPlugin::m_algoForceEnable = property_get_int32(lumo::kPropForceEnable, 0);
int32_t VyLumoFilterPlugin::m_algoBypassMode = property_get_int32(lumo::kPropBypassMode, 0);
int32_t VyLumoFilterPlugin::m_algoDumpMode = property_get_int32(lumo::kPropDumpMode, 0);
int32_t VyLumoFilterPlugin::m_debugMode = property_get_int32(lumo::kPropDebug, 0);

namespace {

constexpr uint32_t kModeSnapshot = 0;
constexpr uint32_t kModePreview = 1;
// Values of the bypass and dump switches: 1 preview, 2 snapshot, 3 both.
constexpr int32_t kSwitchPreview = 1;
constexpr int32_t kSwitchSnapshot = 2;
constexpr int32_t kSwitchBoth = 3;
// Software read/write often, GPU texture and render target.
constexpr uint64_t kWrapUsage = 0x333;
constexpr int kLutGridPoints = 17;
constexpr int kLutIndex = -1;
constexpr int kLutChannels = 3;
constexpr int kLutDepth = 512;

videoprocess::VideoFilter* createFilterForMode(uint32_t processMode) {
  if (processMode == kModeSnapshot) {
    return videoprocess::ProcessorCreator::createFilter(videoprocess::VIDEO_FORMAT_SNAPSHOT, false);
  }
  if (processMode == kModePreview) {
    return videoprocess::ProcessorCreator::createFilter(videoprocess::VIDEO_FORMAT_PREVIEW, false);
  }
  return nullptr;
}

// Wraps an image's buffer handle for the GPU without taking the handle over.
android::sp<android::GraphicBuffer> wrapForGpu(const vyalgo2::ImageParams& image) {
  return android::sp<android::GraphicBuffer>(new android::GraphicBuffer(
      image.phHandle, android::GraphicBuffer::WRAP_HANDLE, image.width, image.height,
      static_cast<android::PixelFormat>(image.format), 1, kWrapUsage, image.stride));
}

videoprocess::FilterFrameParam frameParamFor(const android::sp<android::GraphicBuffer>& buffer,
                                             const vyalgo2::ImageParams& image) {
  videoprocess::FilterFrameParam frame{};
  frame.clientBuffer = eglGetNativeClientBufferANDROID(buffer->toAHardwareBuffer());
  frame.reserved = 0;
  frame.stride = image.stride;
  frame.stride2 = image.stride;
  frame.width = image.width;
  frame.height = image.height;
  return frame;
}

}  // namespace

VyLumoFilterPlugin::VyLumoFilterPlugin() = default;

VyLumoFilterPlugin::~VyLumoFilterPlugin() {
  // destroy() is the host's duty; an instance it forgot still must not leak a file.
  if (m_exifFile != nullptr) closeExifFile();
}

std::string VyLumoFilterPlugin::getPluginName() { return lumo::kProviderName; }

int VyLumoFilterPlugin::initialize(vyalgo2::CreateInfo* createInfo,
                                   vyalgo2::VyaNodeInterface nodeInterface) {
  m_nodeInterface = nodeInterface;
  m_processMode = createInfo->processMode;
  m_filterValid = true;
  m_lut.reset(new param_lut_t());
  m_shading.reset(new param_shading_float_t());

  if (m_processMode == kModePreview) {
    m_instanceName = lumo::kPreviewInstance;
  } else if (m_processMode == kModeSnapshot) {
    m_instanceName = lumo::kSnapshotInstance;
  } else {
    m_instanceName.clear();
  }
  m_filter.reset(createFilterForMode(m_processMode));
  LUMO_LOGI("[LumoFilter][%s] initialize, processMode=%d", m_instanceName.c_str(),
            static_cast<int>(m_processMode));

  getInitProperties();

  param_trigger_init_info initInfo;
  initInfo.debug_mode = m_debugMode != 0;
  initInfo.instance_name = m_instanceName;
  m_paramUtil = &ParamUtil::getInstance();
  m_paramTrigger.reset(new ParamTrigger());
  m_paramTrigger->initialize(initInfo);
  if (m_debugMode != 0) m_paramUtil->printParam();

  if (m_processMode == kModePreview && m_dumpEnable) openPreviewExifFile();
  return 0;
}

void VyLumoFilterPlugin::getInitProperties() {
  const int32_t modeValue = m_processMode != 0 ? kSwitchPreview : kSwitchSnapshot;
  m_dumpEnable = m_algoDumpMode == kSwitchBoth || m_algoDumpMode == modeValue;
  m_bypass = m_algoBypassMode == kSwitchBoth || m_algoBypassMode == modeValue;
  LUMO_LOGD("[LumoFilter][%s] initialize, m_debugMode=%d", m_instanceName.c_str(), m_debugMode);
  if (m_debugMode == 0) return;

  char scene[PROPERTY_VALUE_MAX] = {};
  property_get(lumo::kPropDebugScene, scene, lumo::kCommonScene);
  m_debugTriggerInfo.aiscene = scene;
  m_debugTriggerInfo.lux = static_cast<uint16_t>(property_get_int32(lumo::kPropDebugLux, 0));
  m_debugTriggerInfo.cct = static_cast<uint16_t>(property_get_int32(lumo::kPropDebugCct, 0));
  LUMO_LOGD("[LumoFilter][%s] initialize, debug aiscene=%s", m_instanceName.c_str(),
            m_debugTriggerInfo.aiscene.c_str());
  LUMO_LOGD("[LumoFilter][%s] initialize, debug lux=%d", m_instanceName.c_str(),
            m_debugTriggerInfo.lux);
  LUMO_LOGD("[LumoFilter][%s] initialize, debug cct=%d", m_instanceName.c_str(),
            m_debugTriggerInfo.cct);
}

bool VyLumoFilterPlugin::isEnabled(vyalgo2::VyaParams params) {
  uint32_t stylizationType = 0;
  if (params.pSessionMetadata) {
    const camera_metadata_ro_entry_t entry =
        params.pSessionMetadata->find(lumo::kTagStylizationType);
    uint8_t first = 0;
    if (lumo::readPayload(entry, 0, 1, &first)) stylizationType = first;
  }
  LUMO_LOGI("[LumoFilter][%s] mIsFeatureEnable=%d", m_instanceName.c_str(),
            static_cast<int>(stylizationType));
  // Forced mode 2 inverts the session's choice: the look runs exactly when
  // the session asked for no stylisation.
  if (m_algoForceEnable == 2 && stylizationType != 0) return false;
  return stylizationType != 0 || m_algoForceEnable != 0;
}

int VyLumoFilterPlugin::preProcess(vyalgo2::PreProcessInfo /*info*/) {
  LUMO_LOGD("[LumoFilter][%s] preProcess", m_instanceName.c_str());
  return 0;
}

int VyLumoFilterPlugin::processRequest(vyalgo2::ProcessRequestInfoV2* /*request*/) {
  LUMO_LOGD("[LumoFilter][%s], processRequestV2", m_instanceName.c_str());
  return 0;
}

int VyLumoFilterPlugin::flushRequest(vyalgo2::FlushRequestInfo* /*request*/) {
  LUMO_LOGD("[LumoFilter][%s], flushRequest", m_instanceName.c_str());
  return 0;
}

void VyLumoFilterPlugin::reset() { LUMO_LOGD("[LumoFilter][%s], reset", m_instanceName.c_str()); }

void VyLumoFilterPlugin::destroy() {
  LUMO_LOGD("[LumoFilter][%s], destroy", m_instanceName.c_str());
  m_filter.reset();
  if (m_processMode == kModePreview && m_dumpEnable && m_exifFile != nullptr) closeExifFile();
  m_lut.reset();
  m_shading.reset();
  m_paramTrigger.reset();
}

int VyLumoFilterPlugin::processRequest(vyalgo2::ProcessRequestInfo* request) {
  m_frameNum = request->frameNum;
  // The host always sends one input and one output image; anything less is
  // left alone rather than read past the end.
  if (request->inputBuffers.empty() || request->inputBuffers.begin()->second.empty() ||
      request->outputBuffers.empty() || request->outputBuffers.begin()->second.empty()) {
    return 0;
  }
  vyalgo2::ImageParams& inputImage = request->inputBuffers.begin()->second[0];
  vyalgo2::ImageParams& outputImage = request->outputBuffers.begin()->second[0];
  vyalgo2::VyImageBuffer inputBuffer{};
  vyalgo2::VyImageBuffer outputBuffer{};
  convertImageParams(inputImage, inputBuffer);
  convertImageParams(outputImage, outputBuffer);
  m_width = static_cast<int32_t>(inputBuffer.width);
  m_height = static_cast<int32_t>(inputBuffer.height);

  fillMetaDataInfo(inputImage);
  // Debug mode replaces the whole record, zoom ratio included.
  if (m_debugMode != 0) m_triggerInfo = m_debugTriggerInfo;

  m_triggerChanged = false;
  if (!m_lut || !m_paramTrigger) {
    m_bypass = true;
  } else if (!m_paramTrigger->trigger(m_triggerInfo, m_lut.get(), m_shading.get(),
                                      m_triggerChanged)) {
    // Sticky: no later frame of this instance is filtered either.
    m_bypass = true;
  }

  if (m_dumpEnable) {
    if (m_processMode == kModeSnapshot) openSnapshotExifFile();
    if (m_exifFile != nullptr) {
      exifDump(m_exifFile, m_lut.get(), nullptr, request->frameNum);
      if (m_processMode == kModeSnapshot) closeExifFile();
    }
  }

  if (m_bypass) {
    vyalgo2::PluginUtils::vyCopyBuffer(&outputBuffer, &inputBuffer);
    LUMO_LOGI("[LumoFilter][%s] algo bypass", m_instanceName.c_str());
  } else {
    android::sp<android::GraphicBuffer> inputGraphic = wrapForGpu(inputImage);
    android::sp<android::GraphicBuffer> outputGraphic = wrapForGpu(outputImage);
    videoprocess::FilterFrameParam inFrame = frameParamFor(inputGraphic, inputImage);
    videoprocess::FilterFrameParam outFrame = frameParamFor(outputGraphic, outputImage);

    if (m_filterValid) {
      // At most two attempts; the filter is re-created after each failure.
      int failures = 0;
      do {
        if (nuvoProcess(&inFrame, &outFrame, videoprocess::VideoFormat(), m_lut.get(),
                        m_shading.get()) == 0) {
          break;
        }
        nuvoReinit();
        if (failures != 0) {
          m_bypass = true;
          m_filterValid = false;
          LUMO_LOGE("[LumoFilter][%s] nuvoProcess fail twice!!!", m_instanceName.c_str());
        }
        --failures;
      } while (m_filterValid);
    }
    if (m_bypass) {
      vyalgo2::PluginUtils::vyCopyBuffer(&outputBuffer, &inputBuffer);
      LUMO_LOGE("[LumoFilter][%s] algo bypass for nuvoSKD fail", m_instanceName.c_str());
    }
    outputGraphic.clear();
    inputGraphic.clear();
  }

  if (m_dumpEnable) {
    std::map<std::string, vyalgo2::VyImageBuffer> images{{"input", inputBuffer},
                                                         {"output", outputBuffer}};
    dumpImage(images);
  }
  return 0;
}

void VyLumoFilterPlugin::fillMetaDataInfo(vyalgo2::ImageParams& image) {
  const std::shared_ptr<VyMetadata> metadata = image.pMetadata;
  m_triggerInfo.aiscene = lumo::kCommonScene;
  if (!metadata) return;

  uint32_t cct = 0;
  if (lumo::readU32(metadata->find(lumo::kTagAwbFrameControl), lumo::kAwbCctOffset, cct)) {
    m_triggerInfo.cct = static_cast<uint16_t>(cct);
    LUMO_LOGI("[LumoFilter][%s], cct = %d", m_instanceName.c_str(), static_cast<int>(cct));
  }

  float luxIndex = 0.0f;
  if (lumo::readFloat(metadata->find(lumo::kTagAecFrameControl), lumo::kAecLuxOffset, luxIndex)) {
    m_triggerInfo.lux = lumo::luxFromIndex(luxIndex);
    LUMO_LOGI("[LumoFilter][%s], lux idx = %f", m_instanceName.c_str(),
              static_cast<double>(luxIndex));
  }

  uint32_t sceneId = 0;
  if (lumo::readU32(metadata->find(lumo::kTagAiSceneResult), 0, sceneId)) {
    m_triggerInfo.aiscene = lumo::sceneNameForId(sceneId);
    LUMO_LOGI("[LumoFilter][%s], aiscenes = %d, %s", m_instanceName.c_str(),
              static_cast<int>(sceneId), m_triggerInfo.aiscene.c_str());
  }

  const camera_metadata_ro_entry_t faces = metadata->find(lumo::kTagFaceRectangles);
  if (faces.count != 0) {
    const uint32_t faceCount = lumo::faceCountOf(faces.count);
    LUMO_LOGI("[LumoFilter][%s], faceROICount = %d", m_instanceName.c_str(),
              static_cast<int>(faceCount));
    if (lumo::facesMakePortrait(faceCount)) m_triggerInfo.aiscene = lumo::kPortraitScene;
  }

  float zoomRatio = 0.0f;
  if (lumo::readFloat(metadata->find(lumo::kTagZoomRatio), 0, zoomRatio)) {
    LUMO_LOGI("[LumoFilter][%s], zoom ratio = %f", m_instanceName.c_str(),
              static_cast<double>(zoomRatio));
    m_triggerInfo.zoom_ratio = zoomRatio;
  }

  lumo::readString(metadata->find(lumo::kTagSnapshotImageName), m_imageName);
}

int VyLumoFilterPlugin::nuvoProcess(videoprocess::FilterFrameParam* in,
                                    videoprocess::FilterFrameParam* out,
                                    videoprocess::VideoFormat /*format*/, param_lut_t* lut,
                                    param_shading_float_t* shading) {
  LUMO_LOGD("[LumoFilter][%s], triggerChanged = %d", m_instanceName.c_str(),
            m_triggerChanged ? 1 : 0);
  if (!m_filter) return -1;

  if (m_triggerChanged) {
    m_filter->clearEffects();
    const std::string script = lumo::buildEffectScript(static_cast<uint32_t>(m_width),
                                                       static_cast<uint32_t>(m_height), *shading);
    LUMO_LOGD("[LumoFilter][%s], filterScript = %s", m_instanceName.c_str(), script.c_str());
    m_filter->setFilterScript(script);
    // The script goes first: the LUT is loaded into the effect it declares.
    if (!m_filter->addLutEffectData(lut->data, kLutGridPoints, kLutIndex, kLutChannels,
                                    kLutDepth)) {
      LUMO_LOGE("[LumoFilter][%s] addLutEffectData failed", m_instanceName.c_str());
      return -1;
    }
  }
  m_filter->processFrame(in, out);
  return 0;
}

void VyLumoFilterPlugin::nuvoReinit() {
  m_filter.reset();
  m_filter.reset(createFilterForMode(m_processMode));
}
