// The simulator's system property store.
//
// The store is seeded, when it is first used, from the process environment:
//   LUMO_PROPERTIES_FILE=<path>   a property file (format below), loaded first;
//   LUMO_PROPS="name=value;name=value"
//                                 single properties, applied after the file.
// Problems with either are printed on stderr and the rest still applies.
//
// Property files hold one property per line, either `name=value` (as in
// build.prop) or `[name]: [value]` (as `getprop` prints them). Blank lines
// and lines starting with '#' are ignored; spaces around names and values
// are dropped.
//
// Names are letters, digits and "._-:@". As on Android, a value may have at
// most PROPERTY_VALUE_MAX - 1 characters unless the name starts with "ro.";
// readers get at most PROPERTY_VALUE_MAX - 1 characters of any value.
#pragma once

#include <map>
#include <string>

namespace hostsim {

// Removes every property.
void clearProperties();
// All properties, ordered by name.
std::map<std::string, std::string> allProperties();

// Sets one property; false with the reason when the name or value is refused.
bool setProperty(const std::string& name, const std::string& value, std::string* error = nullptr);
// Sets a property from a "name=value" argument (e.g. a command-line word).
bool setPropertyArgument(const std::string& argument, std::string* error = nullptr);

// Loads a property file. All or nothing: on the first bad line nothing is
// set and `error` reads "<path>:<line>: <what is wrong>".
bool loadPropertyFile(const std::string& path, std::string* error = nullptr);
// The same for text already in memory; `origin` names it in errors.
bool loadPropertyText(const std::string& text, const std::string& origin,
                      std::string* error = nullptr);

// Every property as `[name]: [value]` lines, as getprop prints them.
std::string formatProperties();

// Forgets the store and seeds it again from the environment. Returns the
// problems found (empty when none).
std::string reseedPropertiesFromEnvironment();

}  // namespace hostsim
