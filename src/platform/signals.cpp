#include "platform/signals.h"

#include <sys/resource.h>

#include <csignal>

namespace korvel {
namespace {

volatile std::sig_atomic_t received = 0;

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

int signal_received() { return received; }

void forget_signal() { received = 0; }

}  // namespace korvel
