// The simulator's system property store.
#pragma once

#include <map>
#include <string>

namespace hostsim {

// Removes every property.
void clearProperties();
// All properties, ordered by name.
std::map<std::string, std::string> allProperties();

}  // namespace hostsim
