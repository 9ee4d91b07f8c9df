#include "platform/signals.h"

#include <sys/resource.h>

#include <atomic>
#include <ctime>

namespace korvel {
namespace {

volatile std::sig_atomic_t received = 0;

std::int32_t* watched = nullptr;

void remember(int number) { received = number; }

}  // namespace

void catch_signals() {
  struct sigaction action {};
  action.sa_handler = remember;
  sigemptyset(&action.sa_mask);
  // No SA_RESTART: a read that waits must come back.
  sigaction(SIGINT, &action, nullptr);
  sigaction(SIGTERM, &action, nullptr);
  sigaction(SIGHUP, &action, nullptr);
  sigaction(SIGXCPU, &action, nullptr);
  action.sa_handler = SIG_IGN;
  sigaction(SIGPIPE, &action, nullptr);
  sigaction(SIGXFSZ, &action, nullptr);  // a file at its limit is a write error too
}

void limit_resources() {
  constexpr rlim_t seconds = 600, grace = 10, bytes = rlim_t{1} << 30;
  const rlimit time{seconds, seconds + grace}, size{bytes, bytes}, none{0, 0};
  setrlimit(RLIMIT_CPU, &time);
  setrlimit(RLIMIT_FSIZE, &size);
  setrlimit(RLIMIT_CORE, &none);
}

int signal_received() {
  if (received != 0) return received;
  if (watched == nullptr) return 0;
  const std::int32_t wish = std::atomic_ref(*watched).load(std::memory_order_relaxed);
  if (wish == 0) return 0;
  return wish == 1 ? SIGINT : SIGTERM;
}

void forget_signal() {
  received = 0;
  std::int32_t one = 1;
  if (watched != nullptr) std::atomic_ref(*watched).compare_exchange_strong(one, 0);
}

void ask_to_stop() { received = SIGINT; }

void watch_stop(std::int32_t* word) { watched = word; }

void clear_stop() {
  received = 0;
  if (watched != nullptr) std::atomic_ref(*watched).store(0);
}

WriteSignalsOff::WriteSignalsOff() {
  sigset_t off, pending;
  sigemptyset(&off);
  sigaddset(&off, SIGPIPE);
  sigaddset(&off, SIGXFSZ);
  sigpending(&pending);
  pipe_pending_ = sigismember(&pending, SIGPIPE) == 1;
  size_pending_ = sigismember(&pending, SIGXFSZ) == 1;
  pthread_sigmask(SIG_BLOCK, &off, &old_);
}

WriteSignalsOff::~WriteSignalsOff() {
  sigset_t ours;
  sigemptyset(&ours);
  if (!pipe_pending_) sigaddset(&ours, SIGPIPE);
  if (!size_pending_) sigaddset(&ours, SIGXFSZ);
  const timespec at_once{0, 0};
  while (sigtimedwait(&ours, nullptr, &at_once) > 0) continue;
  pthread_sigmask(SIG_SETMASK, &old_, nullptr);
}

}  // namespace korvel
