// Statistics utilities.
//
//   probability.h      normal, bivariate normal, gamma, chi-square, incomplete beta, F and T: the
//                      p-values of every estimator and of the expression functions
//   critical_values.h  their inverses
//   gamma_terms.h      the leading factors of those families in extended precision
//   mixture.h          non-central forms
//   contour.h          tail probabilities by contour integration; on it
//     imhof.h            FQUAD: weighted sums of chi-squares
//     durbin_watson.h    the exact distribution of the Durbin-Watson statistic;
//                        durbin_watson_ar.h the same under autocorrelated errors
//   davies.h           DAVIES: linear combinations of non-central chi-squares
//   stats_parts.h      STAT: stats_command, stats_tables, stats_spread, anova, stats_ranks
//   pcomp.h            PCOMP: components, factors, rotation
//   index.h            INDEX and SMOOTH: index numbers, moving averages
//   hodrick.h          the Hodrick-Prescott filter
//   stats_moments.h    moments of series and of common rows; stats_results.h stored results
//   law.h              the distributions of DISTRIB under one form; distrib*.cpp is the command
// The numeric routines hold no state; the room owns no shared area.
#pragma once

#include "engine/workspace.h"
#include "stats/probability.h"

namespace korvel {

void DISTR(Workspace ws);   // DISTRIB
void STATS(Workspace ws);   // STAT
void PCOMC(Workspace ws);   // PCOMP
void INDEXC(Workspace ws);  // INDEX, SMOOTH

}  // namespace korvel
