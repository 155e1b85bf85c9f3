// A small persistent pool of worker threads for row bands.
#include "thread_pool.h"

namespace lumo::render {

ThreadPool::ThreadPool(size_t threads) {
  for (size_t i = 1; i < threads; ++i) m_workers.emplace_back([this] { workerLoop(); });
}

ThreadPool::~ThreadPool() {
  {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_stop = true;
  }
  m_wake.notify_all();
  for (std::thread& t : m_workers) t.join();
}

void ThreadPool::drain() {
  for (size_t i = m_next.fetch_add(1); i < m_count; i = m_next.fetch_add(1)) (*m_task)(i);
}

void ThreadPool::run(size_t count, const std::function<void(size_t)>& task) {
  std::lock_guard<std::mutex> runLock(m_runMutex);
  if (m_workers.empty() || count <= 1) {
    for (size_t i = 0; i < count; ++i) task(i);
    return;
  }
  {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_task = &task;
    m_count = count;
    m_next.store(0);
    m_busy = m_workers.size();
    ++m_generation;
  }
  m_wake.notify_all();
  drain();
  std::unique_lock<std::mutex> lock(m_mutex);
  m_done.wait(lock, [this] { return m_busy == 0; });
  m_task = nullptr;
}

void ThreadPool::workerLoop() {
  unsigned seen = 0;
  for (;;) {
    {
      std::unique_lock<std::mutex> lock(m_mutex);
      m_wake.wait(lock, [&] { return m_stop || m_generation != seen; });
      if (m_stop) return;
      seen = m_generation;
    }
    drain();
    std::lock_guard<std::mutex> lock(m_mutex);
    if (--m_busy == 0) m_done.notify_one();
  }
}

}  // namespace lumo::render
