// The framework's provider registry and the provider base statics.
#include <vyalgo2/Provider.h>

#include <utility>

const unsigned int PluginWraperProvider::PLUMA_INTERFACE_VERSION = 1;
const std::string PluginWraperProvider::PLUMA_PROVIDER_TYPE = "PluginWraper";

namespace vyalgo2 {

Provider::~Provider() = default;

ProviderManager::ProviderManager() = default;

ProviderManager::~ProviderManager() { clear(); }

bool ProviderManager::add(Provider* provider) {
  std::unique_ptr<Provider> owned(provider);
  if (!owned) return false;
  if (owned->getVersion() != PluginWraperProvider::PLUMA_INTERFACE_VERSION) return false;
  m_providers.push_back(std::move(owned));
  return true;
}

std::vector<Provider*> ProviderManager::getProviders() const {
  std::vector<Provider*> out;
  out.reserve(m_providers.size());
  for (const auto& p : m_providers) out.push_back(p.get());
  return out;
}

std::vector<Provider*> ProviderManager::getProviders(const std::string& type) const {
  std::vector<Provider*> out;
  for (const auto& p : m_providers)
    if (p->plumaGetType() == type) out.push_back(p.get());
  return out;
}

// Newest first, so a provider never outlives one registered before it.
void ProviderManager::clear() {
  while (!m_providers.empty()) m_providers.pop_back();
}

}  // namespace vyalgo2
