// The leading factors of the gamma and beta families, to full precision in the far tails.
//
// A probability is such a factor times a series or fraction near one. Its logarithm may reach
// -11000 and is the small difference of much larger logarithms, so it is formed in the extended
// precision of `long double`; one rounding of it would otherwise cost three digits of a far tail.
#pragma once

namespace korvel {

// log gamma(x), x > 0; relative accuracy near the zeros at 1 and 2 too.
long double long_log_gamma(long double x);

// log B(a, b), a > 0 and b > 0, without the cancellation of large log gammas.
long double long_log_beta(long double a, long double b);

// log [x^a e^-x / gamma(a+1)], a >= 0, x > 0: the logarithm of a Poisson probability for whole a.
long double log_gamma_term(long double a, long double x);

// log [x^a y^b / B(a, b)] with y = 1 - x given to its own precision; all above 0.
long double log_beta_term(long double a, long double b, long double x, long double y);

}  // namespace korvel
