// Watches the filter SDK from the host's side: every filter the plugin
// creates while a FilterTap lives is the SDK's own filter behind a decorator
// that notes the script and LUT it holds and each render call's result.
#pragma once

#include <hostsim/filter_factory.h>

#include <memory>
#include <mutex>
#include <vector>

#include "frame_outcome.h"

namespace lumo {

class FilterTap {
public:
  FilterTap();
  // Render calls since the last take, in order.
  std::vector<FilterRender> take();

  struct Journal {
    std::mutex mutex;
    std::vector<FilterRender> renders;
  };

private:
  std::shared_ptr<Journal> m_journal;
  hostsim::FilterFactoryOverride m_override;
};

}  // namespace lumo
