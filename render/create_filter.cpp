// ProcessorCreator::createFilter: the SDK's factory, beside the renderer it
// makes. Every filter passes the host simulator's seam on the way out (a
// test's override, injected faults, the record of calls).
#include "create_filter.h"

#include <android/log.h>
#include <hostsim/filter_factory.h>

#include "sdk_filter.h"

namespace lumo::render {

videoprocess::VideoFilter* createSdkFilter(videoprocess::VideoFormat format,
                                           bool /*sharedContext*/) {
  if (format != videoprocess::VIDEO_FORMAT_SNAPSHOT &&
      format != videoprocess::VIDEO_FORMAT_PREVIEW) {
    __android_log_print(ANDROID_LOG_WARN, kLogTag,
                        "createFilter: unknown video format %d; the buffers decide the layout",
                        int(format));
  }
  return new SdkFilter(format, renderOptionsFromEnvironment());
}

}  // namespace lumo::render

namespace videoprocess {

VideoFilter* ProcessorCreator::createFilter(VideoFormat format, bool sharedContext) {
  return hostsim::makeFilter(format, sharedContext, lumo::render::createSdkFilter);
}

}  // namespace videoprocess
