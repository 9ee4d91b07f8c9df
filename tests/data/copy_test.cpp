// COPY: blocks, folds, kinds of storage, and what it refuses.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "engine/workspace.h"
#include "harness.h"

namespace korvel {
namespace {

using korvel_test::holds;
using korvel_test::Listing;
using korvel_test::run_commands;

// A 1..6, B 11..16, M 3 by 3 with rows 1 2 3, 4 5 6, 7 8 9.
const std::string DATA =
    "SAMPLE 1 6\nGENR A=TIME(0)\nGENR B=A+10\nREAD M / ROWS=3 COLS=3\n1 2 3\n4 5 6\n7 8 9\n"
    "READ S / ROWS=3 SYMAT\n1\n2 3\n4 5 6\n";

struct Case {
  const char* commands;
  const char* name;
  int type, rows, columns;
  std::vector<double> cells;  // as stored
};

void check(const Case& c) {
  const Listing out = run_commands(DATA + c.commands);
  EXPECT_EQ(out.status, 0) << c.commands << out.text;
  const Workspace ws = workspace();
  const int var = VARNUM(ws, c.name);
  const Place p = INFO(ws, var);
  const auto x = elements(ws, var);
  EXPECT_EQ(p.ITYPE, c.type) << c.commands;
  EXPECT_EQ(p.N2, c.columns) << c.commands;
  EXPECT_EQ(std::vector<double>(x.begin(), x.end()), c.cells) << c.commands;
  if (c.type <= MATRIX2) {
    EXPECT_EQ(p.rows(), c.rows) << c.commands;
  }
}

TEST(Copy, Blocks) {
  for (const Case& c : {
           Case{"COPY A N", "N", 1, 6, 1, {1, 2, 3, 4, 5, 6}},
           {"COPY A B / FROWS=1;3 TROWS=4;6", "B", 1, 6, 1, {11, 12, 13, 1, 2, 3}},
           {"COPY A B / FROWS=1;3 TROWS=5;7", "B", 1, 7, 1, {11, 12, 13, 14, 1, 2, 3}},
           {"COPY A B / FROWS=1;1 TROWS=8;8", "B", 1, 8, 1, {11, 12, 13, 14, 15, 16, 0, 1}},
           {"COPY A B N / FROWS=5;6 TROWS=1;2", "N", 2, 2, 2, {5, 6, 15, 16}},
           {"COPY M N / FROWS=2;3 FCOLS=2;3 TROWS=1;2", "N", 2, 2, 2, {5, 8, 6, 9}},
           {"COPY M N / FROWS=1;2 FCOLS=3;3 TCOLS=2;2", "N", 2, 2, 2, {0, 0, 3, 6}},
           {"COPY M:2 N:2 / FROWS=1;2", "N", 2, 2, 2, {0, 0, 2, 5}},
           {"COPY A M N / FROWS=1;2 FCOLS=3;3", "N", 2, 2, 2, {1, 2, 3, 6}},
           {"COPY A M:2 / FROWS=1;3", "M", 2, 3, 3, {1, 4, 7, 1, 2, 3, 3, 6, 9}},
           {"COPY S N / FROWS=1;3", "N", 2, 3, 3, {1, 2, 4, 2, 3, 5, 4, 5, 6}},
           {"GEN1 K=2\nCOPY A N / FROWS=K;3 TROWS=1;K", "N", 1, 2, 1, {2, 3}},
           // A larger shape keeps the cells where they were, with zeros around them.
           {"COPY A M / FROWS=1;2 TROWS=3;4 TCOLS=4;4",
            "M",
            2,
            4,
            4,
            {1, 4, 7, 0, 2, 5, 8, 0, 3, 6, 9, 0, 0, 0, 1, 2}},
           // From a variable into itself, up, down and growing.
           {"COPY A A / FROWS=1;4 TROWS=2;5", "A", 1, 6, 1, {1, 1, 2, 3, 4, 6}},
           {"COPY M M / FROWS=1;3 TROWS=2;4 TCOLS=2;4",
            "M",
            2,
            4,
            4,
            {1, 4, 7, 0, 2, 1, 4, 7, 3, 2, 5, 8, 0, 3, 6, 9}},
           // Skipped rows close up; FROWS does not look at the marks.
           {"SKIPIF(A.EQ.2)\nCOPY A N", "N", 1, 5, 1, {1, 3, 4, 5, 6}},
           {"SKIPIF(A.EQ.2)\nCOPY A N / FROWS=1;3", "N", 1, 3, 1, {1, 2, 3}},
           {"SAMPLE 3 4\nCOPY A N", "N", 1, 4, 1, {0, 0, 3, 4}},
       }) {
    check(c);
  }
}

TEST(Copy, FoldsAndPackedMatrices) {
  for (const Case& c : {
           Case{"COPY M N / FROWS=1;2 VECTOR", "N", 1, 6, 1, {1, 4, 2, 5, 3, 6}},
           {"COPY A B N / FROWS=1;2 VECTOR", "N", 1, 4, 1, {1, 2, 11, 12}},
           {"COPY S N / FROWS=1;3 FCOLS=3;3 VECTOR TROWS=2;4", "N", 1, 4, 1, {0, 4, 5, 6}},
           {"COPY A N / NROWS=2", "N", 2, 2, 3, {1, 2, 3, 4, 5, 6}},
           {"COPY A N / NROWS=3 SYMMETRI", "N", 3, 3, 3, {1, 2, 3, 4, 5, 6}},
           {"COPY M N / FROWS=1;3 SYMMETRI", "N", 3, 3, 3, {1, 4, 5, 7, 8, 9}},
           {"COPY M N / FROWS=2;3 FCOLS=2;3 TRIANGLE", "N", 4, 2, 2, {5, 8, 9}},
           {"COPY M N / FROWS=1;3 TRIANGLE\nCOPY N F / FROWS=1;3",
            "F",
            2,
            3,
            3,
            {1, 4, 7, 0, 5, 8, 0, 0, 9}},
           // Into a symmetric matrix, on and off the diagonal; a cell above it is the one below.
           {"COPY A S / FROWS=1;1 TROWS=2;2 TCOLS=2;2", "S", 3, 3, 3, {1, 2, 1, 4, 5, 6}},
           {"COPY A S / FROWS=5;6 TROWS=1;2 TCOLS=3;3", "S", 3, 3, 3, {1, 2, 3, 5, 6, 6}},
           {"COPY A S / FROWS=6;6 TROWS=4;4", "S", 3, 4, 4, {1, 2, 3, 4, 5, 6, 6, 0, 0, 0}},
           {"COPY S S / FROWS=2;3 FCOLS=1;2 TROWS=1;2", "S", 3, 3, 3, {2, 4, 5, 4, 5, 6}},
           // The kind may change when nothing of the old variable would stay.
           {"COPY M M / FROWS=1;3 SYMMETRI", "M", 3, 3, 3, {1, 4, 5, 7, 8, 9}},
       }) {
    check(c);
  }
}

TEST(Copy, RefusesAndChangesNothing) {
  const std::string incompatible = " ...ERROR..REQUESTED ROWS OR COLUMNS INCOMPATIBLE";
  struct Bad {
    std::string commands, message;
  };
  for (const Bad& b : {
           Bad{"COPY A", " ...ERROR..VARIABLES TO BE COPIED NOT SPECIFIED"},
           {"COPY A Q B", " ...ERROR..VARIABLE Q   DOES NOT EXIST"},
           {"COPY M S N / FROWS=1;3", " ...ERROR..ONLY ONE MATRIX MAY BE READ AT A TIME"},
           {"COPY A B / FROWS=5;7", " ...ERROR..A HAS LESS ROWS THAN REQUESTED"},
           {"COPY M N", " ...ERROR..M HAS LESS ROWS THAN REQUESTED"},
           {"COPY M N / FROWS=1;3 FCOLS=2;4", " ...ERROR..M HAS LESS COLS THAN REQUESTED"},
           {"COPY A M:4 / FROWS=1;3", " ...ERROR..M HAS LESS COLS THAN REQUESTED"},
           {"COPY A(1) B", " ...ERROR..LAGS AND GROUPS ARE NOT ALLOWED IN COPY"},
           {"TITLE T\nCOPY A $R2", " IS NOT A SERIES OR MATRIX"},
           {"COPY A B / FROWS=3", " ...ERROR..IN RIGHT HAND SIDE OF OPTION..FROWS"},
           {"COPY A B / FROWS=1;", " ...ERROR..IN RIGHT HAND SIDE OF OPTION..FROWS"},
           {"COPY A B / FROWS=0;2", incompatible},
           {"COPY A B / FROWS=1;3 TROWS=4;5", incompatible},
           {"COPY A N / NROWS=4", incompatible},
           {"COPY A N / NROWS=2 VECTOR", incompatible},
           {"COPY A N / FROWS=1;3 SYMMETRI", incompatible},
           {"COPY M B:1 / FROWS=1;3", incompatible},
           {"COPY A M / FROWS=1;2 TROWS=1;2 TCOLS=1;1 SYMMETRI", incompatible},
           {"COPY A N / FROWS=1;2 TROWS=2147483646;2147483647 TCOLS=2147483647;2147483647",
            " ...ERROR..INSUFFICIENT MEMORY."},
           {"COPY A B / FROWS=1;2 TROWS=2147483646;2147483647", " ...ERROR..INSUFFICIENT MEMORY."},
       }) {
    const Listing out = run_commands(DATA + b.commands);
    EXPECT_TRUE(holds(out, b.message)) << b.commands << out.text;
    EXPECT_EQ(out.status, 1) << b.commands;
    const Workspace ws = workspace();
    EXPECT_EQ(VARNUM(ws, "N"), 0) << b.commands;
    const auto kept = elements(ws, VARNUM(ws, "B"));
    EXPECT_EQ((std::vector<double>(kept.begin(), kept.end())),
              (std::vector<double>{11, 12, 13, 14, 15, 16}))
        << b.commands;
    EXPECT_EQ(elements(ws, VARNUM(ws, "M")).size(), 9U) << b.commands;
  }
}

}  // namespace
}  // namespace korvel
