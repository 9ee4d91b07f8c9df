// The Hodrick-Prescott filter (1997, Journal of Money, Credit and Banking 29, 1-16).
#pragma once

#include <cstdint>
#include <span>

namespace korvel {

// Words of work space of HPFILT for n values.
std::int64_t HPFILT_words(std::int64_t n, double lambda);

// The trend tau that makes sum (x - tau)^2 + lambda sum (second difference of tau)^2 least, lambda
// >= 0; of fewer than three values it is x itself. x and trend have the same length and may be the
// same. Work and time are linear in the length.
void HPFILT(std::span<const double> x, double lambda, std::span<double> trend,
            std::span<double> work);

}  // namespace korvel
