// The host's side of a capture session: loads the plugin the way the camera
// framework does, creates the preview (process mode 1) and snapshot (mode 0)
// instances, or one per other process mode a session asks for, when a frame
// first needs one, asks isEnabled before each frame,
// hands enabled frames to processRequest and copies the others, and
// destroys every instance at the end.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "frame_outcome.h"
#include "session.h"

namespace lumo {

struct ReplayOptions {
  std::string pluginPath;  // empty: the default beside the tool
  std::string outDir = ".";
  std::string sessionDir = ".";        // resolves relative input names
  std::optional<uint8_t> stylization;  // for frames that do not say
  bool keepInputs = false;             // also write each input as NAME_before.png
  // Frames read ahead and outputs written behind the plugin on jobs - 1
  // threads each (1: everything in turn on the calling thread). The plugin
  // sees the same calls in the same order either way.
  unsigned jobs = 1;
};

struct FrameReport {
  uint32_t frame = 0;
  InstanceKind instance = InstanceKind::Preview;
  uint32_t processMode = 0;  // the mode its instance was created with
  bool enabled = false;      // isEnabled said yes and processRequest ran
  FrameOutcome outcome;      // what the plugin observably did with the frame
  int result = 0;            // processRequest's return value
  std::string output;        // path of the written output
  std::string before;        // path of the written input copy (keepInputs)
  std::string aiscene;       // scene the plugin logged for the frame, if it did
  uint32_t width = 0, height = 0;
  PixelFormat format = PixelFormat::NV21;
};

// Called after each frame (progress, per-frame output).
using FrameCallback = std::function<void(const FrameReport&, size_t done, size_t total)>;

// Runs the frames; outputs appear in outDir only when every frame succeeded.
// Throws Failure naming the file, line and field of the frame that failed.
std::vector<FrameReport> replaySession(const std::vector<SessionFrame>& frames,
                                       const ReplayOptions& options,
                                       const FrameCallback& onFrame = {});

// Name of a frame's output when the session gives none.
std::string defaultOutputName(const SessionFrame& frame);
// Every frame's output name: its own, or the default; when the host's
// counter restarted and two frames would get the same default, each of them
// also carries its session line ("frame_000003_preview_line12.png").
std::vector<std::string> outputNames(const std::vector<SessionFrame>& frames);

}  // namespace lumo
