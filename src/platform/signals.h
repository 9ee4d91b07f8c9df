// Signals that ask a run to stop.
#pragma once

namespace korvel {

// Catches SIGINT, SIGTERM and SIGHUP (and ignores SIGPIPE, so that a closed pipe is a write error).
// The first one is remembered; the engine ends at its next safe point.
void catch_signals();
// Number of the signal received, 0 none.
int signal_received();
void forget_signal();

}  // namespace korvel
