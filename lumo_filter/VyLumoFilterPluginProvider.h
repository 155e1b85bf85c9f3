// The provider the library registers with the host: it names the plugin
// and makes VyLumoFilterPlugin objects.
#pragma once

#include <vyalgo2/PluginWraper.h>
#include <vyalgo2/Provider.h>

#include <string>

class VyLumoFilterPluginProvider : public PluginWraperProvider {
public:
  unsigned int getVersion() const override;
  std::string plumaGetType() const override;
  // The host owns the result.
  vyalgo2::PluginWraper* create() const override;
  std::string getName() const override;
};

// The library's one exported symbol: registers one provider with `registry`
// (which takes ownership) and returns true.
extern "C" __attribute__((visibility("default"))) bool tavuconnect(
    vyalgo2::ProviderManager* registry);
