// Plots: with characters on the output channel, and through gnuplot.
//
//   plotc.cpp      PLOTC (PLOT, GRAPH): options, the plot matrix, the choice of the plot
//   plotpr.cpp     PLOTPR: the character plot
//   ploths.cpp     PLOTHS: the histogram
//   plot_region.cpp  the joint confidence region of CONFID
//   plotgn.cpp     PLOTGN: data rows and plot statements for gnuplot
//   gnuplot.*      PLOTGX: files, terminal, run and report, for every command that plots
//   gnuplot_run.cpp  gnuplot itself, and whether it made a picture
//   plot_data.cpp  data rows
//   plot_web.cpp   pictures in web output
// The room owns VPLCOM, the numbers of the next plot files.
#pragma once

#include "engine/workspace.h"
#include "graphics/gnuplot.h"
#include "regress/confid.h"

namespace korvel {

void PLOTC(Workspace ws);  // PLOT, GRAPH

// The region that CONFID keeps, with its heading. False after a reported failure.
bool plot_region(Workspace ws, const ConfidenceRegion& region, const PlotWords& words,
                 bool gnuplot);

}  // namespace korvel
