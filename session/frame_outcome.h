// What the plugin did with one frame, read from what it observably did: its
// log lines for the frame, the render calls that reached the filter, and the
// host's own isEnabled answer. Nothing here recomputes the plugin's choice;
// when the evidence is missing the outcome says so instead of guessing.
#pragma once

#include <array>
#include <cstdint>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <vector>

namespace lumo {

enum class PassReason {
  None,               // the frame was filtered
  HostDisabled,       // isEnabled said no; the host copied the frame
  BypassSwitch,       // the bypass property covers this instance
  StickyBypass,       // an earlier frame of the instance failed; the plugin stays in copy mode
  NoSceneParameters,  // the calibration has nothing for the frame's scene (or its indices)
  NoCalibration,      // no calibration file was loaded
  RenderFailed,       // the filter failed twice on this frame
  Unknown,            // the evidence does not say (foreign plugin, debug lines off)
};

// Short key for --json ("host-disabled", ...; "" for None) and words for tables.
const char* reasonKey(PassReason reason);
const char* reasonText(PassReason reason);

enum class StoreState { Loaded, Absent, Rejected };

// One processFrame call that reached the filter, with what the filter held
// and the size of the frame it was handed.
struct FilterRender {
  std::string script;
  bool lutLoaded = false;
  int result = 0;
  uint32_t frameWidth = 0, frameHeight = 0;
};

// A script laid out for one frame size rendering a frame of another: the
// plugin rebuilds its script only when the selection changes, so a frame
// keeps the Width/Height of the frame that last changed it.
struct HeldScriptSize {
  uint32_t scriptWidth = 0, scriptHeight = 0;
  uint32_t frameWidth = 0, frameHeight = 0;
};

struct FrameEvidence {
  uint32_t frame = 0;
  bool enabled = false;               // isEnabled's answer
  std::vector<std::string> messages;  // the plugin's Android log messages for this frame
  std::vector<FilterRender> renders;  // render calls the filter received for this frame
  StoreState store = StoreState::Loaded;
  std::string storeProblem;  // the plugin's words when it rejected the file
  bool debugLines = true;    // the plugin's debug-level lines reach the log
  std::string scene;         // scene the plugin logged, or "common"
};

struct FrameOutcome {
  bool filtered = false;
  PassReason reason = PassReason::Unknown;
  std::string detail;  // what made the reason, in words
  std::optional<std::array<int, 4>> lutIndex;
  std::optional<std::array<double, 4>> lutWeight;
  std::vector<double> shading;             // the eight values the style effect received
  std::string script;                      // the script the rendering filter held
  std::optional<HeldScriptSize> heldSize;  // set when the script's size is not the frame's
};

// What has been seen of one plugin instance so far; carried across its frames
// because the plugin logs weights only when the selection changes, and stays
// in copy mode after a failure.
struct InstanceTrace {
  std::optional<uint32_t> failedFrame;
  PassReason failure = PassReason::None;
  std::optional<std::array<double, 4>> lutWeight;
};

FrameOutcome readFrameOutcome(const FrameEvidence& evidence, InstanceTrace& trace);

// The outcome's fields for --json: "plugin" ("filtered", "copied" or
// "unknown"), "reason", "detail", and when filtered "lut", "shading", "script",
// and "held_script_size" ({"script": [w, h], "frame": [w, h]}) when the two differ.
nlohmann::json outcomeJson(const FrameOutcome& outcome);
// Indented lines under a frame's table row: why it was copied, or the LUT
// corners and weights, the shading values and the script.
std::vector<std::string> outcomeLines(const FrameOutcome& outcome);

// The plugin's reason when it refused the calibration file at load, if its
// messages say so.
std::optional<std::string> rejectedStoreMessage(const std::vector<std::string>& messages);

// The eight shading values a style-effect script carries (empty when none).
std::vector<double> shadingOfScript(const std::string& script);

// "held script made for 4000x3000 on a 1280x720 frame".
std::string heldSizeText(const HeldScriptSize& held);

}  // namespace lumo
