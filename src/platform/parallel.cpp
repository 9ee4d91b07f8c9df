#include "platform/parallel.h"

#include <sched.h>

#include <atomic>
#include <condition_variable>
#include <cstdlib>
#include <mutex>
#include <thread>
#include <vector>

namespace korvel {
namespace {

int count_workers() {
  const char* wish = std::getenv("KORVEL_THREADS");  // NOLINT(concurrency-mt-unsafe)
  if (wish != nullptr) {
    const int n = std::atoi(wish);
    if (n >= 1 && n <= 256) return n;
  }
  cpu_set_t set;
  CPU_ZERO(&set);
  if (sched_getaffinity(0, sizeof set, &set) != 0) return 1;
  const int n = CPU_COUNT(&set);
  return n < 1 ? 1 : (n > 256 ? 256 : n);
}

// The helpers of the main thread: made once, asleep between loops, joined at the process's end.
class Pool {
 public:
  explicit Pool(int helpers) {
    threads_.reserve(static_cast<std::size_t>(helpers));
    for (int i = 0; i < helpers; ++i) threads_.emplace_back([this, i] { serve(i + 1); });
  }
  Pool(const Pool&) = delete;
  Pool& operator=(const Pool&) = delete;
  ~Pool() {
    {
      const std::lock_guard lock(mutex_);
      ending_ = true;
    }
    wake_.notify_all();
    for (std::thread& t : threads_) t.join();
  }

  void run(int sections, void (*body)(void*, int), void* context) {
    const int step = static_cast<int>(threads_.size()) + 1;
    {
      const std::lock_guard lock(mutex_);
      sections_ = sections;
      body_ = body;
      context_ = context;
      busy_ = step - 1;
      ++round_;
    }
    wake_.notify_all();
    for (int s = 0; s < sections; s += step) body(context, s);
    std::unique_lock lock(mutex_);
    done_.wait(lock, [this] { return busy_ == 0; });
  }

 private:
  void serve(int first) {
    unsigned seen = 0;
    std::unique_lock lock(mutex_);
    for (;;) {
      wake_.wait(lock, [&] { return ending_ || round_ != seen; });
      if (ending_) return;
      seen = round_;
      const int sections = sections_;
      const int step = static_cast<int>(threads_.size()) + 1;
      auto* body = body_;
      auto* context = context_;
      lock.unlock();
      for (int s = first; s < sections; s += step) body(context, s);
      lock.lock();
      if (--busy_ == 0) done_.notify_one();
    }
  }

  std::mutex mutex_;
  std::condition_variable wake_, done_;
  std::vector<std::thread> threads_;
  void (*body_)(void*, int) = nullptr;
  void* context_ = nullptr;
  int sections_ = 0;
  int busy_ = 0;
  unsigned round_ = 0;
  bool ending_ = false;
};

}  // namespace

int workers() {
  static const int n = count_workers();
  return n;
}

void run_sections(int sections, void (*body)(void*, int), void* context) {
  if (workers() == 1 || sections <= 1) {
    for (int s = 0; s < sections; ++s) body(context, s);
    return;
  }
  static Pool pool(workers() - 1);
  pool.run(sections, body, context);
}

}  // namespace korvel
