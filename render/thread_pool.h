// A small persistent pool: the calling thread and N-1 workers share the
// tasks of one run() at a time.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

namespace lumo::render {

class ThreadPool {
public:
  // `threads` counts the caller; 1 runs everything on the caller.
  explicit ThreadPool(size_t threads);
  ~ThreadPool();
  ThreadPool(const ThreadPool&) = delete;
  ThreadPool& operator=(const ThreadPool&) = delete;

  size_t threads() const { return m_workers.size() + 1; }

  // Calls task(i) for every i in [0, count) and returns when all are done.
  // One run at a time: calls from several threads are serialised.
  void run(size_t count, const std::function<void(size_t)>& task);

private:
  void workerLoop();
  void drain();

  std::vector<std::thread> m_workers;
  std::mutex m_runMutex;  // one run() at a time
  std::mutex m_mutex;
  std::condition_variable m_wake;
  std::condition_variable m_done;
  const std::function<void(size_t)>* m_task = nullptr;
  size_t m_count = 0;
  std::atomic<size_t> m_next{0};
  size_t m_busy = 0;          // workers still inside the current run
  unsigned m_generation = 0;  // bumped per run so each worker joins it once
  bool m_stop = false;
};

}  // namespace lumo::render
