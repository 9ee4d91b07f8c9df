// Limited dependent variables: probit, logit and tobit by maximum likelihood.
//
//   probc.cpp              PROBC: options, list and sample of the three commands, their data
//   probit.cpp             PROBIT: binary models and the multinomial logit, start and iteration
//   probit_tables.cpp      their coefficients, marginal effects, likelihood and pseudo R-squares
//   probit_success.cpp     their prediction success tables and the listing
//   tobit.cpp              TOBIT, TOBITR: censored regression, its start and iteration
//   tobit_tables.cpp       TOBITL, TOBP: its results and fitted values
//   limstore.cpp           variables that keep results, the estimate for TEST and FCAST
//   likelihood.h           kernels: one pass over the rows gives the log-likelihood and its first
//                          and second derivatives; likelihood_lanes.h their inner loops
//   newton.h               the units of the iteration, and the inverse of second derivatives
// The room owns LIMCOM. Columns are read where they lie (regress/regress.h); coefficients and their
// covariance go to SAVED (regress/tests.h), so TEST, CONFID and FCAST work after every estimate.
#pragma once

#include "engine/workspace.h"

namespace korvel {

void PROBC(Workspace ws);  // PROBIT, LOGIT, TOBIT

}  // namespace korvel
