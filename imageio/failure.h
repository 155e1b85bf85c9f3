// The one exception type of the tool: a failure to report to the user (exit
// status 1). Its message already names the file and, where known, the line
// and the field.
#pragma once

#include <stdexcept>
#include <string>

namespace lumo {

class Failure : public std::runtime_error {
public:
  explicit Failure(const std::string& message) : std::runtime_error(message) {}
};

}  // namespace lumo
