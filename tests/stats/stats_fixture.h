// Values of variables and temporaries behind a run, and data that several tests use.
#pragma once

#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

#include "engine/shared_areas.h"
#include "engine/workspace.h"
#include "harness.h"

namespace korvel_test {

inline std::vector<double> values(const char* name) {
  const korvel::Workspace ws = korvel::workspace();
  const auto x = korvel::elements(ws, korvel::VARNUM(ws, name));
  return {x.begin(), x.end()};
}

// Log relative error: the digits that agree, at most 15.
inline double LRE(double value, double wanted) {
  if (value == wanted) return 15.0;
  const double e = std::fabs(value - wanted) / (wanted != 0.0 ? std::fabs(wanted) : 1.0);
  return std::min(15.0, -std::log10(e));
}

inline void expect_digits(const char* name, const std::vector<double>& wanted, double digits) {
  const std::vector<double> found = values(name);
  ASSERT_EQ(found.size(), wanted.size()) << name;
  for (std::size_t i = 0; i < wanted.size(); ++i) {
    EXPECT_GE(LRE(found[i], wanted[i]), digits) << name << " " << i << ": " << found[i];
  }
}

// Operation of a plant for oxidising ammonia: air flow, water temperature, acid concentration,
// stack loss. Brownlee (1965), Statistical Theory and Methodology, p. 454; R's `stackloss`.
inline const std::string PLANT =
    "SAMPLE 1 21\n?READ A W C L\n80 27 89 42\n80 27 88 37\n75 25 90 37\n62 24 87 28\n"
    "62 22 87 18\n62 23 87 18\n62 24 93 19\n62 24 93 20\n58 23 87 15\n58 18 80 14\n58 18 89 14\n"
    "58 17 88 13\n58 18 82 11\n58 19 93 12\n50 18 89 8\n50 18 86 7\n50 19 72 8\n50 19 79 8\n"
    "50 20 80 9\n56 20 82 15\n70 20 91 15\nEND\n";

}  // namespace korvel_test
