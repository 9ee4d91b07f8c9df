// Every number that OLS prints, on three sets of data and for every kind of fit, against R. The
// values are in tests/data/regress/ols_reference.txt; ols_reference.R beside it made them.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "engine/shared_areas.h"
#include "harness.h"

namespace korvel {
namespace {

using korvel_test::Listing;
using korvel_test::run_commands;
using korvel_test::temp;

std::string start(const std::string& data) {
  const std::string at = KORVEL_TEST_DATA;
  if (data == "textile") {
    return "SAMPLE 1 17\nREAD(" + at + "/textile.dat) T C I P\nGENR W=T-1920\n";
  }
  if (data == "longley") {
    return "SAMPLE 1 16\nREAD(" + at +
           "/nist/Longley.dat) Y X1-X6 / SKIPLINE=60\nGENR Y=Y/1000\nGENR X3=X3/1000\n"
           "GENR X4=X4/1000\nGENR W=TIME(0)\n";
  }
  return "SAMPLE 1 40\nREAD(" + at + "/regress/counts.dat) Y X1-X3 W\n";
}

// A number as it was printed: its value and what its last digit stands for.
struct Printed {
  double value = NAN, unit = 0;
};

Printed printed(std::string field) {
  Printed p;
  field.erase(0, std::min(field.find_first_not_of(' '), field.size()));
  field = field.substr(0, field.find_first_of(" ,\n"));
  if (field.empty()) return p;
  p.value = std::strtod(field.c_str(), nullptr);
  const auto e = field.find('E');
  const std::string digits = field.substr(0, e);
  const auto point = digits.find('.');
  const int decimals = point == std::string::npos ? 0 : static_cast<int>(digits.size() - point - 1);
  p.unit =
      std::pow(10.0, (e == std::string::npos ? 0 : std::atoi(field.c_str() + e + 1)) - decimals);
  return p;
}

void expect_printed(const std::string& field, double truth, const std::string& where) {
  const Printed p = printed(field);
  EXPECT_LE(std::fabs(p.value - truth), 0.5001 * p.unit) << where << " '" << field << "' " << truth;
}

std::vector<std::string> split(const std::string& text, char at) {
  std::vector<std::string> parts;
  std::istringstream in(text);
  for (std::string part; std::getline(in, part, at);) parts.push_back(part);
  return parts;
}

TEST(OlsReference, EveryPrintedNumber) {
  std::ifstream file(KORVEL_TEST_DATA "/regress/ols_reference.txt");
  Listing out;
  std::string which;
  int cases = 0;
  for (std::string line; std::getline(file, line);) {
    const std::vector<std::string> part = split(line.substr(1), '|');
    if (line[0] == 'C') {
      which = line.substr(1);
      std::string commands = start(part[0]) + part[1] + "\n";
      std::replace(commands.begin(), commands.end(), ';', '\n');
      out = run_commands(commands);
      ASSERT_EQ(out.status, 0) << which << out.text;
      ++cases;
    } else if (line[0] == 'L') {
      const auto at = out.text.find("\n" + part[0]);
      const auto inside = at == std::string::npos ? out.text.find(part[0]) : at + 1;
      ASSERT_NE(inside, std::string::npos) << which << part[0] << out.text;
      expect_printed(out.text.substr(inside + part[0].size(), 20), std::stod(part[1]),
                     which + part[0]);
    } else if (line[0] == 'R') {
      const auto table = out.text.find("ELASTICITY");
      std::string name = part[0];
      name.resize(8, ' ');
      const auto at = out.text.find("\n " + name, table);
      ASSERT_NE(at, std::string::npos) << which << name;
      const std::vector<std::string> truth = split(part[1], ',');
      // Columns of a row in the narrow table.
      constexpr int begin[] = {9, 22, 33, 45, 51, 57, 68};
      constexpr int width[] = {13, 11, 12, 6, 6, 11, 11};
      for (std::size_t c = 0; c < 7; ++c) {
        const std::string field = out.text.substr(at + 1 + static_cast<std::size_t>(begin[c]),
                                                  static_cast<std::size_t>(width[c]));
        if (field == "  ----") continue;  // DN has no partial correlation
        expect_printed(field, std::stod(truth[c]), which + name + std::to_string(c));
      }
    } else {
      for (std::size_t i = 0; i + 1 < part.size(); i += 2) {
        const double truth = std::stod(part[i + 1]);
        EXPECT_NEAR(temp(part[i]), truth, 1e-8 * std::fabs(truth) + 1e-12) << which << part[i];
      }
    }
  }
  EXPECT_EQ(cases, 43);
}

}  // namespace
}  // namespace korvel
