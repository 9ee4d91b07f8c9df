// The file of results: records of estimates and tests, and what happens when it can't be written.

#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <string>

#include "engine/run.h"

namespace korvel {
namespace {

// Runs commands with a file of results; the exit status.
int run_to(const std::string& path, const std::string& commands) {
  RunSettings settings;
  settings.commands = commands;
  settings.have_commands = true;
  settings.quiet = true;
  settings.mirror_errors = false;
  settings.output = "/dev/null";
  settings.results = path;
  return run_korvel(settings);
}

std::string contents(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

const std::string DATA = "SAMPLE 1 17\nREAD(" KORVEL_TEST_DATA "/textile.dat) YEAR C I P\n";

TEST(ResultsFile, HoldsEveryEstimateAndTestAlsoOfAFailedRun) {
  const std::string path = ::testing::TempDir() + "korvel_results.json";
  EXPECT_EQ(run_to(path, DATA + "?OLS C I P\n?TEST I=1\nTEST\nTEST I\nTEST I\nEND\n"), EXIT_FAILED);
  const std::string text = contents(path);
  // The coefficient of income and its test by R 4.2: coef(lm(C~I+P))[2], F by hand from vcov.
  const auto number = [&](const std::string& member) {
    const std::size_t at = text.find('"' + member + "\": ");
    return at == std::string::npos
               ? 0.0
               : std::stod(text.substr(text.find_first_of("-0123456789", at + member.size() + 3)));
  };
  EXPECT_NEAR(number("coefficients"), 1.061709628, 1e-9);
  EXPECT_NEAR(number("f"), 0.0535481692517, 1e-12);
  EXPECT_NEAR(number("p"), 0.0013, 1e-3);
  EXPECT_NE(text.find(R"({"kind": "estimate", "command": "OLS", "line": 3,)"), std::string::npos);
  EXPECT_NE(text.find(R"({"kind": "test", "command": "TEST", "line": 4,)"), std::string::npos);
  EXPECT_NE(text.find(R"("line": 5,)"), std::string::npos);
  EXPECT_NE(text.find(R"("done": false)"), std::string::npos);
  EXPECT_NE(text.find(R"("names": ["I", "P", "CONSTANT"])"), std::string::npos);
  EXPECT_TRUE(text.ends_with("\"status\": 1\n}\n"));
  // The next run starts a list of its own.
  EXPECT_EQ(run_to(path, DATA + "?OLS C I\n"), EXIT_GOOD);
  EXPECT_EQ(contents(path).find("\"test\""), std::string::npos);
  // A run without a file writes nowhere.
  EXPECT_EQ(run_to("", DATA + "?OLS C I P\n"), EXIT_GOOD);
}

TEST(ResultsFile, RefusesWhatItCannotWrite) {
  EXPECT_EQ(run_to("/nowhere/results.json", DATA), EXIT_CALL);
  EXPECT_EQ(run_to(::testing::TempDir(), DATA), EXIT_CALL);
  EXPECT_EQ(run_to("/dev/full", DATA), EXIT_NOROOM);
}

}  // namespace
}  // namespace korvel
