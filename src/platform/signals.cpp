#include "platform/signals.h"

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
  action.sa_handler = SIG_IGN;
  sigaction(SIGPIPE, &action, nullptr);
}

int signal_received() { return received; }

void forget_signal() { received = 0; }

}  // namespace korvel
