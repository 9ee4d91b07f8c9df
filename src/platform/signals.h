// Signals that ask a run to stop.
#pragma once

#include <csignal>
#include <cstdint>

namespace korvel {

// Catches SIGINT, SIGTERM, SIGHUP and SIGXCPU (and ignores SIGPIPE, so that a closed pipe is a
// write error). The first one is remembered; the engine ends at its next safe point.
void catch_signals();
// Limits of a run whose commands are not trusted: ten minutes of processor time (then SIGXCPU asks
// it to stop), files of 1 GiB, no core dumps. They cannot be raised again.
void limit_resources();
// Number of the signal received, 0 none.
int signal_received();
void forget_signal();

// The same wish from within: SIGINT is taken as received.
void ask_to_stop();
// A word of the host that any thread may set: 1 counts as SIGINT, 2 as SIGTERM. forget_signal puts
// a 1 back to 0. Null: no word is looked at.
void watch_stop(std::int32_t* word);
void clear_stop();  // whatever it holds: the start and the end of a run

// While it lives a write to a closed pipe or beyond a file limit of this thread is an error and no
// signal. No handler is touched: they belong to the host. The thread's mask comes back at the end.
class WriteSignalsOff {
 public:
  WriteSignalsOff();
  WriteSignalsOff(const WriteSignalsOff&) = delete;
  WriteSignalsOff& operator=(const WriteSignalsOff&) = delete;
  ~WriteSignalsOff();

 private:
  sigset_t old_;
  bool pipe_pending_, size_pending_;  // before: such a signal is not ours to take away
};

}  // namespace korvel
