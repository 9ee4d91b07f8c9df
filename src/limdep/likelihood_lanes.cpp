// Inner loops of probit, logit and tobit likelihoods, built once for each vector width.
//
// Everything is plain arithmetic lane by lane in one order, and sums are kept in eight parts, so
// that every width gives the same bytes.
#include "limdep/likelihood_lanes.h"

#include "expr/vector_math.h"

namespace korvel::KORVEL_LANES {
namespace {

constexpr double LOWEST_P = 1e-78;  // probabilities below it count as this in the likelihood
constexpr double LOG_LOWEST_P = -179.60163725338316;
constexpr double PROBIT_BOUND = 14.0;  // beyond it the probit index has the value of the bound
constexpr double HUGE_VALUE = 1.7976931348623157e308;

Vec load_part(const double* p) {
  Vec v;
  __builtin_memcpy(&v, p, sizeof v);
  return v;
}
void store_part(double* p, Vec v) { __builtin_memcpy(p, &v, sizeof v); }
Vec larger(Vec a, Vec b) { return a > b ? a : b; }
Vec smaller(Vec a, Vec b) { return a < b ? a : b; }
Vec absolute(Vec a) { return a < splat(0.0) ? -a : a; }

double largest_lane(Vec v) {
  double r = v[0];
  for (std::size_t i = 1; i < WIDTH; ++i) r = v[i] > r ? v[i] : r;
  return r;
}
double smallest_lane(Vec v) { return -largest_lane(-v); }

// ---- Columns and indexes

void load(const double* x, double shift, double scale, std::ptrdiff_t n, double* to) {
  if (x == nullptr) {
    for (std::ptrdiff_t i = 0; i < n; ++i) to[i] = 1.0;
  } else {
    for (std::ptrdiff_t i = 0; i < n; ++i) to[i] = (x[i] - shift) * scale;
  }
  for (std::ptrdiff_t i = n; (i & 7) != 0; ++i) to[i] = 0.0;
}

void index(const double* a, int columns, std::ptrdiff_t ld, std::ptrdiff_t rows, const double* b,
           double* z) {
  for (std::ptrdiff_t i = 0; i < rows; i += 8) {
    Lane8 sum = lane_splat(0.0);
    for (int k = 0; k < columns; ++k) sum = sum + lane_splat(b[k]) * lane_load(a + k * ld + i);
    lane_store(z + i, sum);
  }
}

template <int C>
void some_dots(const double* v, const double* a, std::ptrdiff_t ld, std::ptrdiff_t rows,
               double* out) {
  Lane8 sum[static_cast<std::size_t>(C)];
  for (int c = 0; c < C; ++c) sum[c] = lane_splat(0.0);
  for (std::ptrdiff_t i = 0; i < rows; i += 8) {
    const Lane8 x = lane_load(v + i);
    for (int c = 0; c < C; ++c) sum[c] = sum[c] + x * lane_load(a + c * ld + i);
  }
  for (int c = 0; c < C; ++c) out[c] = lane_sum(sum[c]);
}

// part[c] := sum of v a_c for up to four columns.
void few_dots(int count, const double* v, const double* a, std::ptrdiff_t ld, std::ptrdiff_t rows,
              double* part) {
  if (count >= 4)
    some_dots<4>(v, a, ld, rows, part);
  else if (count == 3)
    some_dots<3>(v, a, ld, rows, part);
  else if (count == 2)
    some_dots<2>(v, a, ld, rows, part);
  else
    some_dots<1>(v, a, ld, rows, part);
}

void dots(const double* v, const double* a, int columns, std::ptrdiff_t ld, std::ptrdiff_t rows,
          double* out) {
  double part[4];
  for (std::ptrdiff_t k = 0; k < columns; k += 4) {
    const int count = columns - k < 4 ? static_cast<int>(columns - k) : 4;
    few_dots(count, v, a + k * ld, ld, rows, part);
    for (int c = 0; c < count; ++c) out[k + c] += part[c];
  }
}

void cross(const double* v, const double* a, int columns, std::ptrdiff_t ld, std::ptrdiff_t rows,
           double* scaled, double* out) {
  double part[4];
  for (std::ptrdiff_t j = 0; j < columns; ++j) {
    for (std::ptrdiff_t i = 0; i < rows; ++i) scaled[i] = v[i] * a[j * ld + i];
    for (std::ptrdiff_t i = j; i < columns; i += 4) {
      const int count = columns - i < 4 ? static_cast<int>(columns - i) : 4;
      few_dots(count, scaled, a + i * ld, ld, rows, part);
      for (int c = 0; c < count; ++c) out[(i + c) * (i + c + 1) / 2 + j] += part[c];
    }
  }
}

// ---- Terms of the models

// Sums and extremes while a loop runs.
struct Running {
  Lane8 LLF = lane_splat(0.0);
  Vec worst = splat(0.0), lowest = splat(0.0);

