// METHOD=HH and the exact tests for autocorrelation. P-values: R 4.2.2, the roots of L'M(A-dI)ML by
// eigen and Imhof's integral by integrate with rel.tol 1e-11 (L'L the covariance of the errors);
// gretl 2022c agrees to five digits where it has the test.
#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

#include "engine/shared_areas.h"
#include "engine/workspace.h"
#include "harness.h"

namespace korvel {
namespace {

using korvel_test::holds;
using korvel_test::Listing;
using korvel_test::run_commands;
using korvel_test::temp;
using korvel_test::textile;
using korvel_test::values;
using Reals = std::vector<double>;

TEST(HouseholderTests, ExactDurbinWatson) {
  const struct {
    const char* commands;
    double p;
  } cases[] = {
      {"?OLS C I P / EXACTDW\n", 0.301264821821344},
      {"?OLS C I P / DWPVALUE INDW=1.2\n", 0.00887635092663697},
      {"?OLS C I P / DWPVALUE ORDER=4\n", 0.785268889667273},
      {"?OLS C I P / DWPVALUE GAP=8 NMISS=2 RHO=.5\n", 0.834619598573595},
      {"?OLS C I P / DWPVALUE RHO=-.4 ORDER=2\n", 0.111667197927191},
      {"GENR W=T*TIME(0)\n?OLS C I P / DWPVALUE WEIGHT=W\n", 0.490108705939686},
      // Rows 6, 7 and 12 are missing: with MISS their neighbours are no neighbours.
      {"SAMPLE 1 5 8 11 13 17\n?OLS C I P / DWPVALUE MISS\n", 0.54249647149729},
      {"SAMPLE 1 5 8 11 13 17\n?OLS C I P / DWPVALUE MISS ORDER=2\n", 0.680510384968241},
      {"SAMPLE 1 5 8 11 13 17\n?OLS C I P / DWPVALUE MISS ORDER=2 GAP=9 NMISS=2 RHO=.6\n",
       0.987170848406393},
      {"SAMPLE 1 16\nREAD(" KORVEL_TEST_DATA
       "/nist/Longley.dat) Y X1-X6 / SKIPLINE=60\n?OLS Y X1-X6 / DWPVALUE\n",
       0.483424222205728},
      {"SAMPLE 1 40\nREAD(" KORVEL_TEST_DATA
       "/nist/Pontius.dat) Y X / SKIPLINE=60\nGENR X2=X*X\n?OLS Y X X2 / DWPVALUE\n",
       0.0699462059081463},
  };
  for (const auto& c : cases) {
    const Listing out = textile(c.commands);
    EXPECT_EQ(out.status, 0) << out.text;
    EXPECT_NEAR(temp("PVAL"), c.p, 1e-9) << c.commands;
  }
  // The way over the roots and the one over determinants.
  textile("?OLS C I P / DWPVALUE RHO=1E-12\n");
  EXPECT_NEAR(temp("PVAL"), 0.301264821821344, 1e-10);
  // A row of weight zero counts as missing.
  textile("GENR W=1\nIF(TIME(0).EQ.17) W=0\n?OLS C I P / DWPVALUE WEIGHT=W\n");
  const double without = temp("PVAL");
  textile("SAMPLE 1 16\n?OLS C I P / DWPVALUE\n");
  EXPECT_NEAR(temp("PVAL"), without, 1e-12);
}

TEST(HouseholderTests, Lines) {
  const Listing out =
      textile("OLS C I P / DWPVALUE ORDER=2 GAP=5 NMISS=3 RHO=.1 INDW=1.5\nOLS C I P / DWPVALUE\n");
  EXPECT_TRUE(holds(out,
                    " 2 ORDER TEST\n GAP AFTER OB. NO.     5\n 3 MISSING OBS\n"
                    " USING RHO=  0.10000\n USING DW=  1.50000\n"
                    " DURBIN-WATSON STATISTIC FOR   2 GAP -  =  1.50000\n"))
      << out.text;
  EXPECT_TRUE(holds(out,
                    " DURBIN-WATSON STATISTIC  =  2.01855\n"
                    " DURBIN-WATSON POSITIVE AUTOCORRELATION TEST P-VALUE = 0.301265\n"
                    "               NEGATIVE AUTOCORRELATION TEST P-VALUE = 0.698735\n"));
  const Listing warned =
      textile("OLS C I P / GAP=3 PLUSH\nSAMPLE 1 4\nOLS C I P / DWPVALUE PLUSH\n");
  EXPECT_TRUE(holds(warned, "...WARNING..OPTION GAP COUNTS ONLY WITH DWPVALUE\n"));
  EXPECT_TRUE(holds(warned, "...WARNING..OPTION PLUSH COUNTS ONLY WITH METHOD=HH\n"));
  EXPECT_TRUE(holds(warned, " ...WARNING..INSUFFICIENT DEGREES OF FREEDOM FOR DWPVALUE\n"));
  EXPECT_TRUE(holds(textile("OLS C I P / DWPVALUE ORDER=17\n"), "INSUFFICIENT DEGREES OF FREEDOM"));
}

// LUSH residuals: those of R's qr.qty of the unpivoted decomposition (Householder as well).
TEST(HouseholderTests, Lush) {
  const Listing out = textile("OLS C I P / METHOD=HH PLUSH\n");
  EXPECT_TRUE(holds(out,
                    " LUSH RESIDUALS\n"
                    "   -6.4090      -1.4078      -6.5042      -3.1504     -0.48871    \n") ||
              holds(out,
                    " LUSH RESIDUALS\n"
                    "   -6.4090      -1.4078      -6.5042      -3.1504     -0.48871\n"))
      << out.text;
  EXPECT_TRUE(holds(out,
                    " MODIFIED VON-NEUMANN RATIO ON LUSH RESIDUALS =  2.06949\n"
                    " DURBIN-WATSON LUSH STATISTIC =  1.92167\n"
                    " DURBIN-WATSON LUSH P-VALUE = 0.553706\n"));
}

// The fit is that of METHOD=GS: weights, skipped rows, no constant, sizes beyond the range of
// squares, influence.
TEST(HouseholderTests, FitsLikeGramSchmidt) {
  for (const char* model : {"C I P / ", "C I P / WEIGHT=T ", "C I P / NOCONSTANT ", "C P(0.3) / ",
                            "C I P / UT WEIGHT=I ", "CBIG ISMALL P / ", "CBIG ISMALL P / WEIGHT=T ",
                            "C I P / HATDIAG=H ", "C / "}) {
    const std::string head =
        "GENR CBIG=C*1E130\nGENR ISMALL=I*1E-10\nSKIPIF(C.EQ.100)\n?OLS " + std::string(model);
    const std::string tail = " COEF=B STDERR=S RESID=E PREDICT=F METHOD=";
    std::vector<Reals> results[2];
    int i = 0;
    for (const char* method : {"GS", "HH"}) {
      const Listing out = textile(head + tail + method + "\n");
      EXPECT_EQ(out.status, 0) << out.text;
      for (const char* name : {"B", "S", "E", "F", "H"}) {
        if (VARNUM(workspace(), name) != 0) results[i].push_back(values(name));
      }
      results[i].push_back({temp("SSE"), temp("R2"), temp("LLF"), temp("RAW")});
      ++i;
    }
    ASSERT_EQ(results[0].size(), results[1].size());
    for (std::size_t r = 0; r < results[0].size(); ++r) {
      double size = 0;
      for (const double v : results[0][r]) size = std::max(size, std::fabs(v));
      ASSERT_EQ(results[0][r].size(), results[1][r].size());
      for (std::size_t k = 0; k < results[0][r].size(); ++k) {
        EXPECT_NEAR(results[1][r][k], results[0][r][k],
                    1e-13 * (r < 2 ? std::fabs(results[0][r][k]) : size))
            << model << r << " " << k;
      }
    }
  }
}

TEST(HouseholderTests, Failures) {
  const struct {
    const char* commands;
    const char* message;
  } cases[] = {
      {"GENR Q=2*I-P\nOLS C I P Q / METHOD=HH\n",
       " ...ERROR..SINGULAR SYSTEM. NO SOLUTION\n"
       " ...WARNING..THIS USUALLY INDICATES PERFECT MULTICOLLINEARITY WITH VARIABLE Q\n"},
      {"GENR Q=7\nOLS C Q I / METHOD=HH\n", "MULTICOLLINEARITY WITH VARIABLE CONSTANT\n"},
      {"SAMPLE 1 2\nOLS C I P / METHOD=HH\n", " ...ERROR..FEWER OBSERVATIONS THAN VARIABLES:"},
      {"OLS C I / DWPVALUE RHO=1\n", " ...ERROR..IN RIGHT HAND SIDE OF OPTION..RHO\n"},
      {"OLS C I / DWPVALUE ORDER=0\n", " ...ERROR..IN RIGHT HAND SIDE OF OPTION..ORDER\n"},
  };
  for (const auto& c : cases) {
    const Listing out = textile(c.commands);
    EXPECT_TRUE(holds(out, c.message)) << out.text;
    EXPECT_NE(out.status, 0);
  }
  // No room: the method is named, what would do follows, and the data are still there.
  const Listing out = run_commands(
      "SET CONTINUE\nSAMPLE 1 3000\nGENR X=TIME(0)\nGENR Y=X+SIN(X)\n"
      "OLS Y X / DWPVALUE RHO=.5\n?OLS Y X / DWPVALUE\n",
      2048);
  EXPECT_TRUE(holds(out,
                    " ...ERROR..INSUFFICIENT SPACE FOR HOUSEHOLDER METHOD\n"
                    " ...ERROR..INSUFFICIENT MEMORY. AT LEAST "))
      << out.text;
  EXPECT_TRUE(holds(out, " THIS REQUIRES AT LEAST PAR="));
  EXPECT_GT(temp("PVAL"), 0.0);
}

}  // namespace
}  // namespace korvel
