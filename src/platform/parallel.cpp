#include "platform/parallel.h"

#include <sched.h>
#include <unistd.h>

#include <atomic>
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
      busy_ = step - 1;
      ++round_;
    }
    wake_.notify_all();
    std::exception_ptr failed = work(0, step, sections, body, context);
    std::unique_lock lock(mutex_);
    done_.wait(lock, [this] { return busy_ == 0; });
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
      const std::exception_ptr failed = work(first, step, sections, body, context);
      lock.lock();
      if (failed != nullptr) failed_ = failed;
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
  std::exception_ptr failed_;  // of a helper, until its loop ends
  bool ending_ = false;
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
