// The one kernel routine that speaks: the message of a matrix that could not be inverted.
#include "engine/output.h"
#include "expr/kernels/cholesky.h"

namespace korvel {

void MATINV(int IFAULT, std::string_view caller) {
  if (IFAULT == 0) return;
  caller = caller.substr(0, 50);
  if (IFAULT < 0) {
    fail(" ...ERROR..MATRIX ERROR. BELOW MACHINE PRECISION");
    Line row;
    row.put<"(' IN ROW ', I5, '.')">(-IFAULT);
    const Line blank;
    Line cause;
    cause.put<"('    THIS IS USUALLY CAUSED BY SINGULAR MATRIX.', A, A)">(
        caller.starts_with(' ') ? "" : " ", caller);
    OUTLINE();
  } else {
    fail<"(' ...ERROR..MATRIX INVERSION FAILED IN ROW', I5)">(IFAULT);
    say<"(1X, A)">(caller);
  }
}

}  // namespace korvel
