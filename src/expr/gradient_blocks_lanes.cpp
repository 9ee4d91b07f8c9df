// Quotients of the rules of derivatives, built once for each vector width.

#include "expr/gradient_blocks_lanes.h"

#include "expr/vector_math.h"

namespace korvel::KORVEL_LANES {
namespace {

template <bool A_VARIES, bool B_VARIES>
bool quotients(double* r, const double* a, const double* b, std::size_t n) {
  const Vec zero = splat(0.0);
  decltype(zero == zero) bad{};
  Vec va = splat(a[0]);
  Vec vb = splat(b[0]);
  const auto quotient = [&] {
    const auto nothing = va == zero;
    const auto illegal = (vb == zero) & ~nothing;
    bad |= illegal;
    return (nothing | illegal) ? zero : va / vb;
  };
  std::size_t i = 0;
  for (; i + WIDTH <= n; i += WIDTH) {
    if (A_VARIES) __builtin_memcpy(&va, a + i, sizeof va);
    if (B_VARIES) __builtin_memcpy(&vb, b + i, sizeof vb);
    const Vec q = quotient();
    __builtin_memcpy(r + i, &q, sizeof q);
  }
  if (i < n) {  // lanes behind the last row keep what has been counted already
    const std::size_t bytes = (n - i) * sizeof(double);
    if (A_VARIES) __builtin_memcpy(&va, a + i, bytes);
    if (B_VARIES) __builtin_memcpy(&vb, b + i, bytes);
    const Vec q = quotient();
    __builtin_memcpy(r + i, &q, bytes);
  }
  bool found = false;
  for (std::size_t k = 0; k < WIDTH; ++k) found |= bad[k] != 0;
  return found;
}

}  // namespace

const QuotientLoops QUOTIENTS = {
    {quotients<true, true>, quotients<true, false>, quotients<false, true>}};

}  // namespace korvel::KORVEL_LANES
