// Signals that ask a run to stop.
#pragma once

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

}  // namespace korvel
