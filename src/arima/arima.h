// Identification, estimation and forecasting of seasonal ARIMA models, and tests for unit roots and
// cointegration.
//
//   bjcon.cpp      BJCON: the commands ARIMA and COINTEGR: options, checks, header, the stages
//   bjdata.cpp     the series of a command (logs, differences), variables that keep results
//   bjiden.cpp     BJIDEN: identification
//   bjiser.cpp     BJISER: tables of correlations and of Ljung-Box statistics
//   bjipla.cpp     BJIPLA, BJEPLT: printer charts; bjplot.cpp the files of their gnuplot form
//   bjstart.cpp    values of parameters from START=, input lines, the last estimate
//   bjest.cpp      BJEST: estimation; bjest_out.cpp its tables and stored results
//   bjfcas.cpp     BJFCAS: forecasts; bjfcas_out.cpp their tables, bjtrend.cpp the trend of
//                  Beveridge and Nelson, bjfplo.cpp BJFPLO, their plot
//   cointegr.cpp   COINTEGR: unit roots and cointegration
// Kernels, which print nothing and know no command:
//   autocorr.h     correlations of all kinds
//   bjearm.h       BJEARM: residuals by back-forecasting
//   bjegau.h       BJEGAU: their least squares by Marquardt's method
//   bjfmod.h       BJFMOD: forecasts, psi weights, theoretical autocorrelations
//   unitroot.h     statistics of Dickey and Fuller, Phillips and Perron
//   response_surface.h  critical values and p-values of those statistics
// The room owns BJCOM (bj.h): the options of the running command and the last estimate.
//
// Signs are those of Box and Jenkins (1976): phi(B) PHI(B^s) w = c + theta(B) THETA(B^s) a, where
// every polynomial is 1 - x1 B - x2 B^2 - ... and w is the differenced series.
#pragma once

#include "engine/workspace.h"

namespace korvel {

void BJCON(Workspace ws);  // ARIMA, COINTEGR

}  // namespace korvel
