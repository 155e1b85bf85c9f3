// The JSON description of a calibration file: named looks (generated or
// read from .cube files) and shadings, the AI-scene and zoom-ratio band
// trees that refer to them, and the header texts. Also its export.
//
//   {"trigger_control": "...", "param_type": "...", "param_range": "...",
//    "looks": {"warm": {"generate": {"temperature": 0.4}}, "film": {"cube": "film.cube"}},
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

#include <nlohmann/json_fwd.hpp>
#include <string>

namespace calib {

// Throws std::invalid_argument: "FILE: field "scenes[1].lux[0].cct[2].lut": ...".
// Relative .cube paths are taken from `baseDir`.
CalibrationFile parseDescription(const nlohmann::json& description, const std::string& file,
                                 const std::string& baseDir);
CalibrationFile readDescription(const std::string& path);

// The description of a file in array form; LUT blocks are written as
// lut_NNN.cube into `cubeDir` (created if needed) and referred to by a path
// relative to `jsonDir`. Throws std::runtime_error when a cube cannot be written.
nlohmann::json exportDescription(const CalibrationFile& file, const std::string& jsonDir,
                                 const std::string& cubeDir);

}  // namespace calib
