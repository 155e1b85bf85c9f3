// Default bodies of the framework's plugin interface: what a plugin gets for
// every operation it does not replace.
#include <vyalgo2/PluginWraper.h>

#include <utility>

#include "image_params_copy.h"

namespace hostsim {

// Field by field, plane type last. The plane count travels unchanged, but
// both records hold only kMaxImagePlanes plane entries: a larger count from a
// confused producer copies those and never reads or writes past them.
void copyImageParams(const vyalgo2::ImageParams& params, vyalgo2::VyImageBuffer& buffer) {
  buffer.format = params.format;
  buffer.width = params.width;
  buffer.height = params.height;
  buffer.stride = params.stride;
  buffer.scanline = params.scanline;
  buffer.planeCount = params.numberOfPlanes;
  for (uint32_t i = 0; i < params.numberOfPlanes && i < vyalgo2::kMaxImagePlanes; ++i) {
    buffer.planeAddress[i] = params.planeAddress[i];
    buffer.planeFd[i] = params.planeFd[i];
    buffer.planeOffset[i] = params.planeOffset[i];
  }
  buffer.planeType = params.planeType;
}

}  // namespace hostsim

namespace vyalgo2 {

// Pre-processing is offered only to plugins that support it and do not skip
// it; the enable decision then gets the parameters as its own temporary.
bool PluginWraper::needPreProcess(VyaParams params) {
  if (!isPreProcessSupported() || isPreProcessSkipped()) return false;
  VyaParams temporary(std::move(params));
  return isEnabled(temporary);
}

void PluginWraper::getBufferAccessTypeByPlugin(const ProcessRequestInfo*,
                                               std::map<unsigned, std::vector<VyBufferAccessType>>&,
                                               VyBufferAccessType& accessType) {
  accessType = VY_BUFFER_ACCESS_DEFAULT;
}

void PluginWraper::getBufferAccessTypeByPluginExt(
    const ProcessRequestInfo*, std::map<unsigned, std::vector<VyBufferAccessType>>&,
    VyBufferAccessType& accessType) {
  accessType = VY_BUFFER_ACCESS_DEFAULT;
}

void PluginWraper::customizeOutBufferFormats(std::map<int, VyaFrameInfo>&,
                                             const std::map<int, VyaFrameInfo>&,
                                             const std::map<int, VyaFrameInfo>&,
                                             const customizeOutExtend&) {}

VyaFrameOrder PluginWraper::getCustomFrameOrder(std::shared_ptr<VyMetadata>) {
  return VyaFrameOrder{};
}

int PluginWraper::postProcess() { return 0; }

int PluginWraper::onPrepareRequest(ProcessPluginPrivMessage*) { return -1; }

int PluginWraper::onPrepareRequestExt(ProcessPluginPrivMessage*) { return -1; }

PluginWraper::~PluginWraper() = default;

void PluginWraper::convertImageParams(const ImageParams& params, VyImageBuffer& buffer) {
  hostsim::copyImageParams(params, buffer);
}

bool PluginWraper::isPreProcessSkipped() { return false; }

bool PluginWraper::isPreProcessSupported() { return false; }

}  // namespace vyalgo2
