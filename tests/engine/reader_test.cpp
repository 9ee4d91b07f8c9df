// The reader, the dispatcher and the tokeniser, seen through the listing of whole runs.
#include <gtest/gtest.h>

#include "engine/commands.h"
#include "engine/output.h"
#include "harness.h"

using korvel_test::holds;
using korvel_test::run_commands;

namespace {

constexpr const char* END = " ...NOTE..STOPPED\n ...COMPLETED\n";

TEST(Reader, FindsTheFirstMatchOfAnAbbreviation) {
  korvel::OSCOM = korvel::OsCom{};
  const struct {
    const char* typed;
    const char* word;
  } cases[] = {{"A", "AUTO"},    {"B", "BOX"},        {"C", "COMPRESS"},
               {"D", "DISPLAY"}, {"DE", "DELETE"},    {"DIM", "DIMENSIO"},
               {"E", "EXECUTE"}, {"EN", "END"},       {"ENDI", "ENDIF"},
               {"F", "FORMAT"},  {"G", "GENR"},       {"GEN1", "GEN1"},
               {"I", "IF"},      {"LA", "LAMBDA"},    {"LI", "LIST"},
               {"N", "NAMES"},   {"O", "OLSQ"},       {"P", "PRINT"},
               {"PA", "PARM"},   {"PRO", "PROBIT"},   {"PROC", "PROCEDUR"},
               {"R", "READ"},    {"RES", "RESTRICT"}, {"RESE", "RESET"},
               {"S", "SET"},     {"SA", "SAMPLE"},    {"ST", "STOP"},
               {"STA", "STATS"}, {"T", "TEST"},       {"V", "VAR"},
               {"W", "WRITE"},   {"2SLS", "2SLS"},    {"DIMENSIO", "DIMENSIO"}};
  for (const auto& c : cases) {
    const int ikod = korvel::find_command(c.typed);
    ASSERT_GT(ikod, 0) << c.typed;
    EXPECT_EQ(korvel::COMMANDS[static_cast<std::size_t>(ikod - 1)].word, c.word) << c.typed;
  }
  for (const char* none : {"X", "Y", "Z", "J", "STATISTI", "PARAMETE", "RENAMING", "9", ""}) {
    EXPECT_EQ(korvel::find_command(none), 0) << none;
  }
  korvel::OSCOM.OLONG = true;
  EXPECT_EQ(korvel::find_command("GEN"), 0);
  EXPECT_EQ(korvel::find_command("GENR"), korvel::K_GENR);
  korvel::OSCOM = korvel::OsCom{};
}

TEST(Reader, EchoesWhatIsRun) {
  EXPECT_EQ(
      run_commands("* a Comment\n\nset nowarn\nlab: disp warn\n=display warn\n? display warn\n")
          .text,
      std::string("|_* a Comment\n|_SET NOWARN\n|_LAB: DISP WARN\n WARN      FALSE\n"
                  "|_=DISPLAY WARN\n WARN      FALSE\n WARN      FALSE\n") +
          END);
  // A continued command: each line with its own mark, the "&" gone; the marker of a line of "&"
  // alone.
  EXPECT_EQ(run_commands("DISPLAY WARN &\n   MAX\n&\n").text,
            std::string("|_DISPLAY WARN\n|    MAX\n WARN      TRUE\n MAX       FALSE\n"
                        " ..COMMAND NAME MODE = FALSE TYPE & TO CHANGE\n") +
                END);
  const std::string operands(150, 'X');
  EXPECT_EQ(run_commands("TITLE " + operands + "\n").text,
            "|_TITLE " + operands.substr(0, 122) + "\n" + operands.substr(122) + "\n" + END);
}

TEST(Reader, DropsLinesInTheEditorState) {
  EXPECT_EQ(
      run_commands("KORVEDIT\n* c\n(x\n12 3\n$ls\nSTOP\nfoo &\nSTOP\nKorvedit\nDISPLAY WARN\n")
          .text,
      std::string("|_KORVEDIT\n ENTERING KORVEL EDITOR, TO EXIT TYPE: KORVEDIT\n|_KORVEDIT\n"
                  "|_DISPLAY WARN\n WARN      TRUE\n") +
          END);
}

TEST(Reader, DropsWhatPassesTheLineLength) {
  EXPECT_TRUE(
      holds(run_commands("SET COMLEN=20\nDISPLAY WARN        MAX\n"), "|_DISPLAY WARN\n WARN"));
}

TEST(Reader, DropsTheLinesOfACommandBeyondItsLimit) {
  std::string lines;
  for (int k = 0; k < 1200; ++k) lines += std::string(240, 'X') + "&\n";
  const std::string beyond = "CHARACTER LIMIT\n";
  const auto run = run_commands("FOO &\n" + lines + "X\nDISPLAY WARN\n");
  EXPECT_TRUE(holds(run, beyond));
  EXPECT_FALSE(holds(run, "UNKNOWN COMMAND...X"));
  EXPECT_TRUE(holds(run, "|_DISPLAY WARN\n WARN      TRUE\n"));
  const auto loop = run_commands("DO #=1,1\nFOO &\n" + lines + "X\nDISPLAY WARN\nENDO\n");
  EXPECT_TRUE(holds(loop, beyond));
  EXPECT_FALSE(holds(loop, "UNKNOWN COMMAND...X"));
  EXPECT_TRUE(holds(loop, "|_DISPLAY WARN\n WARN      TRUE\n"));
}

TEST(Reader, EndsARunAtTheFifthUnknownCommand) {
  const auto run = run_commands("XA\nXB\n(\n9UP\nXC\nDISPLAY WARN\n");
  EXPECT_EQ(run.status, 3);
  EXPECT_TRUE(holds(run, " ...ERROR..UNKNOWN COMMAND...XA\n ...WARNING..CHECK OUTPUT CAREFULLY\n"));
  EXPECT_TRUE(holds(
      run, "XC\n ...WARNING..CHECK OUTPUT CAREFULLY\n ...ERROR..NO MORE COMMANDS WILL BE READ\n"));
  EXPECT_FALSE(holds(run, "COMPLETED"));
  EXPECT_FALSE(holds(run, "DISPLAY"));
}

TEST(Reader, PutsTextOfCharacterVariablesInBrackets) {
  const auto run = run_commands("TITLE warn max\nSET NOMAX\nDISPLAY [TITLE]\nDISPLAY [NONE]\n");
  EXPECT_TRUE(holds(run, "|_DISPLAY WARN MAX\n WARN      TRUE\n MAX       FALSE\n"));
  EXPECT_TRUE(holds(run, "|_DISPLAY [NONE]\n"));
}

TEST(Dispatcher, ScansTheRestAfterAnError) {
  const auto run =
      run_commands("DIMENSION A 3\nDIMENSION A 3\nDIMENSION B 2\nPRINT B\nSET NOSCAN\nNAMES\n");
  EXPECT_EQ(run.status, 1);
  EXPECT_TRUE(holds(run, " ...ERROR..VARIABLE ALREADY EXISTS A\n"));
  EXPECT_TRUE(holds(run, " ...ERROR..VARIABLE B DOES NOT EXIST.\n"));
  EXPECT_TRUE(holds(run,
                    "|_NAMES\n VARIABLE    TYPE            LENGTH  COLUMNS\n A          DATA       "
                    "            3       1\n"));
  EXPECT_TRUE(holds(run, END));
}

TEST(Dispatcher, IgnoresSubCommandsAtTopLevel) {
  const auto run = run_commands("RESTRICT X=1\nEXOGENOUS X\nSET WARN\nDISPLAY SCAN\n");
  EXPECT_TRUE(holds(
      run,
      "|_RESTRICT X=1\n ...ERROR..ABOVE COMMAND WILL BE IGNORED\n|_EXOGENOUS X\n|_SET WARN\n"));
  EXPECT_TRUE(holds(run, " SCAN      FALSE\n"));
  EXPECT_EQ(run.status, 1);
}

TEST(Dispatcher, SizesTheWorkspace) {
  const auto run =
      run_commands("* first\nSIZE 20\nPAR\nDIMENSION A 2\nSIZE 30\nPAR 40\nNAMES\nPAR\n");
  EXPECT_TRUE(holds(run, "|_PAR\n ...NOTE..PAR IS 20480 MAXIMUM VARIABLES IS      20\n"));
  EXPECT_TRUE(holds(run,
                    " ...NOTE..SIZE COMMAND SHOULD BE AT BEGINNING OF RUN\n ...ERROR..ABOVE "
                    "COMMAND WILL BE IGNORED\n"));
  EXPECT_TRUE(holds(run, "COLUMNS\n|_PAR\n ...NOTE..PAR IS 40 MAXIMUM VARIABLES IS      20\n"));
  const auto huge = run_commands("DIMENSION A 2\nPAR 16777216\nSET NOSCAN\nNAMES\n");
  EXPECT_TRUE(holds(huge, " ...ERROR..MEMORY ALLOCATION ERROR CODE=12 LARGEST PAR="));
  EXPECT_TRUE(holds(huge, " A          DATA                   2       1\n"));
}

TEST(Dispatcher, StopWordsEndTheRun) {
  for (const char* word : {"STOP", "QUIT", "EXIT", "ST x"}) {
    EXPECT_FALSE(holds(run_commands(std::string(word) + "\nDISPLAY WARN\n"), "WARN")) << word;
  }
}

TEST(Tokeniser, ReadsListsLagsAndRanges) {
  const std::string make = "DIMENSION A 1 X1 1 X2 1 X3 1 M 4 2\n";
  EXPECT_TRUE(holds(run_commands(make + "NAMES X1-X3\n"), " X1         DATA"));
  EXPECT_TRUE(holds(run_commands(make + "NAMES X01 - X2, A\n"), " X2         DATA"));
  EXPECT_TRUE(
      holds(run_commands(make + "NAMES A(0.2,1)\n"), " LAG FOR A RANGE = 0 2 ORDER= 1 ENDCON=0\n"));
  const struct {
    const char* text;
    const char* message;
  } bad[] = {{"NAMES X3-X1", "SYNTAX ERROR"},
             {"NAMES A-X3", "SYNTAX ERROR"},
             {"NAMES A=3", "SYNTAX ERROR"},
             {"NAMES A#", "SYNTAX ERROR"},
             {"NAMES A(1", "SYNTAX ERROR"},
             {"NAMES A(2.1)", "SYNTAX ERROR"},
             {"NAMES (A", "SYNTAX ERROR"},
             {"NAMES A$B$", "SYNTAX ERROR"},
             {"NAMES M:2001", " ...ERROR.. 2001 EXCEEDS MAXCOL=2000 USE SET MAXCOL="},
             {"NAMES QQ", " ...ERROR..VARIABLE QQ DOES NOT EXIST."},
             {"NAMES / FOO", " ...ERROR..INVALID OPTION..FOO\n AVAILABLE OPTIONS ARE:\n LIST\n"}};
  for (const auto& b : bad)
    EXPECT_TRUE(holds(run_commands(make + b.text + "\n"), b.message)) << b.text;
}

TEST(Options, NoIsTakenOffUnlessTheWordIsWhole) {
  EXPECT_TRUE(holds(run_commands("SET NONORM\nDISPLAY NORM\n"), " NORM      FALSE"));
  EXPECT_TRUE(holds(run_commands("SET NONORM\nSET NORM\nDISPLAY NORM\n"), " NORM      TRUE"));
  EXPECT_TRUE(holds(run_commands("SET NOWARNSKIP\nDISPLAY WARNSKIP\n"), " WARNSKIP  FALSE"));
  EXPECT_TRUE(
      holds(run_commands("SET NOSKIPMISSING\n"), " ...WARNING..SKIPMISSING IS TRUNCATED TO 8\n"));
  EXPECT_TRUE(
      holds(run_commands("SET WARN=3\n"), " ...WARNING..THE WARN OPTION SHOULD NOT HAVE AN =\n"));
  EXPECT_TRUE(
      holds(run_commands("SET MISSVALU=-99999.5 RANSEED=-123456789\nDISPLAY MISSVALU RANSEED\n"),
            " MISSVALU   -99999.50    \n" + std::string()) ||
      holds(run_commands("SET MISSVALU=-99999.5 RANSEED=-123456789\nDISPLAY MISSVALU RANSEED\n"),
            " RANSEED   -123456789\n"));
  EXPECT_TRUE(holds(run_commands("SET COMLEN=x\n"), " ...ERROR..VARIABLE X DOES NOT EXIST."));
  EXPECT_TRUE(holds(run_commands("SET COMLEN=$R2\n"), " ...ERROR..$R2 IS NOT CURRENTLY DEFINED"));
  EXPECT_TRUE(
      holds(run_commands("SET COMLEN=1.2.3\n"), " ...ERROR..IN RIGHT HAND SIDE OF OPTION..COMLEN"));
  std::string many = "SET";
  for (int i = 0; i < 41; ++i) many += " WARN";
  EXPECT_TRUE(holds(run_commands(many + "\n"), " ...ERROR..STATEMENT TOO LONG"));
}

}  // namespace
