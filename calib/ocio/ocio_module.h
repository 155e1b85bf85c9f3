// The part of the LUT import that needs OpenColorIO. It is built as a
// module of its own and loaded the first time a LUT file is read:
// OpenColorIO and the libraries it pulls in take longer to load and
// relocate than `lumo` takes to copy a 12 MP frame, and most runs never
// read a LUT file.
#pragma once

#include <calib/lut_source.h>

#include <string>

namespace calib::ocio {

// The module's entry points. `open` returns an evaluator for `source` with
// the file's structure filled into `info`, or null with OpenColorIO's
// message in `error`; `apply` evaluates RGB float triples in place.
struct Module {
  const char* (*formatOfExtension)(const char* extension);  // without the dot; null if unknown
  void* (*open)(const char* source, LutSourceInfo* info, std::string* error);
  void (*apply)(const void* lut, float* rgb, long count);
  void (*close)(void* lut);
};

// Loads the module on first use; throws std::runtime_error naming the
// module when it cannot be loaded.
const Module& module();

}  // namespace calib::ocio

// The one symbol the module exports.
extern "C" const calib::ocio::Module* lumoOcioModule();