  void add(int part, Vec w, Vec log_P, Vec P, Vec z) {
    LLF.part[part] = LLF.part[part] + w * log_P;
    const auto counts = w > splat(0.0);
    worst = larger(worst, counts ? splat(1.0) - P : splat(0.0));
    lowest = smaller(lowest, counts ? z : splat(0.0));
  }
  void finish(RowSums& out) const {
    out.LLF += lane_sum(LLF);
    const double high = largest_lane(worst), low = smallest_lane(lowest);
    out.worst = high > out.worst ? high : out.worst;
    out.lowest = low < out.lowest ? low : out.lowest;
  }
};

// Calls body(offset, part) for every register of a block; part tells which of the eight sums its
// lanes belong to.
template <class F>
void each_part(std::ptrdiff_t rows, F&& body) {
  for (std::ptrdiff_t i = 0; i < rows; i += 8) {
    for (int p = 0; p < LANE_PARTS; ++p) body(i + p * PART, p);
  }
}

// The normal tail beyond a = |z| by the polynomial of Abramowitz and Stegun (1964), 26.2.17, and
// the density. The constant 0.231649 and the rounding of the others are this system's.
struct NormalTail {
  Vec q, f;
};
NormalTail probit_tail(Vec a) {
  const Vec e = exp_lanes(splat(-0.5) * a * a);
  const Vec t = splat(1.0) / (splat(1.0) + splat(0.231649) * a);
  const Vec poly =
      t * (splat(0.319381) +
           t * (splat(-0.35656378) +
                t * (splat(1.781479) + t * (splat(-1.821256) + t * splat(1.3302744)))));
  return {splat(0.3989423) * e * poly, e / splat(2.506628274631)};
}
Vec within_bound(Vec z) { return larger(smaller(z, splat(PROBIT_BOUND)), splat(-PROBIT_BOUND)); }

void probit(const RowTerms& in, RowSums& out) {
  Running sums;
  const Vec share = splat(in.share);
  const Vec low = splat(in.low), high = splat(1.0 - in.low - in.share);
  each_part(in.rows, [&](std::ptrdiff_t i, int part) {
    const Vec z = within_bound(load_part(in.z + i));
    const Vec w = load_part(in.w + i);
    const auto one = load_part(in.y + i) > splat(0.5);
    const NormalTail tail = probit_tail(absolute(z));
    // The probability of the side on which the row lies: never one minus a small tail.
    const auto large = one == (z >= splat(0.0));
    const Vec own = large ? splat(1.0) - tail.q : tail.q;
    const Vec P = (one ? low : high) + share * own;
    const Vec ratio = share * tail.f / larger(P, splat(LOWEST_P));
    const Vec sign = one ? splat(1.0) : splat(-1.0);
    store_part(in.gradient + i, w * (sign * ratio));
    store_part(in.curvature + i, w * (ratio * (ratio + sign * z)));
    sums.add(part, w, log_lanes(larger(P, splat(LOWEST_P))), P, z);
  });
  sums.finish(out);
}

// The logistic probability of the own side of a row and of the other one; exp never overflows.
struct LogisticSides {
  Vec own, other, log_own;
};
LogisticSides logistic(Vec u) {
  const Vec e = exp_lanes(-absolute(u));
  const Vec small = e / (splat(1.0) + e), large = splat(1.0) / (splat(1.0) + e);
  const Vec l = log_lanes(splat(1.0) + e);
  const auto likely = u >= splat(0.0);
  return {likely ? large : small, likely ? small : large, likely ? -l : u - l};
}

void logit_plain(const RowTerms& in, RowSums& out) {
  Running sums;
  each_part(in.rows, [&](std::ptrdiff_t i, int part) {
    const Vec z = load_part(in.z + i);
    const Vec w = load_part(in.w + i);
    const Vec sign = load_part(in.y + i) > splat(0.5) ? splat(1.0) : splat(-1.0);
    const LogisticSides side = logistic(sign * z);
    store_part(in.gradient + i, w * (sign * side.other));
    store_part(in.curvature + i, w * (side.own * side.other));
    sums.add(part, w, larger(side.log_own, splat(LOG_LOWEST_P)), side.own, z);
  });
  sums.finish(out);
}

// With natural responses P = low + share F, so second derivatives keep a term in y.
void logit_natural(const RowTerms& in, RowSums& out) {
  Running sums;
  const Vec share = splat(in.share);
  const Vec low = splat(in.low), high = splat(1.0 - in.low - in.share);
  each_part(in.rows, [&](std::ptrdiff_t i, int part) {
    const Vec z = load_part(in.z + i);
    const Vec w = load_part(in.w + i);
    const auto one = load_part(in.y + i) > splat(0.5);
    const Vec sign = one ? splat(1.0) : splat(-1.0);
    const LogisticSides side = logistic(sign * z);
    const Vec P = larger((one ? low : high) + share * side.own, splat(LOWEST_P));
    const Vec ratio = share * side.own * side.other / P;
    store_part(in.gradient + i, w * (sign * ratio));
    store_part(in.curvature + i, w * (ratio * (ratio - (side.other - side.own))));
    sums.add(part, w, log_lanes(P), P, z);
  });
  sums.finish(out);
}

void logit(const RowTerms& in, RowSums& out) {
  if (in.low == 0.0 && in.share == 1.0)
    logit_plain(in, out);
  else
    logit_natural(in, out);
}

// exp(x*x) erfc(x) for x >= 0 by the rational functions of Cody (1969), Math. Comp. 23, 631-637;
// e = exp(-x*x). Where normal_cdf of stats/probability.h is not at its bound, the normal function
// made of it agrees with that one to 1e-15.
Vec scaled_erfc(Vec x, Vec e) {
  // Up to 0.46875: (1 - erf) / e.
  const Vec xx = smaller(x * x, splat(0.25));
  const Vec small_over =
      (((splat(1.85777706184603153e-1) * xx + splat(3.16112374387056560e0)) * xx +
        splat(1.13864154151050156e2)) *
           xx +
       splat(3.77485237685302021e2)) *
          xx +
      splat(3.20937758913846947e3);
  const Vec small_under =
      (((xx + splat(2.36012909523441209e1)) * xx + splat(2.44024637934444173e2)) * xx +
       splat(1.28261652607737228e3)) *
          xx +
      splat(2.84423683343917062e3);
  const Vec near = (splat(1.0) - x * small_over / small_under) / e;
  // Up to 4.
  const Vec m = smaller(x, splat(4.0));
  const Vec over = (((((((splat(2.15311535474403846e-8) * m + splat(5.64188496988670089e-1)) * m +
                         splat(8.88314979438837594e0)) *
                            m +
                        splat(6.61191906371416295e1)) *
                           m +
                       splat(2.98635138197400131e2)) *
                          m +
                      splat(8.81952221241769090e2)) *
                         m +
                     splat(1.71204761263407058e3)) *
                        m +
                    splat(2.05107837782607147e3)) *
                       m +
                   splat(1.23033935479799725e3);
  const Vec under =
      (((((((m + splat(1.57449261107098347e1)) * m + splat(1.17693950891312499e2)) * m +
           splat(5.37181101862009858e2)) *
              m +
          splat(1.62138957456669019e3)) *
             m +
         splat(3.29079923573345963e3)) *
            m +
        splat(4.36261909014324716e3)) *
           m +
       splat(3.43936767414372164e3)) *
          m +
      splat(1.23033935480374942e3);
  // Beyond.
  const Vec r = larger(x, splat(4.0));
  const Vec s = splat(1.0) / (r * r);
  const Vec far_over = ((((splat(1.63153871373020978e-2) * s + splat(3.05326634961232344e-1)) * s +
                          splat(3.60344899949804439e-1)) *
                             s +
                         splat(1.25781726111229246e-1)) *
                            s +
                        splat(1.60837851487422766e-2)) *
                           s +
                       splat(6.58749161529837803e-4);
  const Vec far_under =
      ((((s + splat(2.56852019228982242e0)) * s + splat(1.87295284992346725e0)) * s +
        splat(5.27905102951428412e-1)) *
           s +
       splat(6.05183413124413191e-2)) *
          s +
      splat(2.33520497626869185e-3);
  const Vec far = (splat(5.6418958354775628695e-1) - s * far_over / far_under) / r;
  return x <= splat(0.46875) ? near : (x <= splat(4.0) ? over / under : far);
}

constexpr double DENSITY = 0.3989422804014;  // 1 / root 2 pi
constexpr double ROOT_HALF = 0.70710678118654752440;

// The normal function at v with its logarithm, and density over function: no tail is lost.
struct Normal {
  Vec below, log_below, density, ratio;
};
Normal normal_at(Vec v) {
  const Vec a = absolute(v);
  const Vec e = exp_lanes(splat(-0.5) * v * v);
  const Vec half = splat(0.5) * scaled_erfc(a * splat(ROOT_HALF), e);
  const auto upper = v > splat(0.0);
  const Vec below = upper ? splat(1.0) - e * half : e * half;
  const Vec l = log_lanes(upper ? below : half);
  return {below, upper ? l : l - splat(0.5) * v * v, splat(DENSITY) * e,
          upper ? splat(DENSITY) * e / below : splat(DENSITY) / half};
}

// z is the index less h times the dependent variable. Rows with y = 1 are at the limit.
void tobit(const RowTerms& in, RowSums& out) {
  Running sums;
  const Vec side = splat(in.side);
  each_part(in.rows, [&](std::ptrdiff_t i, int part) {
    const Vec z = load_part(in.z + i);
    const Vec w = load_part(in.w + i);
    const auto limit = load_part(in.y + i) > splat(0.5);
    const Vec v = -side * z;
    const Normal n = normal_at(v);
    store_part(in.gradient + i, w * (limit ? -side * n.ratio : -z));
    store_part(in.curvature + i, w * (limit ? n.ratio * (n.ratio + v) : splat(1.0)));
    sums.add(part, w, limit ? n.log_below : splat(-0.5) * z * z, splat(1.0), z);
  });
  sums.finish(out);
}

void linear(const RowTerms& in, RowSums&) {
  for (std::ptrdiff_t i = 0; i < in.rows; ++i) {
    in.gradient[i] = in.w[i] * (in.y[i] - in.low - in.z[i]);
    in.curvature[i] = in.w[i];
  }
}

void group(const RowTerms& in, RowSums&) {
  for (std::ptrdiff_t i = 0; i < in.rows; ++i) {
    in.curvature[i] = in.y[i] == in.side ? in.w[i] : 0.0;
    in.gradient[i] = in.y[i] == in.side ? 0.0 : in.w[i];
  }
}

// ---- Several choices

void choices(double* z, int others, std::ptrdiff_t ld, const RowTerms& in, double* P0,
             RowSums& out) {
  Running sums;
  each_part(in.rows, [&](std::ptrdiff_t i, int part) {
    const Vec w = load_part(in.w + i);
    const Vec y = load_part(in.y + i);
    Vec top = splat(0.0), own = splat(0.0);
    for (int j = 0; j < others; ++j) {
      const Vec v = load_part(z + j * ld + i);
      top = larger(top, v);
      own = y == splat(j + 1.0) ? v : own;
    }
    Vec sum = exp_lanes(-top);
    store_part(P0 + i, sum);
    for (int j = 0; j < others; ++j) {
      const Vec e = exp_lanes(load_part(z + j * ld + i) - top);
      store_part(z + j * ld + i, e);
      sum = sum + e;
    }
    Vec P = load_part(P0 + i) / sum;
    store_part(P0 + i, P);
    for (int j = 0; j < others; ++j) {
      const Vec q = load_part(z + j * ld + i) / sum;
      store_part(z + j * ld + i, q);
      P = y == splat(j + 1.0) ? q : P;
    }
    const Vec log_P = (own - top) - log_lanes(sum);
    sums.add(part, w, larger(log_P, splat(LOG_LOWEST_P)), P, splat(0.0));
  });
  sums.finish(out);
}

void choice_gradient(const RowTerms& in, const double* P, double choice, double* to) {
  for (std::ptrdiff_t i = 0; i < in.rows; ++i) {
    to[i] = in.w[i] * ((in.y[i] == choice ? 1.0 : 0.0) - P[i]);
  }
}

void choice_curvature(const RowTerms& in, const double* P, const double* Q, double* to) {
  const double same = P == Q ? 1.0 : 0.0;
  for (std::ptrdiff_t i = 0; i < in.rows; ++i) to[i] = in.w[i] * (P[i] * (same - Q[i]));
}

// ---- Fitted values

void fitted_probit(const RowTerms& in, double* P, double* Q, double* f) {
  const Vec share = splat(in.share);
  const Vec low = splat(in.low), high = splat(1.0 - in.low - in.share);
  each_part(in.rows, [&](std::ptrdiff_t i, int) {
    const Vec z = within_bound(load_part(in.z + i));
    const NormalTail tail = probit_tail(absolute(z));
    const auto right = z >= splat(0.0);
    const Vec rest = splat(1.0) - tail.q;
    store_part(P + i, low + share * (right ? rest : tail.q));
    store_part(Q + i, high + share * (right ? tail.q : rest));
    store_part(f + i, share * tail.f);
  });
}

void fitted_logit(const RowTerms& in, double* P, double* Q, double* f) {
  const Vec share = splat(in.share);
  const Vec low = splat(in.low), high = splat(1.0 - in.low - in.share);
  each_part(in.rows, [&](std::ptrdiff_t i, int) {
    const LogisticSides side = logistic(load_part(in.z + i));
    store_part(P + i, low + share * side.own);
    store_part(Q + i, high + share * side.other);
    store_part(f + i, share * (side.own * side.other));
  });
}

void normal(const RowTerms& in, double* below, double* density) {
  each_part(in.rows, [&](std::ptrdiff_t i, int) {
    const Normal n = normal_at(load_part(in.z + i));
    store_part(below + i, n.below);
    store_part(density + i, n.density);
  });
}

// ---- The survey of a column

struct SurveyParts {
  Lane8 sum = lane_splat(0.0);
  Vec low = splat(HUGE_VALUE), high = splat(-HUGE_VALUE);
  Vec low0 = low, high0 = high, low1 = low, high1 = high;
  Vec other = splat(0.0), poison = splat(0.0);

