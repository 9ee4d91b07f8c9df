// Forecasts and diagnostics: FCAST and DIAGNOS share one option table and one parser.
//
//   fcast.cpp      FC: options, the model and its sample; yhat.cpp YHAT, the prediction kernel
//   fcast_stats.cpp  error statistics, decompositions, listing and charts
//   diagnos*.cpp   FDIAG: the tests behind an OLS estimate
//
// Both work on SAVED (regress/tests.h), which they leave as it is.
#pragma once

#include "engine/options.h"
#include "engine/workspace.h"

namespace korvel {

// Defaults that depend on the command or on the estimate are set by the parser: BEG, END 0 the
// current sample; ESTEND 0 the last row of the estimate.
inline constexpr auto FCASTOPT = option_table(
    logical("MAX"), logical("CONSTANT", true), logical("LIST"), logical("GF"), logical("RSTAT"),
    logical("UPPER"), logical("BLUP"), logical("IBLUP"), logical("GNU"), logical("DYNAMIC"),
    logical("RECURSIV"), logical("ACF"), logical("DUMP"), logical("RECESTIM"),
    logical("RECRESID"), logical("LM"), logical("BACKWARD"), logical("CHOWTEST"), logical("RESET"),
    logical("BOOTLIST"), logical("HETEROSC"), logical("JACKKNIF"), logical("AFCSE"),
    logical("PERCENT"), logical("APPEND"), logical("CTEST"), logical("MEANPRED"),
    logical("WHITETES"), logical("WIDE"), logical("HANSEN"), logical("GRAPHICS"),
    logical("FIXED"),  //
    integer("BEG"), integer("END"), integer("ORDER"), integer("LAG"), integer("MHET"),
    integer("BOOTSAMP"), integer("BOOTUNIT"), integer("RECUNIT"), integer("SIGLEVEL", 5),
    integer("ESTEND"), integer("CSNUMBER"), integer("NCROSS"), integer("GQOBS"),
    integer("CHOWONE"), integer("UNIT"),  //
    real("LAMBDA"), real("RHO"), real("SRHO"), real("POOLSE"), real("LIMIT"),  //
    variable("COEFFICI"), variable("IDVAR"), variable("MODEL"), variable("FCSE"),
    variable("CSFIX"), variable("PREDICT"), variable("RESID"), variable("OUTPUT"),
    variable("DEVICE"), variable("PORT"), variable("COMMFILE"));

void FC(Workspace ws);     // FCAST and DIAGNOS: parses, then forecasts or calls FDIAG
void FDIAG(Workspace ws);  // DIAGNOS, behind the parser: the options stand in OPTCOM

}  // namespace korvel
