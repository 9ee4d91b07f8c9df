// INDEX: all formulas against R, base periods, prices that can't be used.
#include <gtest/gtest.h>

#include "stats_fixture.h"

namespace korvel {
namespace {

using korvel_test::expect_digits;
using korvel_test::LRE;
using korvel_test::run_commands;
using korvel_test::values;

const std::string GOODS =
    "TIME 1980.1 4\nSAMPLE 1 6\n?READ P1 Q1 P2 Q2 P3 Q3\n1.0 10 2.0 5 3.0 2\n1.1 11 2.1 5 3.2 2.5\n"
    "1.2 9 2.0 6 3.1 3\n1.4 9 2.4 5.5 3.6 2\n1.3 10 2.6 5 3.9 2.2\n1.5 12 2.5 7 3.8 2.4\nEND\n";

// The formulas written out in R 4.2.2, base 6 and base 1.
TEST(Index, FormulasAgreeWithR) {
  run_commands(GOODS +
               "INDEX P1 Q1 P2 Q2 P3 Q3 / BASEYEAR=1981.2 DIVISIA=D PAASCHE=P LASPEYRE=L "
               "FISHER=F QFISHER=Q\n"
               "INDEX P1 Q1 P2 Q2 P3 Q3 / CHAINED DIVISIA=DC FISHER=FC LASPEYRE=LC\n"
               "GENR E1=P1*Q1\nGENR E2=P2*Q2\nGENR E3=P3*Q3\n"
               "INDEX P1 E1 P2 E2 P3 E3 / EXPENDIT ALTERN ARITHMET DIVISIA=LA FISHER=FE\n"
               "INDEX P1 Q1 P2 Q2 P3 Q3 / FISHER=F1 QFISHER=L1\n"
               "INDEX P1 Q1 P2 Q2 P3 Q3 / QUANTITY FISHER=QU QFISHER=PU\n");
  expect_digits("D", {0.7432312, 0.7977672, 0.8022479, 0.9451041, 0.9657774, 1}, 6.5);
  expect_digits("P", {0.7407407, 0.7948052, 0.8045113, 0.9469154, 0.9643056, 1}, 6.5);
  expect_digits("L", {0.7440610, 0.7974003, 0.8032273, 0.9466607, 0.9672792, 1}, 6.5);
  expect_digits("F", {0.7423990, 0.7961017, 0.8038690, 0.9467880, 0.9657913, 1}, 6.5);
  expect_digits("Q", {35.02160, 38.43730, 39.93188, 34.85469, 35.80484, 44.62}, 6.5);
  expect_digits("DC", {1, 1.073377, 1.079406, 1.271615, 1.299431, 1.345476}, 6);
  expect_digits("FC", {1, 1.073381, 1.079502, 1.271729, 1.299513, 1.345542}, 6);
  // The shares of the period before with the arithmetic link are the chained Laspeyres.
  expect_digits("LA", values("LC"), 14);
  expect_digits("FE", values("F1"), 14);
  // Fisher's index meets the factor reversal test: price times quantity index is expenditure.
  const auto price = values("F1"), quantity = values("QU"), level = values("L1"),
             implicit = values("PU");
  for (std::size_t i = 0; i < price.size(); ++i) {
    EXPECT_GE(LRE(price[i] * quantity[i], price[i] * level[i] / 26.0), 14);
    EXPECT_GE(LRE(implicit[i], 26.0 * price[i]), 14);
  }
}

// A first row that is skipped leaves the chain to start at the next one; links reach over a skipped
// row; prices that are not positive leave their good out of the row.
TEST(Index, RowsThatCannotBeUsed) {
  run_commands(GOODS +
               "SKIPIF((TIME(0).EQ.1).OR.(TIME(0).EQ.4))\n"
               "INDEX P1 Q1 P2 Q2 / CHAINED DIVISIA=D LASPEYRE=L\n"
               "SAMPLE 2 3 5 6\nINDEX P1 Q1 P2 Q2 / LASPEYRE=S CHAINED\n");
  const std::vector<double> D = values("D"), L = values("L");
  EXPECT_EQ((std::vector<double>{D[0], D[1], D[3], L[0], L[1], L[3]}),
            (std::vector<double>{-99999, 1, -99999, -99999, 1, -99999}));
  const double link3 = (1.2 * 11 + 2.0 * 5) / (1.1 * 11 + 2.1 * 5);
  const double link5 = (1.3 * 9 + 2.6 * 6) / (1.2 * 9 + 2.0 * 6);
  EXPECT_GE(LRE(L[4], link3 * link5), 14);
  EXPECT_GE(LRE(values("S")[4], link3 * link5), 14);

  run_commands(GOODS +
               "IF(TIME(0).EQ.2) P1=0\nIF(TIME(0).EQ.5) P2=-99999\nSET NOWARNMISS\n"
               "INDEX P1 Q1 P2 Q2 P3 Q3 / DIVISIA=D PAASCHE=P LASPEYRE=L FISHER=F\n");
  const double paasche2 = (2.1 * 5 + 3.2 * 2.5) / (2.0 * 5 + 3.0 * 2.5);
  EXPECT_GE(LRE(values("P")[1], paasche2), 14);
  EXPECT_EQ(values("F")[4], -99999.0);  // a missing price: the row is left out
  for (const char* name : {"D", "P", "L", "F"}) {
    for (const double v : values(name)) EXPECT_TRUE(std::isfinite(v)) << name;
  }
}

}  // namespace
}  // namespace korvel
