// Plots through gnuplot: the files, the pictures, and what is told when there is none. Pictures are
// made by the real program, which must be installed for them.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "graphics/gnuplot.h"
#include "harness.h"

namespace korvel {
namespace {

using korvel_test::holds;
using korvel_test::Listing;
using korvel_test::run_commands;

std::string read_file(const std::string& name) {
  std::ifstream in(name, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), {}};
}
bool there(const std::string& name) { return std::filesystem::exists(name); }
bool within(const std::string& text, const std::string& part) {
  return text.find(part) != std::string::npos;
}

const std::string DATA = "SAMPLE 1 12\nGENR X=TIME(0)\nGENR Y=X*X/10-3\nGENR Z=20-2*X\n";

// Every test has a folder of its own.
class Gnuplot : public ::testing::Test {
 protected:
  void SetUp() override {
    char name[] = "/tmp/korvel_plot_XXXXXX";
    folder_ = mkdtemp(name);
    old_ = std::filesystem::current_path();
    std::filesystem::current_path(folder_);
    unsetenv("DISPLAY");
    unsetenv("WAYLAND_DISPLAY");
  }
  void TearDown() override {
    std::filesystem::current_path(old_);
    std::filesystem::remove_all(folder_);
  }
  static std::size_t files() {
    const std::filesystem::directory_iterator all(".");
    return static_cast<std::size_t>(std::distance(begin(all), end(all)));
  }

