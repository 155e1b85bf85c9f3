// Preparing the simulated camera host before a plugin is loaded: system
// properties, the device root and its folders, and where logs go. The
// plugin reads its switches when it is loaded, so this runs first.
#pragma once

#include <string>
#include <vector>

namespace lumo {

struct HostSetup {
  std::string deviceRoot;          // empty: LUMO_DEVICE_ROOT or none
  std::string propsFile;           // name=value lines
  std::vector<std::string> props;  // KEY=VALUE, applied after the file
  std::string logLevel;    // verbose|debug|info|warn|error; empty: warn on stderr, all in a file
  std::string logcatFile;  // Android log destination; empty: stderr
  std::string offlineLog;  // offline log file; empty: as the properties say
};

// Throws Failure (bad property, unopenable log file, ...).
void applyHostSetup(const HostSetup& setup);

// Host path of the calibration file the plugin loads.
std::string calibrationFilePath();
// Whether the calibration file is there. The plugin reads it whole without
// asking what it is, so anything but a regular file of at most the
// calibration size limit throws Failure here, before the plugin loads.
bool calibrationFileReady();
// Host path of the folder the plugin dumps into.
std::string dumpFolderPath();

// Default plugin library: liblumo_filter.so in ../lib beside this executable.
std::string defaultPluginPath();

}  // namespace lumo
