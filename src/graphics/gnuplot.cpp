// PLOTGX: the data and command files, the report.
#include "graphics/gnuplot.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <system_error>

#include "engine/files.h"
#include "engine/host.h"
#include "engine/input.h"
#include "engine/output.h"
#include "engine/redirect.h"
#include "engine/run.h"
#include "engine/units.h"
#include "platform/text_input.h"

namespace korvel {
namespace {

constexpr std::string_view STYLES =
    "# KORVEL GLOBAL STYLES HEADER - START\n"
    "set style line 80 lt rgb \"#000000\"\n"
    "set style line 81 lt 0  # dashed\n"
    "set style line 81 lt rgb \"#808080\"  # grey\n"
    "set grid back linestyle 81\n"
    "set border 3 back linestyle 80\n"
    "set xtics nomirror\n"
    "set ytics nomirror\n"
    "# KORVEL GLOBAL STYLES HEADER - END\n";

// Before a plot that is added to others: their titles, limits and dates are not its own.
constexpr std::string_view CLEARED =
    "unset title\nunset xlabel\nunset ylabel\nset autoscale\nset xdata\nset format x\n"
    "unset parametric\n";

// Stands in the lines of plots for the name of a data file, with its number between the marks:
// where the file lies at last is known when the command file is written.
constexpr char MARK = '\x01';

// D001.GNU, C001.GNU in the folder of the plots.
std::string numbered(char letter, int number) {
  std::string digits = std::to_string(number);
  if (digits.size() < 3) digits.insert(0, 3 - digits.size(), '0');
  return RUNCOM.vgnu + letter + digits + ".GNU";
}

std::string folder_name(const std::string& name) {
  return RUNCOM.vgnu.empty() || name.find('/') != std::string::npos ? name : RUNCOM.vgnu + name;
}

bool file_there(const std::string& path) {
  struct stat st {};
  return stat(path.c_str(), &st) == 0;
}

std::string whole_text(const std::string& path) {
  const auto text = open_text(path);
  return text == nullptr ? std::string() : std::string(text->rest());
}

// Lines to go on with: those of a command file without its closing quit.
std::string without_quit(std::string text) {
  while (text.ends_with('\n') || text.ends_with(' ')) text.pop_back();
  if (text == "quit") return {};
  if (text.ends_with("\nquit")) text.resize(text.size() - 4);
  if (!text.empty() && !text.ends_with('\n')) text += '\n';
  return text;
}

// Blocks of data that two empty lines part.
int count_blocks(std::string_view text) {
  int blocks = 0, empty_lines = 2;
  while (!text.empty()) {
    const auto end = text.find('\n');
    const std::string_view line = trimmed(text.substr(0, end));
    text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
    if (line.empty()) {
      ++empty_lines;
      continue;
    }
    if (empty_lines >= 2) ++blocks;
    empty_lines = 0;
  }
  return blocks;
}

// A file of the run's private folder. False after a reported failure.
bool open_private(FileOutput& file, const std::string& path) {
  if (file.open(path, WriteMode::replace)) return true;
  fail<"(' ...ERROR..OPEN ERROR ON UNIT', I0, ' ERROR=', I0, ' FILE=', A)">(NAMED_UNIT,
                                                                            file.error(), path);
  return false;
}

std::string file_part(const std::string& path) { return path.substr(path.rfind('/') + 1); }

// Do two names stand for one file? A device takes whatever comes.
bool one_file(const std::string& a, const std::string& b) {
  struct stat first {
  }, second{};
  if (stat(a.c_str(), &first) != 0) return a == b;
  return S_ISREG(first.st_mode) && stat(b.c_str(), &second) == 0 && first.st_dev == second.st_dev &&
         first.st_ino == second.st_ino;
}

std::string_view shown(const std::string& name) { return std::string_view(name).substr(0, 80); }

}  // namespace

std::string quoted(std::string_view text) {
  std::string out = "\"";
  for (const char c : text) {
    if (c == '"' || c == '\\' || c == '`') out += '\\';
    const auto code = static_cast<unsigned char>(c);
    if (code >= 32 && code != 127) out += c;
  }
  return out + "\"";
}

std::string quoted_file(std::string_view name) {
  const bool plain =
      !name.empty() && (NAMCHK(name[0]) >= 0 || name[0] == '/' || name[0] == '.' || name[0] == '_');
  return quoted(plain ? std::string(name) : "./" + std::string(name));
}

std::string samples_line(std::size_t rows) {
  return "set samples " + std::to_string(std::max<std::size_t>(2, rows)) + "\n";
}

bool plot_word(Workspace ws, const NameOption& option, std::string_view word,
               std::string_view standard, std::string& text) {
  text.clear();
  if (option.text == "********") {
    return bad_option_value(word);
  }
  if (option.text.empty() || (!standard.empty() && option.text == standard)) return true;
  text = option.typed;
  if (option.var > 0 && option.var <= DATCOM.NVARS) {
    const int type = INFO(ws, option.var).ITYPE;
    if (type == STRING5 || type == CHARVAR) {
      const auto words = elements(ws, option.var);
      text = trimmed({reinterpret_cast<const char*>(words.data()), words.size_bytes()});
    }
  }
  constexpr std::size_t most = 255;
  if (text.empty() || text.size() > most) {
    return bad_option_value(word);
  }
  return true;
}

// ---- Names

bool PlotJob::open(const PlotWords& words) {
  *this = PlotJob();
  words_ = words;
  // 1. Where the plot goes, and whether there is a program to draw it.
  if (!choose_terminal()) return false;
  if (runs_ && gnuplot_program().empty()) {
    runs_ = false;
    if (!VPLCOM.OTOLD) warn(" ...WARNING..GNUPLOT IS NOT INSTALLED (PACKAGE gnuplot-nox)");
    VPLCOM.OTOLD = true;
  }
  const std::string& OUTPUT = words_.OUTPUT;
  if (!OUTPUT.empty() && picture_terminal()) {
    const std::string path = resolve_write_name(OUTPUT);
    if (!output_allowed(path)) {
      refuse_in_safe_run();
      return false;
    }
    if (file_of_run(path)) {
      fail<"(' ...ERROR..FILE IS THE INPUT OR OUTPUT OF THIS RUN:', A)">(path);
      return false;
    }
  }
  // 2. The command file.
  const bool keep = words_.COMMFILE == "KEEP" || words_.COMMFILE == "keep";
  const bool named = !words_.COMMFILE.empty() && !keep;
  if (named) {
    command_name_ = resolve_write_name(words_.COMMFILE);
  } else if (!words_.fixed_commands.empty()) {
    command_name_ = folder_name(words_.fixed_commands);
  } else if (words_.APPEND && VPLCOM.KEPTC > 0) {
    command_name_ = numbered('C', VPLCOM.KEPTC);
  } else {
    number_ = VPLCOM.NCOMM++;
    command_name_ = numbered('C', number_);
  }
  // gnuplot runs what stands in the file: without a name only what this run has written itself.
  appends_ = words_.APPEND && number_ == 0 && file_there(command_name_);
  if (appends_ && RUNCOM.settings.safe) {
    refuse_in_safe_run();
    return false;
  }
  keeps_commands_ = named || keep || !runs_ || appends_;
  keeps_data_ = keep || !runs_ || !words_.DATAFILE.empty();
  if (appends_) old_commands_ = without_quit(whole_text(command_name_));
  return true;
}

bool PlotJob::is_picture(const std::string& path) const {
  return !words_.OUTPUT.empty() && picture_terminal() &&
         one_file(path, resolve_write_name(words_.OUTPUT));
}

// A plot that comes to nothing leaves no empty picture behind.
bool PlotJob::give_up() const {
  for (const Picture& p : pictures_) {
    struct stat st {};
    if (p.reserved && stat(p.name.c_str(), &st) == 0 && st.st_size == 0) unlink(p.name.c_str());
  }
  return false;
}

bool PlotJob::data(const PlotRows& rows) { return add_data(rows) || give_up(); }

bool PlotJob::add_data(const PlotRows& rows) {
  if (rows.columns > MAXPLOTCOLUMNS) {
    fail(" ...ERROR..STATEMENT TOO LONG");
    return false;
  }
  // 1. Its name. A second file of one command can't have the name that was given for the first.
  DataFile file;
  if (!words_.DATAFILE.empty() && data_.empty()) {
    file.name = resolve_write_name(words_.DATAFILE);
  } else if (!words_.fixed_data.empty()) {
    file.name = folder_name(words_.fixed_data);
  } else if (words_.APPEND && VPLCOM.KEPTD > 0 && data_.empty()) {
    file.name = numbered('D', VPLCOM.KEPTD);
  } else {
    file.number = VPLCOM.NDATA++;
    file.name = numbered('D', file.number);
  }
  const bool adds = words_.APPEND && data_.empty() && file.number == 0 && file_there(file.name);
  const bool keeps = keeps_data_ || adds;
  if (keeps && is_picture(file.name)) return bad_option_value("DATAFILE");
  // 2. Behind other data two empty lines part the blocks.
  FileOutput out;
  if (adds) file.index = count_blocks(whole_text(file.name));
  if (keeps) {
    if (!open_output_file(out, 0, file.name, adds ? WriteMode::append : WriteMode::replace)) {
      return false;
    }
    file.path = file.name;
    if (file.index > 0) out.write(" \n \n");
  } else {
    file.path = private_file(file_part(file.name));
    if (file.path.empty() || !open_private(out, file.path)) return false;
  }
  // 3. The rows.
  if (!rows.before.empty()) {
    out.write(rows.before);
    out.write(" \n \n");
  }
  write_plot_rows(out, rows);
  if (!commit_output_file(out)) return false;
  data_.push_back(std::move(file));
  return true;
}

std::string PlotJob::file() const {
  return MARK + std::to_string(static_cast<int>(data_.size()) - 1) + MARK;
}

std::string PlotJob::index() const {
  const int k = data_.back().index;
  return k < 0 ? std::string() : " index " + std::to_string(k);
}

std::string PlotJob::data_text() const {
  constexpr off_t most = 8 << 20;
  struct stat st {};
  const DataFile& file = data_.back();
  if (file.index >= 0 || stat(file.path.c_str(), &st) != 0 || st.st_size > most) return {};
  return S_ISREG(st.st_mode) ? whole_text(file.path) : std::string();
}

void PlotJob::plot(std::string_view lines) {
  if (plotted_ == 0) {
    if (!words_.APPEND) plots_ += STYLES;
    if (appends_) plots_ += CLEARED;
    plots_ += terminal_lines();
    plots_ += "set termoption noenhanced\n" + setup_;
    // The command is a comment on one line; a closing backslash would join the next line to it.
    plots_ += "# KORVEL COMMAND: ";
    for (const char c : command_typed()) {
      if (static_cast<unsigned char>(c) >= 32) plots_ += c;
    }
    if (plots_.back() == '\\') plots_ += ' ';
    plots_ += '\n';
  } else if (picture_terminal() && !paged()) {
    plots_ += output_line();
  }
  plots_ += lines;
  if (words_.PAUSE || window()) plots_ += "pause -1 \n";
  ++plotted_;
}

// ---- The command file

std::string PlotJob::commands(bool kept) const {
  std::string text = old_commands_;
  std::string_view left = plots_;
  for (;;) {
    const auto mark = left.find(MARK);
    text += left.substr(0, mark);
    if (mark == std::string_view::npos) break;
    const auto end = left.find(MARK, mark + 1);
    const DataFile& file =
        data_[static_cast<std::size_t>(FSUMS(left.substr(mark + 1, end - mark - 1)).value)];
    text += quoted_file(kept ? file.name : file.path);
    left.remove_prefix(end + 1);
  }
  return text + "quit\n";
}

// False after a reported failure; `path` is where the file lies.
bool PlotJob::write_commands(bool kept, std::string& path) {
  FileOutput out;
  if (kept) {
    path = command_name_;
    const auto is_data = [&](const DataFile& file) { return one_file(file.path, path); };
    if (is_picture(path) || std::ranges::any_of(data_, is_data)) {
      return bad_option_value("COMMFILE");
    }
    if (!open_output_file(out, 0, command_name_, WriteMode::replace)) return false;
    if (number_ > 0) VPLCOM.KEPTC = number_;
    if (data_.back().number > 0) VPLCOM.KEPTD = data_.back().number;
  } else {
    path = private_file(file_part(command_name_));
    if (path.empty() || !open_private(out, path)) return false;
  }
  out.write(commands(keeps_data_));
  return commit_output_file(out);
}

// The files of a plot that came to nothing, under their own names.
bool PlotJob::keep_files() {
  for (DataFile& file : data_) {
    if (file.path == file.name) continue;
    FileOutput out;
    if (!open_output_file(out, 0, file.name, WriteMode::replace)) return false;
    out.write(whole_text(file.path));
    if (!commit_output_file(out)) return false;
    unlink(file.path.c_str());
    file.path = file.name;
  }
  std::string path;
  return write_commands(true, path);
}

// ---- The run and its report

bool PlotJob::run(const std::string& command_file) {
  std::string screen;
  if (terminal_ == Terminal::dumb && pictures_.empty()) screen = private_file("screen.txt");
  const std::int64_t start = clock_now();
  main_output().flush();
  std::string fault = run_gnuplot(command_file, screen, window());
  for (const Picture& p : pictures_) {
    if (fault.empty()) fault = picture_fault(p.name, suffix(), start);
  }
  if (!fault.empty()) {
    for (const Picture& p : pictures_) {
      struct stat st {};
      if (stat(p.name.c_str(), &st) != 0 || st.st_size != 0) continue;
      if (p.reserved || written_at(p.name) >= start) unlink(p.name.c_str());
    }
    // The file goes by the name under which it is kept.
    if (const auto at = fault.find(command_file); at != std::string::npos) {
      fault.replace(at, command_file.size(), command_name_);
    }
    warn<"(' ...WARNING..PLOT NOT MADE: ', A)">(std::string_view(fault).substr(0, 100));
    return false;
  }
  if (screen.empty()) return true;
  // Drawn with characters: the lines between the empty ones at both ends.
  const auto text = open_text(screen);
  std::string_view line;
  int empty_lines = 0;
  bool begun = false;
  while (text != nullptr && text->line(line)) {
    while (line.starts_with('\f')) line.remove_prefix(1);
    line = right_trimmed(line);
    if (line.empty()) {
      empty_lines += begun ? 1 : 0;
      continue;
    }
    for (; empty_lines > 0; --empty_lines) say(" ");
    raw_line(line);
    begun = true;
  }
  unlink(screen.c_str());
  return true;
}

void PlotJob::report_pictures() const {
  for (const Picture& p : pictures_) {
    if (on_host()) {
      tell_host("FILE_PLOT", p.name);
    } else if (OCOM.OPUT) {
      say<"(' ...NOTE..PLOT IS IN FILE ', A)">(shown(p.name));
    }
    if (web_output()) show_on_page(p.name);
  }
}

bool PlotJob::finish() {
  if (plotted_ == 0) return true;
  std::string path;
  if (!write_commands(keeps_commands_, path)) return give_up();
  if (!runs_) {
    const std::string data = data_.empty() ? std::string() : data_[0].name;
    if (no_display_) {
      warn<"(' ...WARNING..NO DISPLAY, PLOT FILES KEPT: ', A, 1X, A)">(
          std::string_view(data).substr(0, 40), std::string_view(command_name_).substr(0, 40));
    } else if (OCOM.OPUT) {
      say<"(' ...NOTE..COMMAND FILE IS ', A)">(shown(command_name_));
    }
    return true;
  }
  if (run(path)) {
    report_pictures();
    if (!keeps_commands_) unlink(path.c_str());
    for (const DataFile& file : data_) {
      if (file.path != file.name) unlink(file.path.c_str());
    }
    return !OCOM.ODONT;
  }
  if (!keep_files()) return false;
  if (!keeps_commands_) unlink(path.c_str());
  say<"(' ...NOTE..COMMAND FILE IS ', A)">(shown(command_name_));
  return true;
}

}  // namespace korvel
