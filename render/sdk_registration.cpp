// Registers the CPU filter SDK with the host simulator when this library loads.
#include <android/log.h>
#include <hostsim/filter_factory.h>

#include "sdk_filter.h"

namespace {

videoprocess::VideoFilter* createSdkFilter(videoprocess::VideoFormat format,
                                           bool /*sharedContext*/) {
  if (format != videoprocess::VIDEO_FORMAT_SNAPSHOT &&
      format != videoprocess::VIDEO_FORMAT_PREVIEW) {
    __android_log_print(ANDROID_LOG_WARN, lumo::render::kLogTag,
                        "createFilter: unknown video format %d; the buffers decide the layout",
                        int(format));
  }
  return new lumo::render::SdkFilter(format, lumo::render::renderOptionsFromEnvironment());
}

[[maybe_unused]] const bool registered = hostsim::registerSdkFilterFactory(createSdkFilter);

}  // namespace
