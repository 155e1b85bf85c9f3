// From a device's dump folder back to a session. With dumping on, the plugin
// leaves under /data/vendor/camera/ two raw images per frame it processed
// (IMAGE_[lumofilter]_INSTANCE_frame[N]_input|output_WxH_STRIDE.EXT) and its
// parameter text dumps: one IMAGE_lumo_filter_OfflineSnapshot_exif.txt per
// snapshot and one lumo_filter_RealTimePreview_TIME_exif.txt per preview
// instance with a block per frame. Each input image dump becomes a session
// line; its metadata comes from the text block of the same frame (preview:
// the same frame number; snapshot: the same image name).
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace lumo {

struct DumpSession {
  std::vector<std::string> lines;     // one JSON object per frame, in frame order
  std::vector<std::string> warnings;  // what could not be matched or read, one line each
  size_t preview = 0, snapshot = 0;   // frames per instance
  size_t withoutValues = 0;           // frames whose text block was not found
};

// `dumpDir` is searched recursively. Input paths are written relative to
// `sessionDir` (where the session file goes). Outputs are named after the
// frame: raw in the input's format with the geometry in the name, or PNG.
DumpSession sessionFromDumps(const std::string& dumpDir, const std::string& sessionDir,
                             bool pngOutputs);

}  // namespace lumo
