// PLOTGX: the kind of picture, its name, and the lines that tell gnuplot.
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>

#include "engine/files.h"
#include "engine/host.h"
#include "engine/input.h"
#include "engine/output.h"
#include "engine/redirect.h"
#include "engine/run.h"
#include "graphics/gnuplot.h"

namespace korvel {
namespace {

std::string lower_case(std::string_view text) {
  std::string out(text);
  for (char& c : out) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c + 32);
  }
  return out;
}
std::string suffix_of(std::string_view name) {
  const auto slash = name.rfind('/');
  const auto point = name.rfind('.');
  const bool inside =
      point != std::string_view::npos && (slash == std::string_view::npos || slash < point);
  return inside ? lower_case(name.substr(point + 1)) : std::string();
}
}  // namespace

PlotJob::Terminal PlotJob::terminal_of(std::string_view word) {
  struct Row {
    std::string_view word;
    Terminal terminal;
  };
  constexpr std::array<Row, 11> rows = {{{"post", Terminal::postscript},
                                         {"ps", Terminal::postscript},
                                         {"eps", Terminal::eps},
                                         {"gif", Terminal::gif},
                                         {"png", Terminal::png},
                                         {"jpg", Terminal::jpeg},
                                         {"jpeg", Terminal::jpeg},
                                         {"svg", Terminal::svg},
                                         {"pdf", Terminal::pdf},
                                         {"dumb", Terminal::dumb},
                                         {"none", Terminal::nothing}}};
  const std::string_view cut = word.substr(0, 4);
  for (const Row& row : rows) {
    if (cut == row.word) return row.terminal;
  }
  return Terminal::other;
}
bool PlotJob::choose_terminal() {
  device_ = lower_case(words_.DEVICE);
  const std::string& OUTPUT = words_.OUTPUT;
  const bool none = terminal_of(device_) == Terminal::nothing && !device_.empty();
  runs_ = !none && OSCOM.OGRAPH;
  if (web_output()) {
    terminal_ = Terminal::png;
  } else if (!device_.empty() && !none) {
    terminal_ = terminal_of(device_);
    const bool word = std::ranges::all_of(device_, [](char c) { return NAMCHK(c) >= 0; });
    if (terminal_ == Terminal::other && !word) {
      return bad_option_value("DEVICE");
    }
  } else if (!OUTPUT.empty()) {
    const std::string suffix = suffix_of(OUTPUT);
    const Terminal by_name = terminal_of(suffix);
    const bool known = !suffix.empty() && by_name != Terminal::other &&
                       by_name != Terminal::nothing && by_name != Terminal::dumb;
    terminal_ = known ? by_name : Terminal::png;
  } else if (!runs_) {
    terminal_ = Terminal::nothing;
  } else if (on_host()) {
    terminal_ = Terminal::png;  // a host shows files
  } else if (OSCOM.OTALK) {
    const bool display = std::getenv("DISPLAY") != nullptr ||        // NOLINT(concurrency-*)
                         std::getenv("WAYLAND_DISPLAY") != nullptr;  // NOLINT(concurrency-*)
    terminal_ = display ? Terminal::window : Terminal::dumb;
  } else {
    terminal_ = Terminal::nothing;
    runs_ = false;
    no_display_ = true;
  }
  return true;
}
std::string PlotJob::suffix() const {
  switch (terminal_) {
    case Terminal::postscript:
      return "ps";
    case Terminal::eps:
      return "eps";
    case Terminal::gif:
      return "gif";
    case Terminal::png:
      return "png";
    case Terminal::jpeg:
      return "jpg";
    case Terminal::svg:
      return "svg";
    case Terminal::pdf:
      return "pdf";
    case Terminal::other:
      return device_;
    default:
      return "txt";
  }
}
// A name that nobody has taken: GN000001.png and on. The empty file keeps it.
std::string PlotJob::new_picture() {
  for (int number = VPLCOM.NPICT;; ++number) {
    std::string digits = std::to_string(number);
    if (digits.size() < 6) digits.insert(0, 6 - digits.size(), '0');
    std::string name = RUNCOM.vgnu + "GN" + digits + "." + suffix();
    if (!runs_ || !output_allowed(name)) {
      VPLCOM.NPICT = number + 1;
      if (access(name.c_str(), F_OK) == 0) continue;
      pictures_.push_back({name, false});
      return name;
    }
    const int fd = ::open(name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    if (fd < 0 && errno == EEXIST) continue;
    if (fd >= 0) close(fd);
    VPLCOM.NPICT = 1;  // pictures may be deleted and their names taken again
    pictures_.push_back({name, fd >= 0});
    return name;
  }
}
std::string PlotJob::output_line() {
  if (!words_.OUTPUT.empty()) {
    std::string name = resolve_write_name(words_.OUTPUT);
    if (plotted_ > 0) {
      const auto point = suffix_of(name).empty() ? name.size() : name.rfind('.');
      name.insert(point, "-" + std::to_string(plotted_ + 1));
    }
    pictures_.push_back({name, false});
    return "set output " + quoted_file(name) + "\n";
  }
  if (terminal_ == Terminal::dumb) return {};
  if (terminal_ == Terminal::postscript) {
    pictures_.push_back({RUNCOM.vgnu + "GNU.ps", false});
    return "set output " + quoted_file(pictures_.back().name) + " \n";
  }
  return " set output " + quoted_file(new_picture()) + " \n";
}
std::string PlotJob::terminal_lines() {
  const bool WIDE = words_.WIDE;
  // Half of an image's canvas in each direction, and what is empty cut off.
  constexpr std::string_view canvas = " small crop size 1280,960\n";
  std::string line;
  switch (terminal_) {
    case Terminal::nothing:
    case Terminal::window:
      return {};
    case Terminal::postscript:
      line = "set term postscript\n";
      break;
    case Terminal::eps:
      line = "set term postscript eps\n";
      break;
    case Terminal::gif:
      line = "set term gif" + std::string(canvas);
      break;
    case Terminal::png:
      line = "# asked for: set term png small color\nset term png" + std::string(canvas);
      break;
    case Terminal::jpeg:
      line = "# asked for: set term jpg small\nset term jpeg" + std::string(canvas);
      break;
    case Terminal::svg:
      // White behind it, or a dark page or viewer shows black letters on black.
      // Lines without a title of their own would bear the name of the data file, which is no use.
      line = WIDE ? "set term svg size 960,540 background 'white'\n"
                  : "set term svg size 640,480 background 'white'\n";
      line += "set key noautotitle\n";
      break;
    case Terminal::pdf:
      line = WIDE ? "set term pdf size 9in,5in\n" : "set term pdf size 6in,4.5in\n";
      break;
    case Terminal::dumb:
      line = WIDE ? "set term dumb 130 40 mono\n" : "set term dumb 79 24 mono\n";
      break;
    case Terminal::other:
      line = "set term " + device_ + "\n";
      break;
  }
  line += output_line();
  const bool whole = WIDE || terminal_ == Terminal::svg || terminal_ == Terminal::pdf ||
                     terminal_ == Terminal::dumb || terminal_ == Terminal::other;
  // The wide lines of the styles are no lines of characters.
  const std::string plain = terminal_ == Terminal::dumb ? "set nogrid\nset border 3 lt -1\n" : "";
  return line + plain + (whole ? "set size 1.0,1.0\n" : "set size 0.5,0.5\n");
}
}  // namespace korvel
