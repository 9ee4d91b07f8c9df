// The command file for gnuplot that the plots of one command share.
#pragma once

namespace korvel {

// Forgets plots that an abandoned command left behind.
void start_plots();
// Writes the command file when there were plots. False after a reported failure.
bool finish_plots();

}  // namespace korvel
