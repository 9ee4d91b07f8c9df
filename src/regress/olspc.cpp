// Principal-component regressors: the coefficients of the variables behind the components. With
// weights V (a row a variable, a column a component) and coefficients c of the components they are
// V c, with covariance V C V' (Massy 1965).

#include <cmath>

#include "engine/output.h"
#include "expr/kernels/packed.h"
#include "regress/ols_parts.h"
#include "stats/stats.h"

namespace korvel {
namespace {

// Column of the matrix of components that a regressor is, 0 when it is none.
int component_of(const ListItem& item) {
  if (OLSCOM.PCOMPONE == 0) return 0;
  if (item.var == OLSCOM.PCOMPONE) return 1;
  const Owner owner = owner_of(item.var);
  return owner.var == OLSCOM.PCOMPONE ? owner.column : 0;
}

}  // namespace

int component_variables(Workspace ws) {
  return OLSCOM.PCINFORM == 0 ? 0 : INFO(ws, OLSCOM.PCINFORM).rows();
}

// Anything but eigenvectors of length 1 would give numbers without a meaning.
bool check_component_weights(Workspace ws) {
  if (OLSCOM.PCINFORM == 0) return true;
  const Place place = INFO(ws, OLSCOM.PCINFORM);
  const std::span<const double> V = elements(ws, OLSCOM.PCINFORM);
  const auto n = static_cast<std::size_t>(place.rows());
  bool good = OLSCOM.PCOMPONE != 0 && place.ITYPE == MATRIX2;
  for (const ListItem& item : model_list()) {
    const int column = component_of(item);
    if (!good || column == 0) continue;
    good = column <= place.N2;
    double length = 0.0;
    for (std::size_t i = 0; good && i < n; ++i) {
      const double v = V[static_cast<std::size_t>(column - 1) * n + i];
      length += v * v;
    }
    good = good && std::fabs(length - 1.0) < 1e-6;
  }
  if (!good) {
    fail<"(' ...ERROR..VARIABLE ', A, ' IS NOT VALID')">(NAME(ws, OLSCOM.PCINFORM));
  }
  return good;
}

ComponentVariable component_variable(Workspace ws, const Estimate& est, int row) {
  const Place place = INFO(ws, OLSCOM.PCINFORM);
  const std::span<const double> V = elements(ws, OLSCOM.PCINFORM);
  const auto weight = [&](int k) {
    const int column = component_of(est.list[static_cast<std::size_t>(k - 1)]);
    if (column == 0) return 0.0;
    return V[static_cast<std::size_t>((column - 1) * place.rows() + row)];
  };
  ComponentVariable c;
  double variance = 0.0;
  for (int j = 1; j <= est.K(); ++j) {
    c.b += weight(j) * est.coef[static_cast<std::size_t>(j - 1)];
    for (int k = 1; k <= est.K(); ++k) variance += weight(j) * est.cov[packed(j, k)] * weight(k);
  }
  c.se = variance > 0.0 ? std::sqrt(variance) : 0.0;
  return c;
}

void print_component_variables(Workspace ws, const Estimate& est) {
  const Line blank;
  Line first, second;
  first.text(" COEFFICIENTS OF THE VARIABLES BEHIND THE COMPONENTS");
  second.text(" VARIABLE  COEFFICIENT   ERROR     T-RATIO  P-VALUE");
  OUTLINE();
  for (int i = 0; i < component_variables(ws); ++i) {
    const ComponentVariable c = component_variable(ws, est, i);
    const double t = t_ratio(c.b, c.se);
    const double p = OLSCOM.DN ? normal_two_sided(t) : f_tail(t * t, 1.0, FCOM.DF);
    say<"(1X, I8, G13.5, G11.4, G12.4, F6.3)">(i + 1, c.b, c.se, t, p);
  }
}

}  // namespace korvel
