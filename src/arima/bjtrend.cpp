// The stochastic trend of Beveridge and Nelson (1981, J. Monetary Economics 7, 151-174).
#include <cmath>

#include "arima/bj.h"
#include "arima/bjfmod.h"

namespace korvel {
namespace {

constexpr std::size_t HORIZON = 100;  // steps that stand for the long run

}  // namespace

// At every observation from the longest lag to the origin: the forecast HORIZON steps ahead less
// the growth of that time. `factor` is (1 - sum of AR)(1 - sum of seasonal AR).
void print_trend(Workspace ws, const BjForecast& fc, const BjModel& model,
                 std::span<const double> ar, std::span<const double> a, double factor,
                 std::span<double> path) {
  if (fc.orders.NDIFF != 1 || fc.orders.NSDIFF != 0) {
    const Line blank;
    Line first, second;
    first.text(" BEVERIDGE/NELSON STOCHASTIC TREND DEFINED ONLY FOR  FIRST DIFFERENCED MODELS");
    second.text(" SEE J MON VELTA 1981");
    return OUTLINE();
  }
  const bool logs = BJCOM.LOG;
  {
    const Line blank;
    Line title, head;
    if (logs) {
      title.put<"(10X, 'STOCHASTIC TREND UNDER LOG TRANSFORMATION')">();
      head.put<"(' OBSERV #', 4X, 'ACTUAL LN Y', 1X, 'STOCHASTIC TREND LN Y', 2X, 'ACTUAL Y')">();
      head.put<"(3X, 'ANTILOG TREND Y')">();
    } else {
      title.put<"(10X, 'STOCHASTIC TREND')">();
      head.put<"(' OBSERV #', 5X, 'ACTUAL Y', 2X, 'STOCHASTIC TREND Y')">();
    }
    OUTLINE();
  }
  std::array<double, HORIZON> f{};
  const double growth = factor != 0.0 ? static_cast<double>(HORIZON) * fc.c / factor : 0.0;
  for (BjRows rows(ws); rows.next();) {
    const auto t = static_cast<std::size_t>(rows.row) + 1;
    if (t > fc.y.size() || stop_requested()) return;
    if (t < ar.size()) continue;
    forecast_steps(fc.y.first(t), a.first(t), ar, model.ma, fc.c, path, f);
    const double trend = f[HORIZON - 1] - growth;
    const double y = fc.y[t - 1];
    Line row;
    row.put<"(1X, I7, 2G15.7)">(rows.obs, y, trend);
    if (logs) row.put<"(2G15.7)">(std::exp(y), std::exp(trend));
    OUTLINE();
  }
}

}  // namespace korvel
