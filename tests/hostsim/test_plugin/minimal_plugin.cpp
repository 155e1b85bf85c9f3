// A plugin built like a real one (no RTTI, hidden symbols, one C entry) that
// implements only what the interface leaves abstract. The build names the entry
// (ENTRY), says what it returns (ENTRY_RESULT) and whether it registers (REGISTER).
#include <vyalgo2/PluginWraper.h>
#include <vyalgo2/Provider.h>

namespace {

using namespace vyalgo2;

struct MinimalPlugin : PluginWraper {
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
  int m_enabledCalls = 0;
};

struct MinimalProvider : PluginWraperProvider {
  unsigned int getVersion() const override { return PLUMA_INTERFACE_VERSION; }
  std::string plumaGetType() const override { return PLUMA_PROVIDER_TYPE; }
  PluginWraper* create() const override { return new MinimalPlugin; }
  std::string getName() const override { return "org.example.minimal"; }
};

}  // namespace

extern "C" __attribute__((visibility("default"))) bool ENTRY(ProviderManager* registry) {
  if (REGISTER) registry->add(new MinimalProvider);
  return ENTRY_RESULT;
}
