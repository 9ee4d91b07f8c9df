// Estimates, standard errors, likelihoods, fitted values and printed statistics of PROBIT, LOGIT
// and TOBIT against R. The values are in tests/data/limdep/reference.txt; reference.R beside it
// made them.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "engine/shared_areas.h"
#include "engine/workspace.h"
#include "harness.h"

namespace korvel {
namespace {

using korvel_test::Listing;
using korvel_test::run_commands;

std::vector<std::string> split(const std::string& text, char at) {
  std::vector<std::string> parts;
  std::istringstream in(text);
  for (std::string part; std::getline(in, part, at);) parts.push_back(part);
  return parts;
}

std::vector<double> numbers(const std::string& text) {
  std::vector<double> values;
  std::istringstream in(text);
  for (double v; in >> v;) values.push_back(v);
  return values;
}

// The line that begins with the label, the n-th of them; what stands behind the label.
std::string behind_label(const std::string& text, const std::string& label, int n) {
  std::string::size_type at = 0;
  for (; n > 0; --n) {
    at = text.find("\n" + label, at);
    if (at == std::string::npos) return {};
    ++at;
  }
  at += label.size();
  return text.substr(at, text.find('\n', at) - at);
}

// Every number of a printed line must be the truth to its last digit. Words between them are passed
// over.
void expect_line(const std::string& shown, const std::vector<double>& truth,
                 const std::string& where) {
  std::istringstream in(shown);
  std::size_t met = 0;
  for (std::string word; in >> word && met < truth.size();) {
    if (const auto equals = word.rfind('='); equals != std::string::npos) word.erase(0, equals + 1);
    char* end = nullptr;
    const double value = std::strtod(word.c_str(), &end);
    if (end == word.c_str() || *end != '\0') continue;
    const auto e = word.find('E');
    const auto point = word.find('.');
    const auto last = std::min(e, word.size());
    const int decimals = point == std::string::npos ? 0 : static_cast<int>(last - point - 1);
    const int exponent = e == std::string::npos ? 0 : std::atoi(word.c_str() + e + 1);
    EXPECT_LE(std::fabs(value - truth[met]), 0.5001 * std::pow(10.0, exponent - decimals))
        << where << " number " << met << " of" << shown << " truth " << truth[met];
    ++met;
  }
  EXPECT_EQ(met, truth.size()) << where << shown;
}

void expect_close(double value, double truth, double tolerance, const std::string& where) {
  EXPECT_LE(std::fabs(value - truth), tolerance * std::fabs(truth)) << where << " " << value;
}

TEST(LimdepReference, AgainstR) {
  const std::string folder = KORVEL_TEST_DATA "/limdep/";
  std::ifstream file(folder + "reference.txt");
  Listing out;
  std::string which;
  int cases = 0, checks = 0;
  for (std::string line; std::getline(file, line);) {
    const std::vector<std::string> part = split(line.substr(1), '|');
    if (line[0] == 'C') {
      which = part[0];
      std::string commands = part[1] + "\n";
      commands.replace(commands.find('@'), 1, folder);
      std::replace(commands.begin(), commands.end(), ';', '\n');
      out = run_commands(commands);
      ASSERT_EQ(out.status, 0) << which << out.text;
      ++cases;
      continue;
    }
    const std::vector<double> truth = numbers(part.back());
    const std::string where = which + " " + part[0];
    checks += static_cast<int>(truth.size());
    if (line[0] == 'L') {
      const bool counted = part[0][0] >= '1' && part[0][0] <= '9';
      expect_line(
          behind_label(out.text, part[0].substr(counted ? 1 : 0), counted ? part[0][0] - '0' : 1),
          truth, where);
      continue;
    }
    const double tolerance = std::stod(part[1]);
    if (line[0] == 'T') {
      const auto at = std::find(TEMPNAMES.begin(), TEMPNAMES.end(), part[0]);
      expect_close(temporary(static_cast<int>(at - TEMPNAMES.begin())), truth[0], tolerance, where);
      continue;
    }
    const std::span<double> got = elements(workspace(), VARNUM(workspace(), part[0]));
    ASSERT_GE(got.size(), truth.size()) << where << out.text;
    for (std::size_t i = 0; i < truth.size(); ++i) {
      expect_close(got[i], truth[i], tolerance, where + " element " + std::to_string(i + 1));
    }
  }
  EXPECT_EQ(cases, 20);
  EXPECT_GT(checks, 500);
}

}  // namespace
}  // namespace korvel
