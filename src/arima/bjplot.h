// The plots through gnuplot that one command makes.
#pragma once

#include "graphics/gnuplot.h"

namespace korvel {

// Forgets plots that an abandoned command left behind; the words are those of this one.
void start_plots(const PlotWords& words);
// Draws what was plotted. False after a reported failure.
bool finish_plots();

}  // namespace korvel
