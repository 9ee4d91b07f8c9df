// P(d' < d) = P(u'M (A - d I) M u < 0) with M = I - QQ' and u = L z. L = T^-1 D: T has -phi(t)
// where row t follows another row of its chain, D the deviation of what is new in row t. The roots
// are those of L'CL, C = M (A - d I) M (Imhof 1961).
#include "stats/durbin_watson_ar.h"

#include <algorithm>
#include <cmath>

#include "expr/kernels/symmetric_eigen.h"
#include "expr/kernels/vector_lanes.h"
#include "stats/imhof.h"

namespace korvel {
namespace {

struct Spans {
  std::span<double> C, Z, H, before, last, phi, roots, rest;
};

Spans share(std::span<double> work, std::size_t n, std::size_t k) {
  const auto take = [&work](std::size_t words) {
    const std::span<double> part = work.first(words);
    work = work.subspan(words);
    return part;
  };
  Spans s;
  s.C = take(n * n);
  s.Z = take(n * k);
  s.H = take(k * k);
  s.before = take(n);
  s.last = take(n);
  s.phi = take(n);
  s.roots = take(n);
  s.rest = work;
  return s;
}

// last[t] := the row before t in its chain of errors, -1 at its beginning; phi[t] its correlation.
void chain_errors(const DifferenceRows& rows, const AutoregressiveErrors& errors,
                  std::span<double> last, std::span<double> phi) {
  const auto place = [&](std::size_t t) {
    const std::size_t p = rows.place.empty() ? t : static_cast<std::size_t>(rows.place[t]);
    return p >= rows.gap && rows.gap > 0 ? p + errors.missing : p;
  };
  const auto behind_gap = [&](std::size_t t) { return rows.gap > 0 && place(t) >= rows.gap; };
  for (std::size_t t = 0; t < last.size(); ++t) {
    last[t] = -1.0;
    phi[t] = 0.0;
    for (std::size_t s = t; s-- > 0;) {
      const std::size_t distance = place(t) - place(s);
      if (distance % rows.order != 0) continue;
      if (errors.missing == 0 && behind_gap(t) && !behind_gap(s)) break;
      last[t] = static_cast<double>(s);
      const std::size_t steps = distance / rows.order;
      phi[t] = std::pow(errors.rho, static_cast<double>(steps));
      break;
    }
  }
}

// C := (I - QQ')(A - d I)(I - QQ'), both triangles. With W = (A - d I) Q and H = Q'W this is
// A - d I - Q Z' - Z Q', Z = W - Q H / 2.
void form_projected(const double* Q, std::size_t n, std::size_t k, std::size_t ld, double d,
                    Spans& s, const VectorLanes& lanes) {
  const auto rows = static_cast<std::ptrdiff_t>(n);
  for (std::size_t j = 0; j < k; ++j) {
    const double* q = Q + j * ld;
    double* w = s.Z.data() + j * n;
    for (std::size_t t = 0; t < n; ++t) w[t] = -d * q[t];
    for (std::size_t t = 0; t < n; ++t) {
      if (s.before[t] < 0.0) continue;
      const auto b = static_cast<std::size_t>(s.before[t]);
      w[t] += q[t] - q[b];
      w[b] -= q[t] - q[b];
    }
  }
  for (std::size_t i = 0; i < k; ++i) {
    for (std::size_t j = 0; j < k; ++j) {
      s.H[i * k + j] = lanes.dot(Q + i * ld, s.Z.data() + j * n, rows);
    }
  }
  for (std::size_t j = 0; j < k; ++j) {
    for (std::size_t i = 0; i < k; ++i) {
      lanes.add(-0.5 * s.H[i * k + j], Q + i * ld, rows, s.Z.data() + j * n);
    }
  }
  std::fill(s.C.begin(), s.C.end(), 0.0);
  for (std::size_t t = 0; t < n; ++t) {
    s.C[t * n + t] -= d;
    if (s.before[t] >= 0.0) {
      const auto b = static_cast<std::size_t>(s.before[t]);
      s.C[t * n + t] += 1.0;
      s.C[b * n + b] += 1.0;
      s.C[t * n + b] -= 1.0;
      s.C[b * n + t] -= 1.0;
    }
  }
  for (std::size_t t = 0; t < n; ++t) {
    for (std::size_t j = 0; j < k; ++j) {
      const double* z = s.Z.data() + j * n;
      lanes.add_two(-Q[j * ld + t], z, -z[t], Q + j * ld, rows, s.C.data() + t * n);
    }
  }
}

// C := L'CL. T^-1 comes to the columns and rows from the last one back.
void correlate(std::size_t n, Spans& s, const VectorLanes& lanes) {
  for (std::size_t t = n; t-- > 0;) {
    if (s.last[t] < 0.0) continue;
    double* to = s.C.data() + static_cast<std::size_t>(s.last[t]) * n;
    lanes.add(s.phi[t], s.C.data() + t * n, static_cast<std::ptrdiff_t>(n), to);
  }
  for (std::size_t j = 0; j < n; ++j) {
    double* column = s.C.data() + j * n;
    for (std::size_t t = n; t-- > 0;) {
      if (s.last[t] >= 0.0) column[static_cast<std::size_t>(s.last[t])] += s.phi[t] * column[t];
    }
  }
  const auto deviation = [&s](std::size_t t) { return std::sqrt(1.0 - s.phi[t] * s.phi[t]); };
  for (std::size_t j = 0; j < n; ++j) {
    for (std::size_t t = 0; t < n; ++t) s.C[j * n + t] *= deviation(t) * deviation(j);
  }
}

}  // namespace

std::size_t durbin_watson_ar_words(std::size_t n, std::size_t k) {
  return n * n + n * k + k * k + 4 * n +
         static_cast<std::size_t>(symmetric_eigen_words(static_cast<std::int64_t>(n)));
}

DurbinWatsonTails durbin_watson_ar(const double* Q, std::size_t n, std::size_t k, std::size_t ld,
                                   double d, const DifferenceRows& rows,
                                   const AutoregressiveErrors& errors, std::span<double> work) {
  if (n <= k || rows.order < 1 || rows.order >= n) return {.IFAULT = 2};
  if (!std::isfinite(d) || !(std::fabs(errors.rho) < 1.0)) return {.IFAULT = 3};
  if (d <= 0.0) return {.positive = 0.0, .negative = 1.0};
  if (d >= 4.0) return {.positive = 1.0, .negative = 0.0};
  const VectorLanes& lanes = vector_lanes();
  Spans s = share(work, n, k);
  rows.partners(s.before);
  chain_errors(rows, errors, s.last, s.phi);
  form_projected(Q, n, k, ld, d, s, lanes);
  correlate(n, s, lanes);
  const int IFAULT = symmetric_eigen(s.C.data(), static_cast<int>(n), false, s.roots, s.rest);
  if (IFAULT != 0) return {.IFAULT = 1};
  // The k roots that are zero come out as rounding, which moves nothing.
  const FourierTails form = FQUAD(s.roots, 0.0);
  return {.positive = form.tails.below, .negative = form.tails.above, .IFAULT = form.IFAULT};
}

}  // namespace korvel
