// Provider registry in the style of the Pluma plug-in framework: a plugin
// library's exported entry registers providers, the framework asks them for
// plugin objects.
#pragma once

#include <vyalgo2/PluginWraper.h>

#include <memory>
#include <string>
#include <vector>

namespace vyalgo2 {

class Provider {
public:
  virtual ~Provider();
  virtual unsigned int getVersion() const = 0;
  virtual std::string plumaGetType() const = 0;
};

// Owns the providers registered with it.
class ProviderManager {
public:
  ProviderManager();
  ~ProviderManager();
  ProviderManager(const ProviderManager&) = delete;
  ProviderManager& operator=(const ProviderManager&) = delete;

  // Takes ownership. Rejects (and deletes) null providers and providers
  // whose interface version is not the framework's; returns false then.
  bool add(Provider* provider);
  // Providers registered so far, in registration order (borrowed).
  std::vector<Provider*> getProviders() const;
  std::vector<Provider*> getProviders(const std::string& type) const;
  // Deletes every provider (before their library is unloaded).
  void clear();

private:
  std::vector<std::unique_ptr<Provider>> m_providers;
};

}  // namespace vyalgo2

// Base of every plugin provider; the framework asks it for plugin objects.
class PluginWraperProvider : public vyalgo2::Provider {
public:
  static const unsigned int PLUMA_INTERFACE_VERSION;
  static const std::string PLUMA_PROVIDER_TYPE;
  // The caller owns the result and must destroy() it before deleting it.
  virtual vyalgo2::PluginWraper* create() const = 0;
  virtual std::string getName() const = 0;
};

// Signature of the C entry a plugin library exports.
extern "C" {
typedef bool (*VyPluginConnectFn)(vyalgo2::ProviderManager* registry);
}
