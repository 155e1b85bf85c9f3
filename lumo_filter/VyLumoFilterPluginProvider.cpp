// Provider and C entry of the plugin library.
#include "VyLumoFilterPluginProvider.h"

#include <lumo/contract.h>

#include "VyLumoFilterPlugin.h"

unsigned int VyLumoFilterPluginProvider::getVersion() const {
  return PluginWraperProvider::PLUMA_INTERFACE_VERSION;
}

std::string VyLumoFilterPluginProvider::plumaGetType() const {
  return PluginWraperProvider::PLUMA_PROVIDER_TYPE;
}

vyalgo2::PluginWraper* VyLumoFilterPluginProvider::create() const {
  return new VyLumoFilterPlugin();
}

std::string VyLumoFilterPluginProvider::getName() const { return lumo::kProviderName; }

extern "C" bool tavuconnect(vyalgo2::ProviderManager* registry) {
  registry->add(new VyLumoFilterPluginProvider());
  return true;
}
