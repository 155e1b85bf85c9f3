// The JSON description of a calibration file: named looks (generated or
// read from .cube files) and shadings, the AI-scene and zoom-ratio band
// trees that refer to them, and the header texts. Also its export.
//
//   {"trigger_control": "...", "param_type": "...", "param_range": "...",
//    "looks": {"warm": {"generate": {"temperature": 0.4}}, "film": {"cube": "film.cube"},
//              "print": {"lut": "print.3dl"}},
//    "shadings": {"flat": [0, 0, 0, 0, 0, 0, 0, 0]},
//    "scenes": [{"name": "common", "lux": [{"start": 0, "end": 400,
//                "cct": [{"start": 0, "end": 4500, "lut": "warm"}]}]}],
//    "zooms": [{"ratio": 1.0, "lux": [{"start": 0, "end": 65535,
//               "cct": [{"start": 0, "end": 65535, "shading": "flat"}]}]}]}
//
// Named looks and shadings are numbered by their last use, so the last CCT
// band of each tree always carries the highest block index. "looks" and
// "shadings" may instead be arrays, referred to by index, to write any
// numbering at all. Keys starting with "_" are comments.
#pragma once

#include <calib/calibration_file.h>
#include <calib/lut_source.h>

#include <nlohmann/json_fwd.hpp>
#include <string>

namespace calib {

// A look read from a LUT file: where, how it was resampled and what looks wrong.
struct LookSource {
  std::string field;  // "looks.film"
  std::string path;
  std::string summary;            // describeImport()
  std::vector<Finding> problems;  // lutProblems()
};

// Throws std::invalid_argument: "FILE: field "scenes[1].lux[0].cct[2].lut": ...".
// Relative .cube paths are taken from `baseDir`.
// Each look read from a LUT file is reported in `sources` when given.
CalibrationFile parseDescription(const nlohmann::json& description, const std::string& file,
                                 const std::string& baseDir,
                                 std::vector<LookSource>* sources = nullptr);
CalibrationFile readDescription(const std::string& path,
                                std::vector<LookSource>* sources = nullptr);

// The description of a file in array form; LUT blocks are written as
// lut_NNN.cube into `cubeDir` (created if needed) and referred to by a path
// relative to `jsonDir`. Throws std::runtime_error when a cube cannot be written.
nlohmann::json exportDescription(const CalibrationFile& file, const std::string& jsonDir,
                                 const std::string& cubeDir);

}  // namespace calib
