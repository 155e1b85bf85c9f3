// One simulated camera host with the plugin loaded, fed one frame at a time:
// it creates the instance a frame's process mode needs when the frame first
// needs it, asks isEnabled, hands enabled frames to processRequest and
// copies the others, and reads back what the plugin observably did. A replay
// runs one host; a comparison runs one per calibration on the same pictures.
#pragma once

#include <hostsim/log_sink.h>
#include <hostsim/plugin_registry.h>

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "filter_tap.h"
#include "frame_pipeline.h"
#include "frame_source.h"
#include "replay.h"

namespace lumo {

class ReplayHost {
public:
  // Loads the plugin library. `deviceRoot` (empty: the process's own) is the
  // device tree this host's plugin sees while it is called, so two hosts in
  // one process can load different calibration files. The log capture and
  // the filter tap are shared by every host of a run: each call clears them
  // first and reads them after. Throws Failure.
  ReplayHost(const std::string& pluginPath, std::optional<uint8_t> stylization,
             hostsim::LogCapture& capture, FilterTap& tap, std::string deviceRoot = {});
  // Destroys the instances in the order they were made.
  ~ReplayHost();
  ReplayHost(const ReplayHost&) = delete;
  ReplayHost& operator=(const ReplayHost&) = delete;

  // Runs one frame from `input` and leaves the plugin's output, in the input's
  // geometry, in `output` (a fresh image). The plugin is handed the images'
  // own memory as its buffers, so it reads `input` in place (the plugin
  // only reads its input buffer). Throws Failure naming the frame's line and
  // field.
  FrameReport process(const SessionFrame& frame, const FrameImage& source, Image& input,
                      Image& output);

private:
  std::string m_pluginPath;
  std::optional<uint8_t> m_stylization;
  hostsim::LogCapture& m_capture;
  FilterTap& m_tap;
  std::string m_deviceRoot;
  hostsim::PluginRegistry m_registry;
  std::map<uint32_t, hostsim::PluginPtr> m_instances;
  std::vector<uint32_t> m_created;
  VyMetadata m_session;
  BufferPool m_pool;
  std::map<uint32_t, InstanceTrace> m_traces;
  FrameEvidence m_evidence;
};

}  // namespace lumo
