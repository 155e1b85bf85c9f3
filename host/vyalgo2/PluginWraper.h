// The framework's plugin interface. The virtual slots are the binary
// contract with the framework: their order must never change.
#pragma once

#include <vyalgo2/HostRecords.h>
#include <vyalgo2/ImageParams.h>
#include <vyalgo2/VyImageBuffer.h>

#include <map>
#include <memory>
#include <vector>

namespace vyalgo2 {

class PluginWraper {
public:
  PluginWraper() = default;
  PluginWraper(const PluginWraper&) = delete;
  PluginWraper& operator=(const PluginWraper&) = delete;

  /* 1 */ virtual int initialize(CreateInfo* createInfo, VyaNodeInterface nodeInterface) = 0;
  /* 2 */ virtual int preProcess(PreProcessInfo info) = 0;
  /* 3 */ virtual bool needPreProcess(VyaParams params);
  /* 4 */ virtual void getBufferAccessTypeByPlugin(
      const ProcessRequestInfo* request,
      std::map<unsigned, std::vector<VyBufferAccessType>>& accessMap,
      VyBufferAccessType& accessType);
  /* 5 */ virtual void getBufferAccessTypeByPluginExt(
      const ProcessRequestInfo* request,
      std::map<unsigned, std::vector<VyBufferAccessType>>& accessMap,
      VyBufferAccessType& accessType);
  /* 6 */ virtual int processRequest(ProcessRequestInfo* request) = 0;
  /* 7 */ virtual int processRequest(ProcessRequestInfoV2* request) = 0;
  /* 8 */ virtual void customizeOutBufferFormats(std::map<int, VyaFrameInfo>& outFormats,
                                                 const std::map<int, VyaFrameInfo>& inFormats,
                                                 const std::map<int, VyaFrameInfo>& refFormats,
                                                 const customizeOutExtend& extend);
  /* 9 */ virtual VyaFrameOrder getCustomFrameOrder(std::shared_ptr<VyMetadata> metadata);
  /* 10 */ virtual int postProcess();
  /* 11 */ virtual int flushRequest(FlushRequestInfo* request) = 0;
  /* 12 */ virtual void destroy() = 0;
  /* 13 */ virtual bool isEnabled(VyaParams params) = 0;
  /* 14 */ virtual void reset() = 0;
  /* 15 */ virtual int onPrepareRequest(ProcessPluginPrivMessage* message);
  /* 16 */ virtual int onPrepareRequestExt(ProcessPluginPrivMessage* message);
  /* 17, 18 */ virtual ~PluginWraper();
  /* 19 */ virtual void convertImageParams(const ImageParams& params, VyImageBuffer& buffer);
  /* 20 */ virtual bool isPreProcessSkipped();
  /* 21 */ virtual bool isPreProcessSupported();
};

}  // namespace vyalgo2
