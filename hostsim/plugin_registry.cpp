// Plugin loading as the camera framework does it.
#include <dlfcn.h>
#include <hostsim/plugin_registry.h>

namespace hostsim {

void PluginDeleter::operator()(vyalgo2::PluginWraper* plugin) const { delete plugin; }

PluginRegistry::PluginRegistry() = default;

// Providers hold code from their libraries: they go first.
PluginRegistry::~PluginRegistry() {
  m_manager.clear();
  for (auto it = m_libraries.rbegin(); it != m_libraries.rend(); ++it) dlclose(*it);
}

bool PluginRegistry::load(const std::string& libraryPath, std::string* error) {
  auto fail = [&](const std::string& why) {
    if (error) *error = "plugin library " + libraryPath + ": " + why;
    return false;
  };
  // Local binding keeps two plugins' private symbols apart, as on the phone.
  void* library = dlopen(libraryPath.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (library == nullptr) {
    const char* why = dlerror();
    return fail(std::string("cannot be loaded: ") + (why ? why : "unknown error"));
  }
  dlerror();
  auto entry = reinterpret_cast<VyPluginConnectFn>(dlsym(library, "tavuconnect"));
  if (entry == nullptr) {
    dlclose(library);
    return fail("does not export tavuconnect");
  }
  const size_t before = m_manager.getProviders().size();
  if (!entry(&m_manager)) {
    // Whatever it registered before failing stays owned by the manager,
    // so the library must stay loaded.
    m_libraries.push_back(library);
    return fail("tavuconnect returned false");
  }
  m_libraries.push_back(library);
  if (m_manager.getProviders().size() == before) return fail("tavuconnect registered nothing");
  return true;
}

std::vector<PluginWraperProvider*> PluginRegistry::providers() const {
  std::vector<PluginWraperProvider*> out;
  // The provider type string stands in for a checked downcast (plugins
  // are built without run-time type information).
  for (vyalgo2::Provider* p : m_manager.getProviders(PluginWraperProvider::PLUMA_PROVIDER_TYPE))
    out.push_back(static_cast<PluginWraperProvider*>(p));
  return out;
}

PluginWraperProvider* PluginRegistry::findProvider(const std::string& name) const {
  for (PluginWraperProvider* p : providers())
    if (p->getName() == name) return p;
  return nullptr;
}

PluginPtr PluginRegistry::create(const std::string& name) const {
  PluginWraperProvider* provider = findProvider(name);
  return PluginPtr(provider ? provider->create() : nullptr);
}

}  // namespace hostsim
