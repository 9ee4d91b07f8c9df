// The loops of a block of observations, built once for each vector width.

#include "expr/trans_lanes.h"

#if defined(__SSE2__)
#include <immintrin.h>  // every function of it is always part of its caller
#endif

#include "expr/vector_math.h"

namespace korvel::KORVEL_LANES {
namespace {

using Mask = decltype(Vec{} < Vec{});

inline Vec load(const double* p) {
  Vec v;
  __builtin_memcpy(&v, p, sizeof v);
  return v;
}
inline void store(double* p, Vec v) { __builtin_memcpy(p, &v, sizeof v); }
// The last n < WIDTH values; the other lanes repeat the first, so they add nothing of their own.
inline Vec load_part(const double* p, std::size_t n) {
  double t[WIDTH];
  for (std::size_t i = 0; i < WIDTH; ++i) t[i] = p[i < n ? i : 0];
  return load(t);
}
inline void store_part(double* p, Vec v, std::size_t n) {
  double t[WIDTH];
  store(t, v);
  for (std::size_t i = 0; i < n; ++i) p[i] = t[i];
}
inline bool any(Mask m) {
  bool found = false;
  for (std::size_t i = 0; i < WIDTH; ++i) found |= m[i] != 0;
  return found;
}
inline Vec truth(Mask m) { return m ? splat(1.0) : splat(0.0); }

// Each function: its value, and `bad` for lanes that plain arithmetic does not serve.
struct Add {
  static Vec f(Vec a, Vec b, Mask&) { return a + b; }
};
struct Sub {
  static Vec f(Vec a, Vec b, Mask&) { return a - b; }
};
struct Mult {
  static Vec f(Vec a, Vec b, Mask&) { return a * b; }
};
struct Div {
  static Vec f(Vec a, Vec b, Mask& bad) {
    bad |= b == splat(0.0);
    return a / b;
  }
};
struct Eq {
  static Vec f(Vec a, Vec b, Mask&) { return truth(a == b); }
};
struct Ne {
  static Vec f(Vec a, Vec b, Mask&) { return truth(a != b); }
};
struct Lt {
  static Vec f(Vec a, Vec b, Mask&) { return truth(a < b); }
};
struct Le {
  static Vec f(Vec a, Vec b, Mask&) { return truth(a <= b); }
};
struct Gt {
  static Vec f(Vec a, Vec b, Mask&) { return truth(a > b); }
};
struct Ge {
  static Vec f(Vec a, Vec b, Mask&) { return truth(a >= b); }
};
struct Either {
  static Vec f(Vec a, Vec b, Mask&) { return truth((a > splat(0.0)) | (b > splat(0.0))); }
};
struct Both {
  static Vec f(Vec a, Vec b, Mask&) { return truth((a > splat(0.0)) & (b > splat(0.0))); }
};
struct Min {
  static Vec f(Vec a, Vec b, Mask&) { return b < a ? b : a; }
};
struct Max {
  static Vec f(Vec a, Vec b, Mask&) { return b > a ? b : a; }
};
struct Minus {
  static Vec f(Vec a, Vec, Mask&) { return -a; }
};
struct Abs {
  static Vec f(Vec a, Vec, Mask&) { return (Vec)((Bits)a & splat_bits(0x7fffffffffffffffULL)); }
};
struct Dum {
  static Vec f(Vec a, Vec, Mask&) { return truth(a > splat(0.0)); }
};
struct Not {
  static Vec f(Vec a, Vec, Mask&) { return truth(a <= splat(0.0)); }
};
struct Exp {
  static Vec f(Vec a, Vec, Mask&) { return exp_lanes(a); }
};
struct ExpLimited {
  static Vec f(Vec a, Vec limit, Mask& bad) {
    bad |= a > limit;
    return exp_lanes(a);
  }
};
struct Log {
  static Vec f(Vec a, Vec, Mask& bad) {
    bad |= a <= splat(0.0);
    return log_lanes(a);
  }
};
struct Copy {
  static Vec f(Vec a, Vec, Mask&) { return a; }
};

template <class F, bool A_VARIES, bool B_VARIES>
bool loop(double* r, const double* a, const double* b, std::size_t n) {
  Mask bad{};
  Vec va = A_VARIES ? Vec{} : splat(a[0]);
  Vec vb = B_VARIES || b == nullptr ? Vec{} : splat(b[0]);
  std::size_t i = 0;
  for (; i + WIDTH <= n; i += WIDTH) {
    if (A_VARIES) va = load(a + i);
    if (B_VARIES) vb = load(b + i);
    store(r + i, F::f(va, vb, bad));
  }
  if (i < n) {
    if (A_VARIES) va = load_part(a + i, n - i);
    if (B_VARIES) vb = load_part(b + i, n - i);
    store_part(r + i, F::f(va, vb, bad), n - i);
  }
  return any(bad);
}

// Square roots are exact on every machine. The instruction is asked for by name, since the
// library's call would have to look at every value for errno.
inline Vec root(Vec a) {
#if defined(__AVX512F__)
  return (Vec)_mm512_mask_sqrt_pd((__m512d)a, 0xff, (__m512d)a);
#elif defined(__AVX__)
  return (Vec)_mm256_sqrt_pd((__m256d)a);
#elif defined(__SSE2__)
  return (Vec)_mm_sqrt_pd((__m128d)a);
#else
  for (std::size_t k = 0; k < WIDTH; ++k) a[k] = __builtin_sqrt(a[k]);
  return a;
#endif
}
struct Sqrt {
  static Vec f(Vec a, Vec, Mask& bad) {
    bad |= a < splat(0.0);
    return root(a);
  }
};

template <int N>
Vec product(Vec x, int) {
  Vec p = x;
  for (int k = 1; k < N; ++k) p *= x;
  return p;
}
inline Vec product_of(Vec x, int count) {
  Vec p = x;
  for (int k = 1; k < count; ++k) p *= x;
  return p;
}
template <class P>
bool power_with(double* r, const double* a, bool reciprocal, std::size_t n, int count, P p) {
  Mask bad{};
  const auto one = [&](Vec x) {
    const Vec v = p(x, count);
    if (!reciprocal) return v;
    bad |= x == splat(0.0);
    return splat(1.0) / v;
  };
  std::size_t i = 0;
  for (; i + WIDTH <= n; i += WIDTH) store(r + i, one(load(a + i)));
  if (i < n) store_part(r + i, one(load_part(a + i, n - i)), n - i);
  return any(bad);
}
// The powers are passed as lambdas, not as addresses, so that they become part of the loop.
bool power_loop(double* r, const double* a, const double* b, std::size_t n) {
  const int count = static_cast<int>(b[0]);
  const bool reciprocal = b[1] != 0.0;
  switch (count) {
    case 2:
      return power_with(r, a, reciprocal, n, count, [](Vec x, int m) { return product<2>(x, m); });
    case 3:
      return power_with(r, a, reciprocal, n, count, [](Vec x, int m) { return product<3>(x, m); });
    case 4:
      return power_with(r, a, reciprocal, n, count, [](Vec x, int m) { return product<4>(x, m); });
    default:
      return power_with(r, a, reciprocal, n, count, [](Vec x, int m) { return product_of(x, m); });
  }
}

// 0 stays 0; the logarithm of the other values is never below that of the smallest number.
struct PowerAny {
  static Vec f(Vec x, Vec y, Vec limit, Mask& bad) {
    bad |= x < splat(0.0);
    Vec e = y * log_lanes(x);
    e = e > limit ? limit : e;
    return x == splat(0.0) ? splat(0.0) : exp_lanes(e);
  }
};
bool power_any_loop(double* r, const double* a, const double* b, std::size_t n) {
  Mask bad{};
  const Vec y = splat(b[0]);
  const Vec limit = splat(b[1]);
  std::size_t i = 0;
  for (; i + WIDTH <= n; i += WIDTH) store(r + i, PowerAny::f(load(a + i), y, limit, bad));
  if (i < n) store_part(r + i, PowerAny::f(load_part(a + i, n - i), y, limit, bad), n - i);
  return any(bad);
}

bool holds_loop(double*, const double* a, const double* b, std::size_t n) {
  const Vec wanted = splat(b[0]);
  Mask found{};
  std::size_t i = 0;
  for (; i + WIDTH <= n; i += WIDTH) found |= load(a + i) == wanted;
  if (i < n) found |= load_part(a + i, n - i) == wanted;
  return any(found);
}

template <class F>
constexpr LaneLoop ONE = loop<F, true, false>;
#define KORVEL_TWO(F) \
  { loop<F, true, true>, loop<F, true, false>, loop<F, false, true> }

}  // namespace

const LaneTable LANES = {
    KORVEL_TWO(Add),    KORVEL_TWO(Sub),  KORVEL_TWO(Mult), KORVEL_TWO(Div), KORVEL_TWO(Eq),
    KORVEL_TWO(Ne),     KORVEL_TWO(Lt),   KORVEL_TWO(Le),   KORVEL_TWO(Gt),  KORVEL_TWO(Ge),
    KORVEL_TWO(Either), KORVEL_TWO(Both), KORVEL_TWO(Min),  KORVEL_TWO(Max), ONE<Minus>,
    ONE<Abs>,           ONE<Dum>,         ONE<Not>,         ONE<Exp>,        ONE<ExpLimited>,
    ONE<Log>,           ONE<Sqrt>,        power_loop,       power_any_loop,  ONE<Copy>,
    holds_loop,
};
#undef KORVEL_TWO

}  // namespace korvel::KORVEL_LANES
