// The colour-look plugin object: host contract, lifecycle, request path,
// metadata reader, filter driver and debug dumps of one pipeline node.
#pragma once

#include <videoprocess/FilterFrameParam.h>
#include <videoprocess/VideoFilter.h>
#include <vyalgo2/HostRecords.h>
#include <vyalgo2/ImageParams.h>
#include <vyalgo2/PluginWraper.h>
#include <vyalgo2/VyImageBuffer.h>

#include <cstdint>
#include <cstdio>
#include <map>
#include <memory>
#include <string>

#include "paramTrigger.h"
#include "paramUtil.h"
#include "param_records.h"

// Name the provider and the plugin answer with.

struct LumoPluginTestAccess;

class VyLumoFilterPlugin : public vyalgo2::PluginWraper {
public:
  VyLumoFilterPlugin();
  ~VyLumoFilterPlugin() override;

  int initialize(vyalgo2::CreateInfo* createInfo, vyalgo2::VyaNodeInterface nodeInterface) override;
  int preProcess(vyalgo2::PreProcessInfo info) override;
  int processRequest(vyalgo2::ProcessRequestInfo* request) override;
  int processRequest(vyalgo2::ProcessRequestInfoV2* request) override;
  int flushRequest(vyalgo2::FlushRequestInfo* request) override;
  void destroy() override;
  bool isEnabled(vyalgo2::VyaParams params) override;
  void reset() override;

  std::string getPluginName();
  void getInitProperties();
  void fillMetaDataInfo(vyalgo2::ImageParams& image);
  // 0 when the frame went to the filter; -1 without a filter or when the
  // filter refuses the LUT. `format` is unused: it is fixed at creation.
  int nuvoProcess(videoprocess::FilterFrameParam* in, videoprocess::FilterFrameParam* out,
                  videoprocess::VideoFormat format, param_lut_t* lut,
                  param_shading_float_t* shading);
  void nuvoReinit();
  // `shading` is not read: the block always shows m_shading.
  void exifDump(FILE* file, param_lut_t* lut, param_shading_float_t* shading,
                unsigned int frameNum);
  void dumpImage(std::map<std::string, vyalgo2::VyImageBuffer>& images);

  // Process-wide switches, read from system properties once when the
  // library is loaded (in this order); a camera process restart applies a change.
  static int32_t m_algoForceEnable;
  static int32_t m_algoBypassMode;
  static int32_t m_algoDumpMode;
  static int32_t m_debugMode;

private:
  friend struct LumoPluginTestAccess;

  // Parameter dump files under "/data/vendor/camera/": the preview instance
  // keeps one file named by the time of initialize, the snapshot instance
  // writes one per picture, named by the image name.
  void openPreviewExifFile();
  void openSnapshotExifFile();
  void openExifFile(const char* fileName);
  void closeExifFile();

  int32_t m_width = 0;
  int32_t m_height = 0;
  uint32_t m_frameNum = 0;
  // Owned copy of the snapshot image name: the metadata that carried it
  // may be freed by the host after the frame. Empty until a frame has it.
  std::string m_imageName;
  bool m_bypass = false;
  bool m_filterValid = false;
  bool m_dumpEnable = false;
  FILE* m_exifFile = nullptr;
  std::string m_instanceName;
  param_trigger_t m_debugTriggerInfo;
  const ParamUtil* m_paramUtil = nullptr;  // the process-wide store, not owned
  std::unique_ptr<ParamTrigger> m_paramTrigger;
  std::unique_ptr<videoprocess::VideoFilter> m_filter;
  bool m_triggerChanged = false;
  std::unique_ptr<param_lut_t> m_lut;
  std::unique_ptr<param_shading_float_t> m_shading;
  param_trigger_t m_triggerInfo;
  uint32_t m_processMode = 0;  // 0 offline snapshot, 1 real-time preview
  vyalgo2::VyaNodeInterface m_nodeInterface{};
};
