#include "platform/parallel.h"

#include <sched.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <csignal>
#include <cstdlib>
#include <exception>
#include <memory>
#include <mutex>
#include <system_error>
#include <thread>
#include <vector>

namespace korvel {
namespace {

// Cores this process may use.
int count_cores() {
  cpu_set_t set;
  CPU_ZERO(&set);
  if (sched_getaffinity(0, sizeof set, &set) != 0) return 1;
  const int n = CPU_COUNT(&set);
  return n < 1 ? 1 : (n > 256 ? 256 : n);
}

int count_workers() {
  const char* wish = std::getenv("KORVEL_THREADS");  // NOLINT(concurrency-mt-unsafe)
  if (wish != nullptr) {
    const int n = std::atoi(wish);
    if (n >= 1 && n <= 256) return n;
  }
  return count_cores();
}

// Looks again and again for a little while, before it is worth to sleep: waking a thread takes as
// long as the sections of a blocked matrix kernel. True when the condition came.
template <class Condition>
bool look_out(Condition&& come) {
  constexpr auto WHILE = std::chrono::microseconds(50);
  constexpr int LOOKS = 32;  // between two looks at the clock
  const auto end = std::chrono::steady_clock::now() + WHILE;
  do {
    for (int i = 0; i < LOOKS; ++i) {
      if (come()) return true;
#if defined(__x86_64__)
      __builtin_ia32_pause();
#endif
    }
  } while (std::chrono::steady_clock::now() < end);
  return false;
}

// The helpers of the main thread: made once, asleep between loops, joined at the process's end.
class Pool {
 public:
  explicit Pool(int helpers) {
    threads_.reserve(static_cast<std::size_t>(helpers));
    // Signals are for the threads of the program or the host: ours inherit a closed mask.
    sigset_t closed, old;
    sigfillset(&closed);
    for (const int fault : {SIGSEGV, SIGBUS, SIGFPE, SIGILL}) sigdelset(&closed, fault);
    pthread_sigmask(SIG_SETMASK, &closed, &old);
    // A process at its limit of threads goes on with those it gets.
    try {
      for (int i = 0; i < helpers; ++i) threads_.emplace_back([this, i] { serve(i + 1); });
    } catch (const std::system_error&) {
    }
    pthread_sigmask(SIG_SETMASK, &old, nullptr);
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
      busy_.store(step - 1, std::memory_order_relaxed);
      round_.fetch_add(1, std::memory_order_release);
    }
    wake_.notify_all();
    std::exception_ptr failed = work(0, step, sections, body, context);
    const auto ended = [this] { return busy_.load(std::memory_order_acquire) == 0; };
    if (!(spin_ && look_out(ended))) {
      std::unique_lock lock(mutex_);
      done_.wait(lock, ended);
    }
    if (failed == nullptr) failed = failed_;
    failed_ = nullptr;
    if (failed != nullptr) std::rethrow_exception(failed);
  }

 private:
  // Sections first, first + step ... What a section throws (no memory left) is carried to the
  // caller: out of a thread's routine it would end the process.
  static std::exception_ptr work(int first, int step, int sections, void (*body)(void*, int),
                                 void* context) {
    try {
      for (int s = first; s < sections; s += step) body(context, s);
    } catch (...) {
      return std::current_exception();
    }
    return nullptr;
  }

  void serve(int first) {
    unsigned seen = 0;
    for (;;) {
      const auto called = [&] {
        return ending_.load(std::memory_order_relaxed) ||
               round_.load(std::memory_order_acquire) != seen;
      };
      if (!(spin_ && look_out(called))) {
        std::unique_lock lock(mutex_);
        wake_.wait(lock, called);
      }
      if (ending_.load(std::memory_order_relaxed)) return;
      // What the round is about was written before its number, and stays until all are through.
      seen = round_.load(std::memory_order_acquire);
      const int step = static_cast<int>(threads_.size()) + 1;
      const std::exception_ptr failed = work(first, step, sections_, body_, context_);
      if (failed != nullptr) {
        const std::lock_guard lock(mutex_);
        failed_ = failed;
      }
      if (busy_.fetch_sub(1, std::memory_order_acq_rel) == 1) {
        const std::lock_guard lock(mutex_);  // the caller looks or sleeps, nothing between
        done_.notify_one();
      }
    }
  }

  std::mutex mutex_;
  std::condition_variable wake_, done_;
  std::vector<std::thread> threads_;
  void (*body_)(void*, int) = nullptr;
  void* context_ = nullptr;
  int sections_ = 0;
  std::exception_ptr failed_;  // of a helper, until its loop ends
  std::atomic<int> busy_ = 0;
  std::atomic<unsigned> round_ = 0;
  std::atomic<bool> ending_ = false;
  const bool spin_ =
      workers() <= count_cores();  // more threads than cores would only get in the way
};

// A process that forks has no helpers in its child, which must neither wait for them nor join them.
class PoolOwner {
 public:
  explicit PoolOwner(int helpers) : pool_(std::make_unique<Pool>(helpers)), process_(getpid()) {}
  PoolOwner(const PoolOwner&) = delete;
  PoolOwner& operator=(const PoolOwner&) = delete;
  ~PoolOwner() {
    if (getpid() != process_) static_cast<void>(pool_.release());
  }
  Pool* pool() const { return getpid() == process_ ? pool_.get() : nullptr; }

 private:
  std::unique_ptr<Pool> pool_;
  pid_t process_;
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
  static const PoolOwner owner(workers() - 1);
  if (owner.pool() == nullptr) {
    for (int s = 0; s < sections; ++s) body(context, s);
  } else {
    owner.pool()->run(sections, body, context);
  }
}

}  // namespace korvel
