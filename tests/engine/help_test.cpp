// Every command that works has its page, and HELP finds commands, options and functions.
#include "engine/help.h"

#include <gtest/gtest.h>

#include "engine/commands.h"
#include "harness.h"

namespace korvel {
namespace {

TEST(Help, EveryCommandHasAPage) {
  for (int ikod = 1; ikod <= NCOMMANDS; ++ikod) {
    const CommandRow& row = COMMANDS[static_cast<std::size_t>(ikod - 1)];
    // The sub-commands of blocks are described on the pages of their commands.
    const bool sub = row.in_loop && row.tail == Tail::Raw && row.handler == nullptr &&
                     ikod != K_MENU && ikod != K_KORVEDIT && ikod != K_PAUSE && ikod != K_END &&
                     ikod != K_TITLE && ikod != K_FORMAT;
    if (row.word.empty() || (row.handler == nullptr && (!row.in_loop || sub))) continue;
    EXPECT_NE(help_page(ikod), nullptr) << row.word;
  }
}

TEST(Help, FindsPagesOptionsAndFunctions) {
  const auto help = [](const std::string& words) {
    return korvel_test::run_commands("HELP " + words).text;
  };
  EXPECT_NE(help("DEL").find("Deletes variables."), std::string::npos);
  EXPECT_NE(help("HETCOV").find("OLS       HETCOV"), std::string::npos);
  EXPECT_NE(help("OLS NORMALIZ").find("not rescaled"), std::string::npos);
  EXPECT_NE(help("lag").find("GENR      LAG(x)"), std::string::npos);
  EXPECT_NE(help("NOSUCH").find("ERROR..NO HELP ON NOSUCH"), std::string::npos);
  EXPECT_EQ(help("NOSUCH\nDISPLAY SCAN").find("SCAN      TRUE"), std::string::npos);
}

}  // namespace
}  // namespace korvel
