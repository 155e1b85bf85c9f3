// A plugin built like a real one (no RTTI, hidden symbols, one C entry) that
// implements only what the interface leaves abstract. ENTRY_RESULT is what the
// entry returns; NO_ENTRY misspells it; REGISTER_NOTHING registers no provider.
#include <vyalgo2/PluginWraper.h>
#include <vyalgo2/Provider.h>

#ifndef ENTRY_RESULT
#define ENTRY_RESULT true
#endif

namespace {

using namespace vyalgo2;

class MinimalPlugin : public PluginWraper {
public:
  int initialize(CreateInfo* info, VyaNodeInterface) override {
    return info ? static_cast<int>(info->processMode) : -1;
  }
  int preProcess(PreProcessInfo) override { return 0; }
  // Tells the host how often isEnabled ran, so it can see whether a default consulted it.
  int processRequest(ProcessRequestInfo*) override { return m_enabledCalls; }
  int processRequest(ProcessRequestInfoV2*) override { return 0; }
  int flushRequest(FlushRequestInfo*) override { return 0; }
  void destroy() override {}
  bool isEnabled(VyaParams) override { return ++m_enabledCalls > 0; }
  void reset() override {}

private:
  int m_enabledCalls = 0;
};

class MinimalProvider : public PluginWraperProvider {
public:
  unsigned int getVersion() const override { return PLUMA_INTERFACE_VERSION; }
  std::string plumaGetType() const override { return PLUMA_PROVIDER_TYPE; }
  PluginWraper* create() const override { return new MinimalPlugin; }
  std::string getName() const override { return "org.example.minimal"; }
};

}  // namespace

#ifdef NO_ENTRY
#define tavuconnect tavuconnect_misspelt
#endif
extern "C" __attribute__((visibility("default"))) bool tavuconnect(ProviderManager* registry) {
#ifndef REGISTER_NOTHING
  registry->add(new MinimalProvider);
#endif
  (void)registry;
  return ENTRY_RESULT;
}
