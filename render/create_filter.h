// The SDK's own filter, as ProcessorCreator::createFilter makes it before the
// host simulator's seam: for host-side decorators that wrap the real thing.
#pragma once

#include <videoprocess/ProcessorCreator.h>

namespace lumo::render {

videoprocess::VideoFilter* createSdkFilter(videoprocess::VideoFormat format, bool sharedContext);

}  // namespace lumo::render
