// Plots through gnuplot and character plots.
//
// None of its commands is built yet: their rows in the command table have no handler, and the
// command loop says so. Its command and data files will go beside the listing.
#pragma once
