// The pool runs every task of a run exactly once, on any thread count, and
// can be reused run after run.
#include "thread_pool.h"

#include <gtest/gtest.h>

#include <atomic>
#include <mutex>
#include <set>
#include <thread>
#include <vector>

namespace lumo::render {
namespace {

TEST(ThreadPool, EveryTaskRunsExactlyOncePerRun) {
  for (size_t threads : {1, 2, 4}) {
    ThreadPool pool(threads);
    EXPECT_EQ(pool.threads(), threads);
    for (size_t count : {0, 1, 3, 64}) {
      for (int run = 0; run < 20; ++run) {
        std::vector<std::atomic<int>> hits(count);
        pool.run(count, [&](size_t i) { hits[i].fetch_add(1); });
        for (size_t i = 0; i < count; ++i)
          ASSERT_EQ(hits[i].load(), 1) << threads << " threads, task " << i << " of " << count;
      }
    }
  }
}

TEST(ThreadPool, UsesItsWorkers) {
  ThreadPool pool(3);
  std::mutex mutex;
  std::set<std::thread::id> seen;
  std::atomic<int> waiting{0};
  // Each task waits until three tasks are running, so three threads must take part.
  pool.run(3, [&](size_t) {
    waiting.fetch_add(1);
    while (waiting.load() < 3) std::this_thread::yield();
    std::lock_guard<std::mutex> lock(mutex);
    seen.insert(std::this_thread::get_id());
  });
  EXPECT_EQ(seen.size(), 3u);
}

}  // namespace
}  // namespace lumo::render
