// Options that the regression commands share because they ask for parts of the same results stage.
#pragma once

#include "engine/options.h"
#include "regress/regress.h"

namespace korvel {

// Empties OLSCOM and reads the shared options of the running command into it: what is printed, the
// functional forms where the table knows them, and the names of predictions, residuals, t-ratios
// and standard errors (kept in `names`; coefficients and covariances have a word of their own in
// each command).
template <const auto& TABLE>
void read_result_options(KeptNames& names) {
  using Opt = OptionValues<TABLE>;
  OlsCom& o = OLSCOM;
  o = OlsCom{};
  names.clear();
  o.MAX = Opt::template chosen<"MAX">();
  o.CONSTANT = Opt::template chosen<"CONSTANT">();
  o.DUMP = Opt::template chosen<"DUMP">();
  o.LM = Opt::template chosen<"LM">() || o.MAX;
  o.GF = Opt::template chosen<"GF">() || o.MAX;
  o.DLAG = Opt::template chosen<"DLAG">();
  o.LIST = Opt::template chosen<"LIST">() || o.MAX;
  o.RSTAT = Opt::template chosen<"RSTAT">() || o.LIST || o.LM || o.GF || o.DLAG;
  o.PCOV = Opt::template chosen<"PCOV">() || o.MAX;
  o.PCOR = Opt::template chosen<"PCOR">() || o.MAX;
  o.ANOVA = Opt::template chosen<"ANOVA">() || o.MAX;
  o.DN = Opt::template chosen<"DN">();
  o.RESTRICT = Opt::template chosen<"RESTRICT">();
  if constexpr (TABLE.has("LOGLOG")) {
    o.LOGLOG = Opt::template chosen<"LOGLOG">();
    o.LOGLIN = Opt::template chosen<"LOGLIN">();
    o.LINLOG = Opt::template chosen<"LINLOG">();
    o.LININVER = Opt::template chosen<"LININVER">();
    o.LOGINVER = Opt::template chosen<"LOGINVER">();
  }
  o.PREDICT = names.keep(Opt::template named<"PREDICT">());
  o.RESID = names.keep(Opt::template named<"RESID">());
  o.TRATIO = names.keep(Opt::template named<"TRATIO">());
  o.STDERR = names.keep(Opt::template named<"STDERR">());
}

}  // namespace korvel