  void add(int part, Vec x, Vec y, Vec w) {
    const Vec huge = splat(HUGE_VALUE);
    sum.part[part] = sum.part[part] + w * x;
    low = smaller(x, low);
    high = larger(x, high);
    const auto counts = w > splat(0.0);
    const Vec lower = counts ? x : huge, upper = counts ? x : -huge;
    const auto zero = y == splat(0.0);
    low0 = smaller(zero ? lower : huge, low0);
    high0 = larger(zero ? upper : -huge, high0);
    low1 = smaller(zero ? huge : lower, low1);
    high1 = larger(zero ? -huge : upper, high1);
    other = other + absolute(x * (x - splat(1.0)));  // 0 for 0 and 1 only
    poison = poison + x * splat(0.0);                // NaN for infinities and NaN
  }
};

void survey(const double* x, const double* y, const double* w, std::ptrdiff_t n,
            ColumnSurvey& out) {
  SurveyParts parts;
  const std::ptrdiff_t whole = n & ~std::ptrdiff_t{7};
  each_part(whole, [&](std::ptrdiff_t i, int p) {
    parts.add(p, load_part(x + i), load_part(y + i), load_part(w + i));
  });
  if (whole < n) {
    double tx[8], ty[8], tw[8];
    for (std::ptrdiff_t i = 0; i < 8; ++i) {
      const bool there = whole + i < n;
      const std::ptrdiff_t t = there ? whole + i : n - 1;
      tx[i] = x[t];
      ty[i] = y[t];
      tw[i] = there ? w[t] : 0.0;
    }
    each_part(8, [&](std::ptrdiff_t i, int p) {
      parts.add(p, load_part(tx + i), load_part(ty + i), load_part(tw + i));
    });
  }
  const auto lowest = [](Vec v, double& r) { r = smallest_lane(v) < r ? smallest_lane(v) : r; };
  const auto highest = [](Vec v, double& r) { r = largest_lane(v) > r ? largest_lane(v) : r; };
  out.sum += lane_sum(parts.sum);
  lowest(parts.low, out.low);
  highest(parts.high, out.high);
  lowest(parts.low0, out.low_at_zero);
  highest(parts.high0, out.high_at_zero);
  lowest(parts.low1, out.low_at_one);
  highest(parts.high1, out.high_at_one);
  for (std::size_t i = 0; i < WIDTH; ++i) {
    out.dummy = out.dummy && parts.other[i] == 0.0;
    out.finite = out.finite && parts.poison[i] == 0.0;
  }
}

}  // namespace

const LikelihoodLanes& likelihood_lane_set() {
  static constexpr LikelihoodLanes set = {
      load,    index,           probit,           logit, tobit, linear,        group,
      choices, choice_gradient, choice_curvature, dots,  cross, fitted_probit, fitted_logit,
      normal,  survey};
  return set;
}

}  // namespace korvel::KORVEL_LANES
