// The filter SDK's factory.
#pragma once

#include <videoprocess/FilterFrameParam.h>
#include <videoprocess/VideoFilter.h>

namespace videoprocess {

class ProcessorCreator {
public:
  // A new filter for frames of `format`; null when none can be made. The
  // caller owns the result and deletes it through its virtual destructor.
  static VideoFilter* createFilter(VideoFormat format, bool sharedContext);
};

}  // namespace videoprocess
