// Statistics utilities.
//
//   probability.h      normal, bivariate normal, gamma, chi-square, incomplete beta, F and T: the
//                      p-values of every estimator and of the expression functions
//   critical_values.h  their inverses
//   gamma_terms.h      the leading factors of those families in extended precision
//   mixture.h          non-central forms
//   contour.h          tail probabilities by contour integration; on it
//     imhof.h            FQUAD: weighted sums of chi-squares
//     durbin_watson.h    the exact distribution of the Durbin-Watson statistic
//   davies.h           DAVIES: linear combinations of non-central chi-squares
//   law.h              the distributions of DISTRIB under one form; distrib*.cpp is the command
// The numeric routines hold no state; the room owns no shared area.
#pragma once

#include "engine/workspace.h"
#include "stats/probability.h"

namespace korvel {

void DISTR(Workspace ws);  // DISTRIB

}  // namespace korvel
