// Forecasts and diagnostics: FCAST and DIAGNOS share one option table and one parser.
//
//   fcast.cpp          FC: options, range, sample, what is stored
//   fcast_model.cpp    the model: from SAVED, or from a list and COEF=
//   fcast_predict.cpp  columns, work space, the way to the kernel; fcast_families.cpp several
//   choices
//                      and MLE, fcast_formula.cpp NLINEAR
//   yhat.cpp           YHAT, the prediction kernel: lags, ARMA errors, links, variances
//   fcast_list.cpp     the listing; fcast_stats.cpp error statistics and decompositions;
//                      fcast_plot.cpp the charts
//   diagnos*.cpp   FDIAG: the tests behind an OLS estimate
//
// Both work on SAVED (regress/tests.h), which they leave as it is.
#pragma once

#include "engine/options.h"
#include "engine/workspace.h"

namespace korvel {

// BEG and END default to the sample, ESTEND to the last row of the estimate, WIDE, MAX and DUMP to
// the switches of SET; whether an option was given at all stands in OPTCOM. Of FCAST: LIST, GF, LM,
// RSTAT, UPPER, BLUP, IBLUP, GNU, GRAPHICS, DYNAMIC, AFCSE, PERCENT, APPEND, MEANPRED, FIXED,
// ORDER, ESTEND, CSNUMBER, NCROSS, UNIT, all reals and all names; the others are of DIAGNOS.
inline constexpr auto FCASTOPT = option_table(
    logical("MAX"), logical("CONSTANT", true), logical("LIST"), logical("GF"), logical("RSTAT"),
    logical("UPPER"), logical("BLUP"), logical("IBLUP"), logical("GNU"), logical("DYNAMIC"),
    logical("RECURSIV"), logical("ACF"), logical("DUMP"), logical("RECESTIM"), logical("RECRESID"),
    logical("LM"), logical("BACKWARD"), logical("CHOWTEST"), logical("RESET"), logical("BOOTLIST"),
    logical("HETEROSC"), logical("JACKKNIF"), logical("AFCSE"), logical("PERCENT"),
    logical("APPEND"), logical("CTEST"), logical("MEANPRED"), logical("WHITETES"), logical("WIDE"),
    logical("HANSEN"), logical("GRAPHICS"),
    logical("FIXED"),  //
    integer("BEG"), integer("END"), integer("ORDER"), integer("LAG"), integer("MHET"),
    integer("BOOTSAMP"), integer("BOOTUNIT"), integer("RECUNIT"), integer("SIGLEVEL", 5),
    integer("ESTEND"), integer("CSNUMBER"), integer("NCROSS"), integer("GQOBS"), integer("CHOWONE"),
    integer("UNIT"),                                                           //
    real("LAMBDA"), real("RHO"), real("SRHO"), real("POOLSE"), real("LIMIT"),  //
    variable("COEFFICI"), variable("IDVAR"), variable("MODEL"), variable("FCSE"), variable("CSFIX"),
    variable("PREDICT"), variable("RESID"), variable("OUTPUT"), variable("DEVICE"),
    variable("PORT"), variable("COMMFILE"));

void FC(Workspace ws);     // FCAST and DIAGNOS: parses, then forecasts or calls FDIAG
void FDIAG(Workspace ws);  // DIAGNOS, behind the parser: the options stand in OPTCOM

}  // namespace korvel
