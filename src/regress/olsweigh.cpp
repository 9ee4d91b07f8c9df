// WEIGHT=: moments under the weights, and the roots by which the rows of the fit are multiplied.

#include <cmath>

#include "engine/output.h"
#include "expr/kernels/moments.h"
#include "regress/ols_parts.h"

namespace korvel {

namespace {

// What the user hears of the weights; REPLICAT makes N their sum.
void report_weights() {
  if (OCOM.OPUT) say<"(' SUM OF LOG(SQRT(ABS(WEIGHT)))  =', G13.5)">(FCOM.XMAXL);
  if (OLSCOM.REPLICAT) {
    if (OCOM.OPUT) {
      say<"(' NUMBER OF OBSERVATIONS AFTER REPLICATION =', I10)">(std::llround(FCOM.SWT));
    }
    FCOM.XMAXL = 0.0;
    FCOM.ZZ = FCOM.SWT;
  }
}

}  // namespace

void WEIGHTS(Workspace ws, const ColumnList& x, std::span<double> weight, std::span<double> root,
             std::span<double> means, std::span<double> squares) {
  // 1. Under SKIPMISS a weight that is zero or missing takes its row out of the count.
  if (OSCOM.OSMISS) {
    KeptRows rows(ws, OLSCOM.blocks);
    while (rows.next()) {
      double& w = weight[static_cast<std::size_t>(rows.row)];
      if (w != MACOM.XMISS && w != 0.0) continue;
      w = 0.0;
      FCOM.ZZ -= 1.0;
      if (OSCOM.OMSWRN) {
        warn<"(' ...WARNING..OBSERVATION', I6, ' SKIPPED AS WEIGHT IS ZERO OR UNDEFINED')">(
            rows.obs);
      }
    }
  }
  // 2. Weighted means and sums of squares.
  FCOM.SWT = AVES(x, weight, {}, {.means = means, .squares = squares});
  // 3. Weights of mean one. A weighted mean does not depend on the scale of the weights.
  if (OLSCOM.NORMALIZ && FCOM.ZZ > 0.0) {
    const double scale = FCOM.SWT / FCOM.ZZ;
    if (scale != 1.0 && scale != 0.0) {
      for (double& w : weight) w /= scale;
      for (double& s : squares) s /= scale;
      FCOM.SWT = FCOM.ZZ;
    }
  }
  // 4. The roots, and the sum of their logarithms for the likelihood.
  for (std::size_t t = 0; t < weight.size(); ++t) {
    root[t] = std::sqrt(std::fabs(weight[t]));
    if (root[t] > 0.0) FCOM.XMAXL += std::log(root[t]);
  }
  report_weights();
}

double weights_in_place(Workspace ws, const double* weight) {
  const auto row = [](const KeptRows& rows) { return rows.obs - DATCOM.MBEG; };
  FCOM.SWT = 0.0;
  for (KeptRows rows(ws); rows.next();) FCOM.SWT += weight[row(rows)];
  double scale = 1.0;
  if (OLSCOM.NORMALIZ && FCOM.ZZ > 0.0 && FCOM.SWT != 0.0) {
    scale = FCOM.SWT / FCOM.ZZ;
    FCOM.SWT = FCOM.ZZ;
  }
  for (KeptRows rows(ws); rows.next();) {
    const double root = std::sqrt(std::fabs(weight[row(rows)] / scale));
    if (root > 0.0) FCOM.XMAXL += std::log(root);
  }
  report_weights();
  return scale;
}

double usable_weights(Workspace ws, std::span<const double> weight, int var, std::int64_t first) {
  double sum = 0.0;
  KeptRows kept(ws);
  for (std::int64_t t = 0; t < std::ssize(weight); ++t) {
    kept.next();
    const double w = weight[static_cast<std::size_t>(t)];
    if (!std::isfinite(w)) {
      refuse_values(ws, var);
      return 0.0;
    }
    if (w < 0.0) {
      fail<"(' ...ERROR..OB NO. ', I0, ' HAS A NEGATIVE WEIGHT')">(kept.obs);
      return 0.0;
    }
    if (t >= first) sum += w;
  }
  if (sum > 0.0 && std::isfinite(sum)) return sum;
  fail<"(' ...ERROR..WEIGHTS OF ', A, ' HAVE NO USABLE SUM')">(NAME(ws, var));
  return 0.0;
}

}  // namespace korvel
