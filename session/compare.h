// Two calibrations over the same captures: every frame of the sessions is
// read once and handed to two simulated hosts, one per calibration file,
// exactly as a replay would run it; the two outputs are scored by their
// CIEDE2000 distance and the plugin's two choices are set side by side.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "image.h"

namespace lumo {

// How far one frame's two outputs lie apart.
struct PictureScores {
  double mean = 0, p95 = 0, max = 0;  // CIEDE2000 over the scored pixels
  double share = 0;                   // of scored pixels above the threshold, 0 to 1
  bool identical = true;              // every pixel of the two outputs is equal
};

// Scores two outputs of one geometry (any pixel format). The distance is
// taken on a regular grid of at most kScoredPixels pixels (every pixel of a
// frame up to that size, every 7th pixel of every 7th row of 12 MP): enough
// for a stable p95 at a fraction of the frame's render time. `identical`
// looks at every byte.
constexpr uint64_t kScoredPixels = 1u << 18;
PictureScores scorePictures(const Image& a, const Image& b, double threshold);

// Scores at the four decimals that results carry.
PictureScores roundedScores(PictureScores scores);

// What tells one frame of a compare from another, in every run and shard.
struct FrameKey {
  std::string session;  // the session file as named on the command line
  size_t line = 0;
  auto operator<=>(const FrameKey&) const = default;
};

struct CompareFrame {
  FrameKey key;
  uint32_t frame = 0;
  std::string instance;  // "preview", "snapshot", "modeN"
  std::string scene;     // the scene the plugin took (either side; the metadata is shared)
  std::string problem;   // why the frame did not run (missing input); empty when it ran
  PictureScores scores;
  std::vector<std::string> choiceChanges;  // "reason", "lut", "weights", "shading", "script"
  std::string choiceNew, choiceAgainst;    // the plugin's choice on each side, in one line
  std::vector<int> luts;                   // LUT blocks either side blended, ascending
};

// Frames that changed most come first: by p95, then max, then mean, then a
// changed choice; missing frames last; ties by session and line.
bool changedMore(const CompareFrame& x, const CompareFrame& y);

// Small pictures of one frame for the page, as data URIs.
struct FramePictures {
  FrameKey key;
  std::string before, against, after, difference;
};
// Makes them from the input and the two outputs (all of the input's geometry).
using PictureMaker =
    std::function<FramePictures(const Image& input, const Image& against, const Image& after)>;

struct SessionInput {
  std::string path;    // as named on the command line
  std::string digest;  // of its bytes
};

// One run's findings, or one shard's, or several shards merged.
struct CompareResult {
  std::string calibNew, calibAgainst;                  // as named on the command line
  std::string digestNew, digestAgainst;                // of their bytes
  std::vector<SessionInput> sessions;                  // sorted by path
  double threshold = 2.0;                              // of the share column
  size_t pictureCount = 0;                             // frames shown with pictures at most
  std::optional<std::pair<uint32_t, uint32_t>> shard;  // I and N of --shard I/N
  std::vector<CompareFrame> frames;                    // most changed first
  std::vector<FramePictures> pictures;                 // of the most changed frames, in that order
};

struct CompareOptions {
  std::string calibNew, calibAgainst;
  std::string pluginPath;  // empty: the default beside the tool
  std::string workRoot;    // where the two private device trees go; empty: the temp folder
  std::optional<uint8_t> stylization;
  double threshold = 2.0;
  std::optional<std::pair<uint32_t, uint32_t>> shard;  // 1-based I of N
  bool keepGoing = false;  // run the frames whose inputs are there when some are not
  unsigned jobs = 1;
  size_t pictureCount = 6;  // frames shown with pictures
  PictureMaker makePictures;
};

// A digest of a file's bytes (hex), to tell inputs apart; throws Failure.
std::string fileDigest(const std::string& path);

// True when frame (session, line) falls into shard I of N (1-based).
bool inShard(const FrameKey& key, uint32_t index, uint32_t count);

// Runs the comparison. Frames whose input is missing are listed on stderr;
// without keepGoing that throws Failure before anything runs, with it they
// are kept in the result with their problem. `onFrame` is called after each
// frame (progress, interruption).
CompareResult compareSessions(const std::vector<std::string>& sessions,
                              const CompareOptions& options,
                              const std::function<void(size_t done, size_t total)>& onFrame = {});

}  // namespace lumo
