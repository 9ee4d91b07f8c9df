// Fits without one row, and fits to residuals that were drawn again. Both are the fit of all rows
// and a correction through Q: X stays as it is.

#include <algorithm>

#include "expr/kernels/vector_lanes.h"
#include "platform/parallel.h"
#include "regress/diagnos.h"

namespace korvel {

// b(-t) = b - (X'X)^-1 x(t) u(t)/(1-h(t)), u the least-squares residual (Miller 1974).
double left_out(const DiagnosModel& m, std::span<const double> Qe, std::int64_t t,
                std::span<double> g, std::span<double> d) {
  double h = 0.0;
  double u = m.e[static_cast<std::size_t>(t)];
  for (int k = 0; k < m.K; ++k) {
    const double q = m.q.column(k)[static_cast<std::size_t>(t)];
    g[static_cast<std::size_t>(k)] = q;
    h += q * q;
    u -= q * Qe[static_cast<std::size_t>(k)];
  }
  const double left = 1.0 - h;
  if (!(left > NO_LEVERAGE)) return left;
  for (double& v : g.first(static_cast<std::size_t>(m.K))) v *= -u / left;
  solve_r(m, g, d);
  return left;
}

// b* = b + R^-1 Q'e*, SSE* = e*'e* - e*'QQ'e*.
void bootstrap_fits(const DiagnosModel& m, int samples, std::span<double> draws,
                    std::span<double> g, std::span<double> result) {
  const auto N = static_cast<std::size_t>(m.N);
  const auto K = static_cast<std::size_t>(m.K);
  const VectorLanes& lanes = vector_lanes();
  const auto fit = [&](int sample) {
    const auto s = static_cast<std::size_t>(sample);
    const std::span<double> drawn = draws.subspan(s * N, N);
    const std::span<double> Qe = g.subspan(s * K, K);
    const std::span<double> to = result.subspan(s * (K + 1), K + 1);
    for (double& v : drawn) {
      const auto place = static_cast<std::size_t>(v * static_cast<double>(m.N));
      v = m.e[std::min(place, N - 1)];
    }
    double SSE = lanes.dot(drawn.data(), drawn.data(), m.N);
    for (std::size_t k = 0; k < K; ++k) {
      Qe[k] = m.q.dot(static_cast<int>(k), drawn);
      SSE -= Qe[k] * Qe[k];
    }
    solve_r(m, Qe, to.first(K));
    to[K] = std::max(SSE, 0.0);
  };
  constexpr std::size_t worth_threads = 50000;
  if (N * K * static_cast<std::size_t>(samples) < worth_threads) {
    for (int s = 0; s < samples; ++s) fit(s);
  } else {
    parallel_sections(samples, fit);
  }
}

}  // namespace korvel
