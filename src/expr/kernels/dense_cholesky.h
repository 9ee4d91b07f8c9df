// Cholesky factor of a full matrix in blocks (Dongarra, Du Croz, Hammarling and Duff 1990, ACM TOMS
// 16, 1-17). cholesky.h has the packed form.
#pragma once

#include <cstdint>
#include <span>

namespace korvel {

inline constexpr int CHOLESKY_STOPPED = 2147483647;

// Words of work space for order n.
std::int64_t dense_cholesky_words(std::int64_t n);

// a, order n by columns without gaps, of which the lower triangle is read, becomes L with a = L L',
// zeros above its diagonal. Returns IFAULT as the packed form does (0; i: the pivot of row i, from
// 1, is not positive; -i: it is lost below the rounding of what was taken from it), or
// CHOLESKY_STOPPED when the user has asked to stop.
int dense_cholesky(double* a, int n, std::span<double> work);

}  // namespace korvel
