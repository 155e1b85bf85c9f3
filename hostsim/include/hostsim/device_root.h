// The folder under which the simulator roots absolute device paths.
#pragma once

#include <string>

namespace hostsim {

// Initially the value of LUMO_DEVICE_ROOT, or empty (device paths are used
// as they are). Set it before the plugin first touches a device path.
void setDeviceRoot(const std::string& root);
std::string deviceRoot();

}  // namespace hostsim
