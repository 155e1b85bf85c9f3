// Strong reference counting: the last decStrong deletes the object.
#include <utils/RefBase.h>

namespace android {

RefBase::RefBase() : m_strong(0) {}
RefBase::~RefBase() = default;

void RefBase::incStrong(const void*) const { m_strong.fetch_add(1, std::memory_order_relaxed); }

void RefBase::decStrong(const void*) const {
  if (m_strong.fetch_sub(1, std::memory_order_acq_rel) == 1) delete this;
}

int32_t RefBase::getStrongCount() const { return m_strong.load(std::memory_order_relaxed); }

}  // namespace android
