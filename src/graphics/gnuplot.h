// Plots through gnuplot, a program beside this one: the files that it reads, its run, the picture.
//
// A command that plots makes one PlotJob: open, then for each plot its data file and its lines, and
// finish, which writes the command file, runs gnuplot, looks at the pictures and reports. gnuplot
// acts on what it reads, so every text of a user passes through quoted().
#pragma once

#include <array>
#include <cmath>
#include <cstdint>
#include <limits>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "data/format.h"
#include "engine/options.h"
#include "platform/file_output.h"

namespace korvel {

// Text between double quotes: `\`, `"` and backtick are escaped, control characters dropped.
std::string quoted(std::string_view text);
// A file's name between double quotes. gnuplot takes names that begin with a sign ("|", "<", "-",
// "+", "$", "~") for something else than a file: those get "./" in front.
std::string quoted_file(std::string_view name);
// A legend below the plot, where it covers no curve. A macro, so that it joins with literals.
#define KEY_LINES "set key\nset key outside bottom center horizontal height 1\n"
// " set samples n" without the blank; gnuplot refuses 1.
std::string samples_line(std::size_t rows);

// What the options of the plotting command say, as typed; empty: not given.
struct PlotWords {
  std::string DEVICE, OUTPUT, PORT, COMMFILE, DATAFILE;
  bool APPEND = false, WIDE = false, PAUSE = false;
  // Names of files that aren't given; empty: the next numbers of D001.GNU and C001.GNU.
  std::string fixed_data, fixed_commands;
};
// The text of such an option: that of a character variable if it names one. The default of the
// option table counts as not given. False after an error: nothing behind "=".
bool plot_word(Workspace ws, const NameOption& option, std::string_view word,
               std::string_view standard, std::string& text);

// ---- Data rows

inline constexpr std::size_t MAXPLOTCOLUMNS = 50;
inline constexpr int PLOTWIDTH = 20;  // places of a column

// A column is written in F20.5 unless that would lose it: values that need all 20 places, or a
// range so small that five decimals show nothing of it.
struct PlotColumn {
  double least = std::numeric_limits<double>::infinity();
  double most = -std::numeric_limits<double>::infinity();
  void see(double v) {
    if (!std::isfinite(v)) return;
    least = std::min(least, v);
    most = std::max(most, v);
  }
  bool exponent() const {
    const double range = most - least;
    return most >= 1e13 || least <= -1e12 || (range > 0.0 && range < 0.01);
  }
};

// Rows for a data file: value(row, column), NaN for none; breaks(row): a line of one blank stands
// before it.
struct PlotRows {
  std::size_t rows = 0, columns = 0;
  const void* object = nullptr;
  double (*value)(const void*, std::size_t, std::size_t) = nullptr;
  bool (*breaks)(const void*, std::size_t) = nullptr;
  std::string_view before;  // rows that stand in front, two empty lines between
};
template <class F>
PlotRows plot_rows(std::size_t rows, std::size_t columns, const F& value) {
  return {rows,
          columns,
          &value,
          [](const void* f, std::size_t t, std::size_t c) -> double {
            return (*static_cast<const F*>(f))(t, c);
          },
          nullptr,
          {}};
}
void write_plot_rows(FileOutput& file, const PlotRows& rows);

// ---- The job

class PlotJob {
 public:
  // PLOTGX 4: the terminal and the names. False after a reported failure.
  bool open(const PlotWords& words);
  // PLOTGX 2: the data file of the next plot. False after a reported failure.
  bool data(const PlotRows& rows);
  // What a plot statement names the last data file with, and what follows the name when the file
  // has other data in front (" index k").
  std::string file() const;
  std::string index() const;
  // The text of the last data file when it holds one block of data alone, and is not too long to be
  // kept; else empty.
  std::string data_text() const;
  // PLOTGX 0: lines that set up the drawing for all plots (ticks, formats of time).
  void setup(std::string_view lines) { setup_ += lines; }
  // The lines of the next plot, the plot statement among them.
  void plot(std::string_view lines);
  // PLOTGX 1: files, gnuplot, pictures, notes. False after a reported failure; a picture that could
  // not be made is a warning and no failure.
  bool finish();

  bool alone() const { return !words_.APPEND; }  // every plot has files of its own
  bool window() const { return terminal_ == Terminal::window; }

 private:
  enum class Terminal : std::uint8_t {
    nothing,  // no terminal line
    window,
    postscript,
    eps,
    gif,
    png,
    jpeg,
    svg,
    pdf,
    dumb,
    other,
  };
  struct DataFile {
    std::string name;  // as it is called when it is kept
    std::string path;  // where it lies
    int number = 0;    // of a name that was numbered now
    int index = -1;    // of the data in it, below 0: they stand alone
  };
  struct Picture {
    std::string name;
    bool reserved = false;  // the empty file under the name is ours
  };

  static Terminal terminal_of(std::string_view word);
  bool choose_terminal();
  bool is_picture(const std::string& path) const;  // of OUTPUT
  bool add_data(const PlotRows& rows);
  bool give_up() const;  // false
  bool picture_terminal() const { return terminal_ > Terminal::window; }
  bool paged() const {
    return terminal_ == Terminal::postscript || terminal_ == Terminal::pdf ||
           terminal_ == Terminal::eps;
  }
  std::string terminal_lines();
  std::string output_line();
  std::string new_picture();
  std::string suffix() const;
  std::string commands(bool kept) const;
  bool write_commands(bool kept, std::string& path);
  bool keep_files();
  bool run(const std::string& command_file);
  void report_pictures() const;

  PlotWords words_;
  Terminal terminal_ = Terminal::nothing;
  std::string device_;  // word of Terminal::other
  bool runs_ = false;   // gnuplot is to be started
  bool keeps_commands_ = false, keeps_data_ = false;
  bool no_display_ = false;
  bool appends_ = false;      // to a command file that is there
  std::string old_commands_;  // its text
  std::string command_name_;
  int number_ = 0;  // of a command file that was numbered now
  std::string setup_, plots_;
  std::vector<DataFile> data_;
  std::vector<Picture> pictures_;
  int plotted_ = 0;
};

// ---- gnuplot_run.cpp

// The program: in the folder of FILE PLOTPATH, else in PATH; empty when it is not installed.
std::string gnuplot_program();
// Runs it on a command file. Empty, or the reason why no picture can have been made. Standard
// output goes to the file `screen` unless that is empty.
std::string run_gnuplot(const std::string& command_file, const std::string& screen, bool stays);
// When a file was last written, for a comparison; -1 there is none.
std::int64_t written_at(const std::string& path);
std::int64_t clock_now();
// Whether a file is a whole picture of its kind (suffix, lower case), written since `start`. Empty,
// or what is wrong with it.
std::string picture_fault(const std::string& path, std::string_view kind, std::int64_t start);

// ---- plot_web.cpp

bool web_output();
// The tag of a picture in the output, and its line in the list of pictures myplots.htm.
void show_on_page(const std::string& picture);

}  // namespace korvel
