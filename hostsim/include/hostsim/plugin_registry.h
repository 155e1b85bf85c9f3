// Loads plugin libraries the way the camera framework does: dlopen, the
// exported "tavuconnect" entry, the registered provider, then create().
#pragma once

#include <vyalgo2/PluginWraper.h>
#include <vyalgo2/Provider.h>

#include <memory>
#include <string>
#include <vector>

namespace hostsim {

// Deletes a plugin object through its virtual destructor (destroy() is the
// caller's business, as on the phone).
struct PluginDeleter {
  void operator()(vyalgo2::PluginWraper* plugin) const;
};
using PluginPtr = std::unique_ptr<vyalgo2::PluginWraper, PluginDeleter>;

class PluginRegistry {
public:
  PluginRegistry();
  // Deletes every provider, then unloads the libraries. Plugin objects must
  // be gone before.
  ~PluginRegistry();
  PluginRegistry(const PluginRegistry&) = delete;
  PluginRegistry& operator=(const PluginRegistry&) = delete;

  // Loads a library and calls its entry. false with a message naming the
  // library and what failed (not found, no entry, entry returned false,
  // nothing registered).
  bool load(const std::string& libraryPath, std::string* error = nullptr);

  // Providers of plugin objects registered so far.
  std::vector<PluginWraperProvider*> providers() const;
  // The provider whose getName() is `name`, or null.
  PluginWraperProvider* findProvider(const std::string& name) const;
  // A new plugin object from the provider named `name` (null when none).
  PluginPtr create(const std::string& name) const;

  vyalgo2::ProviderManager& manager() { return m_manager; }

private:
  vyalgo2::ProviderManager m_manager;
  std::vector<void*> m_libraries;
};

}  // namespace hostsim
