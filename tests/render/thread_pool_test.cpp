// The pool runs every task of a run exactly once, on any thread count, and
// can be reused run after run.
#include "thread_pool.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <mutex>
#include <set>
#include <thread>
#include <vector>

#include "frame_renderer.h"
#include "render_test_support.h"

namespace lumo::render {
namespace {

// Each task waits until all of a run's tasks are running, so every thread
// must take part; a pool short of threads fails at the deadline instead of
// hanging.
TEST(ThreadPool, EveryTaskRunsExactlyOncePerRunOnItsOwnThread) {
  for (size_t threads : {1, 2, 4}) {
    ThreadPool pool(threads);
    EXPECT_EQ(pool.threads(), threads);
    for (size_t count : {0, 1, 3, 64})
      for (int run = 0; run < 20; ++run) {
        std::vector<std::atomic<int>> hits(count);
        pool.run(count, [&](size_t i) { hits[i].fetch_add(1); });
        for (size_t i = 0; i < count; ++i)
          ASSERT_EQ(hits[i].load(), 1) << threads << " threads, task " << i << " of " << count;
      }
    std::mutex mutex;
    std::set<std::thread::id> seen;
    std::atomic<size_t> waiting{0};
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    pool.run(threads, [&](size_t) {
      waiting.fetch_add(1);
      while (waiting.load() < threads && std::chrono::steady_clock::now() < deadline)
        std::this_thread::yield();
      std::lock_guard<std::mutex> lock(mutex);
      seen.insert(std::this_thread::get_id());
    });
    EXPECT_EQ(seen.size(), threads);
  }
}

// Row bands rendered on several threads write disjoint rows: the result is
// the one-thread result, and the race detector sees no conflict.
TEST(ThreadPool, BandedRenderEqualsSingleThreadRender) {
  std::mt19937 rng(8);
  EffectChain chain = testing::lutChain(testing::randomLattice(rng));
  testing::addStyle(chain, {0, 0, 0.1, 0.9, 1, 0.3, 1, 0, 0, 0});
  testing::TestImage in(FrameLayout::NV12, 97, 131, 3), one(FrameLayout::NV12, 97, 131, 3);
  testing::TestImage many(FrameLayout::NV12, 97, 131, 3);
  in.fill(rng);
  for (RenderPath path : {RenderPath::Fused, RenderPath::Reference}) {
    FrameRenderer single({path, 1}), banded({path, 4});
    single.setChain(chain);
    banded.setChain(chain);
    ASSERT_EQ(single.render(in.view(), one.view()), "");
    for (int run = 0; run < 3; ++run) ASSERT_EQ(banded.render(in.view(), many.view()), "");
    const auto a = one.buffers(), b = many.buffers();
    for (size_t i = 0; i < a.size(); ++i)
      EXPECT_EQ(std::memcmp(a[i]->data(), b[i]->data(), a[i]->size()), 0) << "plane " << i;
  }
}

}  // namespace
}  // namespace lumo::render
