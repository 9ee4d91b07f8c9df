// Cholesky family on packed symmetric matrices (packed.h), in place.
//
// All return IFAULT: 0 done; i: the pivot of row i is not positive; -i: the pivot of row i is lost
// below the rounding of what was taken from it. MATINV tells the user.
#pragma once

#include <span>
#include <string_view>

namespace korvel {

// Factor L of a = L L', with the reciprocals of its diagonal stored on the diagonal.
int cholesky_factor(std::span<double> a, int order);

// Inverse of the factor L.
int DSYMP(std::span<double> a, int order);

// Inverse of a.
int symmetric_inverse(std::span<double> a, int order);

// Solves a x = rhs for positive definite a; a becomes its factor, rhs the solution.
int positive_solve(std::span<double> a, int order, std::span<double> rhs);

// Prints why a matrix could not be inverted; `caller` (up to 50 characters) names the matrix. Marks
// the command as failed.
void MATINV(int IFAULT, std::string_view caller);

}  // namespace korvel