 private:
  std::filesystem::path folder_, old_;
};

#define NEEDS_GNUPLOT() \
  if (gnuplot_program().empty()) GTEST_SKIP() << "gnuplot is not installed"

TEST_F(Gnuplot, FilesAsTheyStand) {
  const Listing l = run_commands(DATA +
                                 "TITLE Output \"real\"\n"
                                 "GRAPH X Y Z / LINE DEVICE=NONE XMIN=0 YMAX=9.5\n"
                                 "GRAPH X Y / DEVICE=NONE COMMFILE=A.GNU NOKEY NOAXIS\n"
                                 "GRAPH X Y Z / DEVICE=NONE THREE\n");
  EXPECT_TRUE(holds(l, " ...NOTE..COMMAND FILE IS C001.GNU"));
  EXPECT_EQ(read_file("C001.GNU"),
            "# KORVEL GLOBAL STYLES HEADER - START\n"
            "set style line 80 lt rgb \"#000000\"\n"
            "set style line 81 lt 0  # dashed\n"
            "set style line 81 lt rgb \"#808080\"  # grey\n"
            "set grid back linestyle 81\n"
            "set border 3 back linestyle 80\n"
            "set xtics nomirror\n"
            "set ytics nomirror\n"
            "# KORVEL GLOBAL STYLES HEADER - END\n"
            "set termoption noenhanced\n"
            "# KORVEL COMMAND: GRAPH X Y Z / LINE DEVICE=NONE XMIN=0 YMAX=9.5\n"
            "set samples 12\n"
            "set zeroaxis\n"
            "set title \"Output \\\"real\\\"\"\n"
            "set key\n"
            "set key outside bottom center horizontal height 1\n"
            "set xrange [0:*]\n"
            "set yrange [*:9.5]\n"
            " set xlabel \"X\"\n"
            " plot  \"D001.GNU\" using     1:2 w linespoint lw 2 title \"Y\",\\\n"
            "\"D001.GNU\" using     1:3 w linespoint lw 2 title \"Z\"\n"
            "quit\n");
  const std::string rows = read_file("D001.GNU");
  EXPECT_EQ(rows.substr(0, 61), "             1.00000            -2.90000            18.00000\n");
  // A named command file takes no number; the data file has its own count.
  const std::string named = read_file("A.GNU");
  EXPECT_TRUE(within(named, "\"D002.GNU\""));
  EXPECT_TRUE(within(named, "set nozeroaxis\nset noxtics\nset noytics\nset noborder\n"));
  EXPECT_TRUE(within(named, "set nokey\n"));
  EXPECT_TRUE(within(read_file("C002.GNU"),
                     "set parametric\nset isosamples 2\n set xlabel \"X\"\n set ylabel \"Y\"\n"
                     " set zlabel \"Z\"\n"));
  EXPECT_TRUE(within(read_file("C002.GNU"), " splot  \"D003.GNU\" using     1:2:3 lw 2 title"));
}

TEST_F(Gnuplot, RowsThatFiveDecimalsWouldLose) {
  run_commands(
      "SAMPLE 1 4\nGENR X=TIME(0)\nGENR S=X*1E-6\nGENR B=X*1E13\nGENR M=X\n"
      "IF(X.EQ.2) M=-99999\nGRAPH X S B M / DEVICE=NONE\n");
  EXPECT_EQ(read_file("D001.GNU").substr(0, 162),
            "             1.00000   0.10000000000E-05   0.10000000000E+14             1.00000\n"
            "             2.00000   0.20000000000E-05   0.20000000000E+14                 NaN\n");
}

TEST_F(Gnuplot, AppendedPlots) {
  const std::string graph = "GRAPH X Y / DEVICE=NONE";
  run_commands(DATA + "TITLE First\n" + graph + " XMIN=2\nTITLE\n" + graph + " APPEND\n");
  const std::string text = read_file("C001.GNU");
  EXPECT_EQ(text.find("quit"), text.size() - 5);
  EXPECT_TRUE(within(text, " plot  \"D001.GNU\" index 1 using     1:2 lw 2 title \"Y\""));
  EXPECT_EQ(text.find("START"), text.rfind("START"));
  EXPECT_LT(text.find("set title \"First\""), text.find("unset title\n"));
  EXPECT_LT(text.find("set xrange [2:*]"), text.find("set autoscale\n"));
  EXPECT_TRUE(within(read_file("D001.GNU"), "\n \n \n             1.00000"));
  EXPECT_EQ(files(), 2U);
}

TEST_F(Gnuplot, PlotOverTheLastOne) {
  run_commands(DATA +
               "GRAPH X Y / DEVICE=NONE\nGRAPH X Z / SAME LINE DEVICE=NONE\n"
               "GRAPH X Y / SAME DEVICE=NONE\nGRAPH X Y / DEVICE=NONE\n");
  EXPECT_TRUE(within(read_file("C003.GNU"),
                     " plot  \"D003.GNU\" index 0 using     1:2 lw 2 title \"Y\",\\\n"
                     "\"D003.GNU\" index 1 using     1:2 w linespoint lw 2 title \"Z\",\\\n"
                     "\"D003.GNU\" index 2 using     1:2 lw 2 title \"Y\"\nquit\n"));
  EXPECT_TRUE(read_file("D003.GNU").starts_with(read_file("D002.GNU") + " \n \n"));
  EXPECT_TRUE(within(read_file("C004.GNU"), " plot  \"D004.GNU\" using"));
}

// A command file that somebody has left in the folder is not run.
TEST_F(Gnuplot, StrangeCommandFiles) {
  NEEDS_GNUPLOT();
  std::ofstream("C001.GNU") << "system(\"touch EVIL\")\n";
  run_commands(DATA + "GRAPH X Y / DEVICE=PNG\nGRAPH X Y / DEVICE=PNG APPEND\n");
  EXPECT_TRUE(there("GN000002.png"));
  EXPECT_FALSE(there("EVIL"));
}

// Two ellipses, two boxes and the estimate: parts with a line of one blank between.
TEST_F(Gnuplot, ConfidenceRegion) {
  const Listing l = run_commands("SAMPLE 1 17\nREAD(" KORVEL_TEST_DATA
                                 "/textile.dat) YEAR C I P\nOLS C I P\n"
                                 "CONFID I P / DEVICE=NONE POINTS=8\n");
  // qf(.95, 2, 14) of R: 3.738892
  EXPECT_TRUE(holds(l,
                    " CONFIDENCE REGION PLOT FOR I AND P\n"
                    "  USING F DISTRIBUTION WITH 2 AND 14 D.F. F-VALUE =   3.7389\n"
                    " USING 95% AND 90% CONFIDENCE INTERVALS\n"))
      << l.text;
  std::ifstream in("D001.GNU");
  std::string line;
  std::vector<std::string> part(1);
  while (std::getline(in, line)) {
    if (line == " ") {
      part.emplace_back();
    } else {
      part.back() += line + "\n";
    }
  }
  ASSERT_EQ(part.size(), 5U);
  EXPECT_EQ(part[0].substr(0, 120), part[0].substr(part[0].size() - 121, 120));  // closed
  EXPECT_TRUE(part[4].starts_with("             1.06171            -1.38299")) << part[4];
}

// Titles and names that a program which acts on what it reads must not act on.
TEST_F(Gnuplot, PicturesFromPlainAndHostileTitles) {
  NEEDS_GNUPLOT();
  const std::vector<std::string> titles = {
      "Plain title, GDP_1 and x^2", "\"; system(\"touch EVIL\") #", "`touch EVIL`",
      "\\\"; !touch EVIL\\",        "@ARG0 %s ${HOME} \x01\x02",    "Prix d'\xc3\xa9t\xc3\xa9"};
  struct Device {
    std::string name, kind;
  };
  const std::vector<Device> devices = {{"PNG", "png"}, {"SVG", "svg"},  {"PDF", "pdf"},
                                       {"EPS", "eps"}, {"JPEG", "jpg"}, {"GIF", "gif"}};
  for (const std::string& title : titles) {
    std::string commands = DATA + "TITLE " + title + "\n";
    for (const Device& d : devices) {
      commands += "GRAPH X Y / LINE DEVICE=" + d.name + " OUTPUT=p." + d.kind + "\n";
    }
    commands += "GRAPH X Y / DEVICE=POST\n";
    const std::int64_t start = clock_now();
    const Listing l = run_commands(commands);
    EXPECT_FALSE(holds(l, "WARNING")) << l.text;
    for (const Device& d : devices) {
      EXPECT_EQ(picture_fault("p." + d.kind, d.kind, start), "") << title;
    }
    EXPECT_EQ(picture_fault("GNU.ps", "ps", start), "") << title;
    EXPECT_FALSE(there("EVIL")) << title;
  }
  // Only the pictures are left.
  EXPECT_EQ(files(), devices.size() + 1);
  EXPECT_TRUE(within(read_file("p.svg"), "Prix d'\xc3\xa9t\xc3\xa9"));
}

TEST_F(Gnuplot, HostileFileNames) {
  NEEDS_GNUPLOT();
  const std::string commands =
      DATA +
      "GRAPH X Y / OUTPUT=\"|touch EVIL.png\" DATAFILE=\"< touch EVIL\" COMMFILE=\"-x.gnu\"\n";
  const Listing l = run_commands(commands);
  EXPECT_TRUE(holds(l, " ...NOTE..PLOT IS IN FILE |touch EVIL.png")) << l.text;
  EXPECT_TRUE(there("|touch EVIL.png"));
  EXPECT_TRUE(there("< touch EVIL"));
  EXPECT_FALSE(there("EVIL") || there("EVIL.png"));
}

TEST_F(Gnuplot, NamesOfPictures) {
  NEEDS_GNUPLOT();
  std::ofstream("GN000001.png") << "mine";
  const Listing l = run_commands(DATA +
                                 "GRAPH X Y / DEVICE=PNG\n"
                                 "GRAPH Y Z / HISTOGRA OUTPUT=h.svg COMMFILE=KEEP\n");
  EXPECT_EQ(read_file("GN000001.png"), "mine");
  EXPECT_TRUE(holds(l, "FILE GN000002.png"));
  EXPECT_TRUE(there("h.svg") && there("h-2.svg"));  // one picture for each variable
  EXPECT_TRUE(there("C002.GNU") && there("D002.GNU") && there("D003.GNU"));
  EXPECT_TRUE(within(read_file("C002.GNU"), "set ylabel \"frequency\"\n"));
}

TEST_F(Gnuplot, DrawnWithCharacters) {
  NEEDS_GNUPLOT();
  const Listing l = run_commands(DATA + "GRAPH X Y / DEVICE=DUMB LINE\n");
  EXPECT_TRUE(holds(l, "Y ***A***")) << l.text;
  EXPECT_FALSE(holds(l, "\f"));
  EXPECT_EQ(files(), 0U);
}

TEST_F(Gnuplot, FailuresAreToldAndFilesKept) {
  NEEDS_GNUPLOT();
  const Listing l = run_commands(DATA +
                                 "GRAPH X Y / OUTPUT=\"none/p.png\"\n"
                                 "GRAPH X Y / DEVICE=NOSUCHTERM\n"
                                 "GRAPH X Y / DEVICE=\"a;b\"\n");
  EXPECT_TRUE(holds(l, " ...WARNING..PLOT NOT MADE: \"C001.GNU\" line 12: cannot open file"))
      << l.text;
  EXPECT_TRUE(holds(l, " ...NOTE..COMMAND FILE IS C001.GNU"));
  EXPECT_TRUE(there("C001.GNU") && there("D001.GNU") && there("C002.GNU") && there("D002.GNU"));
  EXPECT_TRUE(within(read_file("C001.GNU"), "\"D001.GNU\""));
  EXPECT_TRUE(holds(l, " ...ERROR..IN RIGHT HAND SIDE OF OPTION..DEVICE"));
  EXPECT_EQ(files(), 4U);  // no empty picture
}

TEST_F(Gnuplot, WithoutTheProgram) {
  const char* old = std::getenv("PATH");
  const std::string path = old == nullptr ? "" : old;
  setenv("PATH", "/nowhere", 1);
  const Listing l = run_commands(DATA + "GRAPH X Y / DEVICE=PNG\nGRAPH X Y / DEVICE=PNG\n");
  setenv("PATH", path.c_str(), 1);
  const std::string told = " ...WARNING..GNUPLOT IS NOT INSTALLED (PACKAGE gnuplot-nox)";
  EXPECT_TRUE(holds(l, told));
  EXPECT_EQ(l.text.find(told), l.text.rfind(told));
  EXPECT_EQ(l.status, 0);
  EXPECT_EQ(files(), 4U);
}

TEST_F(Gnuplot, NothingIsStarted) {
  const Listing l = run_commands(DATA +
                                 "GRAPH X Y\n"
                                 "SET NOGRAPHICS\nGRAPH X Y / OUTPUT=p.png\n");
  EXPECT_TRUE(holds(l, " ...WARNING..NO DISPLAY, PLOT FILES KEPT: D001.GNU C001.GNU"));
  EXPECT_TRUE(there("C002.GNU"));
  EXPECT_FALSE(there("p.png"));
}

TEST_F(Gnuplot, WebOutput) {
  NEEDS_GNUPLOT();
  const Listing l =
      run_commands("SET HTML\n" + DATA + "GRAPH X Y / OUTPUT=\"a b&c.png\"\nGRAPH X Y\n");
  EXPECT_TRUE(holds(l, "<IMG SRC=\"a%20b&amp;c.png\">")) << l.text;
  EXPECT_EQ(read_file("myplots.htm"),
            "<HTML>\nLIST OF RECENT PLOTS<br>\n"
            "<a href=\"a%20b&amp;c.png\">a%20b&amp;c.png</A><BR>\n"
            "<a href=\"GN000001.png\">GN000001.png</A><BR>\n");
}

TEST_F(Gnuplot, Refusals) {
  struct Case {
    std::string command, message;
  };
  for (const Case& c : std::vector<Case>{
           {"PLOT X Y / THREE", " ...ERROR..THREE VARIABLES ARE NEEDED"},
           {"PLOT X Y / XMIN=3 XMAX=3", " ...ERROR..IN RIGHT HAND SIDE OF OPTION..XMIN"},
           {"PLOT Y / HISTOGRA GROUPS=7 GNUPLOT", " ...ERROR..60/GROUPS MUST BE AN INTEGER"},
           {"PLOT X Y / OUTPUT", " ...ERROR..IN RIGHT HAND SIDE OF OPTION..OUTPUT"},
           {"PLOT Y / HISTOGRA WEIGHT=Y", " ...ERROR..IN GROUP COUNT"},
           {"PLOT X Y / OUTPUT=a.png COMMFILE=a.png",
            " ...ERROR..IN RIGHT HAND SIDE OF OPTION..COMMFILE"},
           {"PLOT X Y / OUTPUT=a.png DATAFILE=a.png",
            " ...ERROR..IN RIGHT HAND SIDE OF OPTION..DATAFILE"},
           // Neither an empty picture nor a data file is left.
           {"PLOT X Y / DEVICE=PNG COMMFILE=none/c.gnu", " ...ERROR..OPEN ERROR"},
           {"GENR Q=-99999\nPLOT X Q", " ...ERROR..NO DATA TO PLOT"}}) {
    const Listing l = run_commands(DATA + c.command + "\n");
    EXPECT_TRUE(holds(l, c.message)) << l.text;
    EXPECT_EQ(files(), 0U) << c.command;
  }
}

}  // namespace
}  // namespace korvel
