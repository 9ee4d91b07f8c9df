// Statistics utilities.
//
//   probability.h    normal, log gamma, chi-square, incomplete beta, F and T: the p-values of every
//                    estimator and of the expression functions
// The numeric routines hold no state; the room owns no shared area.
#pragma once

#include "stats/probability.h"
