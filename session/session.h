// Capture sessions: one JSON object per line, each describing one frame
// (which instance gets it, its geometry, its input and output image, and
// the metadata tags the host attaches to it).
#pragma once

#include <cstddef>
#include <cstdint>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <vector>

#include "image.h"

namespace lumo {

enum class InstanceKind { Preview, Snapshot };
const char* instanceName(InstanceKind kind);  // "preview", "snapshot"

// A tag given raw: its payload exactly as the user wrote it.
struct RawTag {
  std::string key;                 // as written in the session
  std::optional<uint32_t> number;  // tag number, when the key is a number or a standard name
  uint8_t type = 0;                // camera metadata type (TYPE_BYTE, TYPE_INT32, ...)
  size_t count = 0;                // values of `type`
  std::vector<uint8_t> payload;    // count * size of type bytes
};

struct FrameMeta {
  std::optional<uint32_t> cct;
  std::optional<float> lux;
  std::optional<uint32_t> scene;
  std::optional<uint32_t> faces;
  std::optional<float> zoom;
  std::optional<std::string> imageName;
  std::optional<uint8_t> stylization;  // session metadata
  std::vector<RawTag> tags;            // applied after the named keys
};

struct SessionFrame {
  std::string file;  // session file and line, for messages
  size_t line = 0;
  InstanceKind instance = InstanceKind::Preview;
  std::optional<uint32_t> processMode;  // "process_mode": any value the host might pass
  uint32_t frame = 0;
  bool numbered = false;  // the line gave "frame"
  std::optional<uint32_t> width, height, stride, scanline;
  std::optional<PixelFormat> format;
  std::optional<std::string> input;  // path, or "generated:NAME"
  std::optional<std::string> output;
  FrameMeta meta;

  // "FILE:LINE: field "NAME": " prefix for messages about this frame; for a
  // frame from the command line (line 0) "FILE: --NAME: ".
  std::string where(const std::string& field) const;
};

// Largest width, height, stride and scanline a frame may declare. Camera
// sensors stay below it (a 200 MP sensor is 16320 x 12240); larger values are
// refused when the session is read, before anything is allocated.
constexpr uint32_t kMaxFrameSide = 16384;

// Bytes a frame of this geometry costs the replay at its peak: the picture
// as RGBA, the input and output host buffers, and the result read back.
uint64_t framePeakBytes(uint32_t width, uint32_t height, uint32_t stride, uint32_t scanline,
                        PixelFormat format);
// Memory the system can still give (MemAvailable); 0 when unknown.
uint64_t availableMemoryBytes();
// Empty when the frame fits into `available` bytes (0: unknown, always fits);
// otherwise what to tell the user.
std::string frameMemoryProblem(uint32_t width, uint32_t height, uint32_t stride, uint32_t scanline,
                               PixelFormat format, uint64_t available);
// Throws Failure naming the frame's "width" field when its declared size does
// not fit into the memory available now.
void checkFrameMemory(const SessionFrame& frame);

// Process mode the host creates the frame's instance with: "process_mode"
// when the line gives one, else 1 for preview and 0 for snapshot.
uint32_t processModeOf(const SessionFrame& frame);
// "preview" (mode 1), "snapshot" (mode 0), otherwise "modeN".
std::string modeLabel(uint32_t mode);

// Scene ids the camera's scene detector reports for the scene names.
std::optional<uint32_t> sceneIdOfName(const std::string& name);

// An unsigned 32-bit integer given on the command line, read exactly as a
// session value ("4200", "0x1068"; "4200.5" is refused the same way).
uint32_t unsignedArgument(const std::string& text, const std::string& where);

// Parses a whole session ("-": standard input); frames without a number continue from the one
// before (the first from 0). Throws Failure naming file, line and field.
std::vector<SessionFrame> readSession(const std::string& path);
SessionFrame parseFrameLine(const std::string& text, const std::string& file, size_t line);

// Values where a float is expected: a number, "nan", "inf", "-inf" or an
// exact bit pattern "0x3f800000" (16 hex digits for doubles). Throw
// Failure with `where` in front of the message.
float floatValue(const nlohmann::json& value, const std::string& where);
double doubleValue(const nlohmann::json& value, const std::string& where);

}  // namespace lumo
