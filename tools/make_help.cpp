// make_help MODE FOLDER OUTPUT: the manual in other forms, from the pages docs/manual/*.md.
//
//   cpp   a source file with every page as plain text, and the index of its words (HELP,
//   completion) text  one file of all pages, KORHELP html  a folder of pages man   the man page of
//   the program
//
// It knows the Markdown that the pages use: headings, paragraphs, lists, tables, code blocks
// (indented or fenced), `code`, **bold** and links.

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

namespace {

constexpr std::size_t WIDTH = 78;  // columns of plain text

enum class Kind { heading, paragraph, item, table, code };
struct Part {
  Kind kind;
  int level = 0;                                // of a heading
  std::vector<std::string> lines;               // text, or lines of code
  std::vector<std::vector<std::string>> cells;  // rows of a table
};
struct Page {
  std::string name;
  std::vector<Part> parts;
};

std::string trim(const std::string& s) {
  const auto a = s.find_first_not_of(" \t\r");
  return a == std::string::npos ? "" : s.substr(a, s.find_last_not_of(" \t\r") - a + 1);
}

// Cells of a table row; "\|" is a bar.
std::vector<std::string> split_cells(const std::string& line) {
  std::vector<std::string> cells;
  std::string cell;
  for (std::size_t i = 1; i < line.size(); ++i) {
    if (line[i] == '\\' && i + 1 < line.size() && line[i + 1] == '|') {
      cell += '|';
      ++i;
    } else if (line[i] == '|') {
      cells.push_back(trim(cell));
      cell.clear();
    } else {
      cell += line[i];
    }
  }
  return cells;
}

Page read_page(const std::filesystem::path& path) {
  Page page{path.stem().string(), {}};
  std::ifstream file(path);
  std::string line;
  bool fenced = false, open = false;  // open: the last paragraph or item may go on
  while (std::getline(file, line)) {
    const std::string text = trim(line);
    if (text.rfind("```", 0) == 0) {
      fenced = !fenced;
      if (fenced) page.parts.push_back({Kind::code, 0, {}, {}});
      open = false;
      continue;
    }
    const bool indented = line.rfind("    ", 0) == 0 && !open;
    const bool code_goes_on =
        !fenced && !page.parts.empty() && page.parts.back().kind == Kind::code && text.empty();
    if (fenced || (indented && !text.empty())) {
      if (!fenced && (page.parts.empty() || page.parts.back().kind != Kind::code)) {
        page.parts.push_back({Kind::code, 0, {}, {}});
      }
      page.parts.back().lines.push_back(fenced ? line : line.substr(4));
      continue;
    }
    if (code_goes_on) {
      page.parts.back().lines.emplace_back();
      continue;
    }
    if (text.empty()) {
      open = false;
      continue;
    }
    if (text[0] == '#') {
      const auto level = static_cast<int>(text.find_first_not_of('#'));
      page.parts.push_back(
          {Kind::heading, level, {trim(text.substr(static_cast<std::size_t>(level)))}, {}});
      open = false;
    } else if (text[0] == '|') {
      if (!open || page.parts.back().kind != Kind::table) {
        page.parts.push_back({Kind::table, 0, {}, {}});
      }
      if (text.find_first_not_of("|-: ") != std::string::npos) {
        page.parts.back().cells.push_back(split_cells(text));
      }
      open = true;
    } else if (text.rfind("- ", 0) == 0 || text.rfind("* ", 0) == 0 ||
               (std::isdigit(static_cast<unsigned char>(text[0])) != 0 && text.find(". ") <= 2)) {
      page.parts.push_back({Kind::item, 0, {text}, {}});
      open = true;
    } else if (open) {
      page.parts.back().lines.back() += " " + text;
    } else {
      page.parts.push_back({Kind::paragraph, 0, {text}, {}});
      open = true;
    }
  }
  for (Part& part : page.parts) {
    while (part.kind == Kind::code && !part.lines.empty() && part.lines.back().empty()) {
      part.lines.pop_back();
    }
  }
  return page;
}

// The text without its marks; links keep their words.
std::string plain(const std::string& s) {
  std::string out;
  for (std::size_t i = 0; i < s.size(); ++i) {
    if (s[i] == '`' || (s[i] == '*' && i + 1 < s.size() && s[i + 1] == '*')) {
      if (s[i] == '*') ++i;
    } else if (s[i] == '[') {
      const auto middle = s.find("](", i);
      const auto end = middle == std::string::npos ? middle : s.find(')', middle);
      const bool link = end != std::string::npos && s.find('[', i + 1) > middle;
      if (link) {
        out += plain(s.substr(i + 1, middle - i - 1));
        i = end;
      } else {
        out += '[';
      }
    } else {
      out += s[i];
    }
  }
  return out;
}

// Wraps words; lines after the first are indented by `hang`.
void wrap(std::ostream& out, const std::string& text, const std::string& first, std::size_t hang) {
  std::istringstream words(text);
  std::string line = first, word;
  bool empty = true;
  while (words >> word) {
    if (!empty && line.size() + 1 + word.size() > WIDTH) {
      out << line << '\n';
      line = std::string(hang, ' ');
      empty = true;
    }
    if (!empty) line += ' ';
    line += word;
    empty = false;
  }
  if (!empty || !first.empty()) out << line << '\n';
}

void plain_table(std::ostream& out, const Part& part) {
  std::size_t columns = 0;
  for (const auto& row : part.cells) columns = std::max(columns, row.size());
  std::vector<std::size_t> width(columns, 0);
  for (const auto& row : part.cells) {
    for (std::size_t c = 0; c < row.size(); ++c) {
      width[c] = std::max(width[c], plain(row[c]).size());
    }
  }
  constexpr std::size_t WIDEST = 24;
  for (const auto& row : part.cells) {
    std::string lead = "  ";
    bool any = false;
    for (std::size_t c = 0; c < row.size(); ++c) {
      any = any || !row[c].empty();
      if (c + 1 == row.size()) break;
      const std::string cell = plain(row[c]);
      lead += cell +
              std::string(std::min(width[c], WIDEST) > cell.size()
                              ? std::min(width[c], WIDEST) - cell.size()
                              : 0,
                          ' ') +
              "  ";
    }
    if (!any) continue;
    if (lead.size() > WIDTH) {  // no columns are left: one cell behind the other
      std::string text;
      for (std::size_t c = 0; c < row.size(); ++c) {
        if (row[c].empty()) continue;
        text += (text.empty() ? "" : c == 1 ? ": " : ", ") + plain(row[c]);
      }
      wrap(out, text, "  ", 6);
      continue;
    }
    std::size_t hang = 2;
    for (std::size_t c = 0; c + 1 < columns; ++c) hang += std::min(width[c], WIDEST) + 2;
    wrap(out, row.empty() ? "" : plain(row.back()), lead, std::min(hang, WIDTH / 2));
  }
}

std::string plain_page(const Page& page) {
  std::ostringstream out;
  bool first = true;
  for (const Part& part : page.parts) {
    const bool list = part.kind == Kind::item;
    if (!first && !list) out << '\n';
    first = false;
    switch (part.kind) {
      case Kind::heading:
        out << plain(part.lines[0]) << '\n';
        if (part.level == 1) out << std::string(plain(part.lines[0]).size(), '=') << '\n';
        break;
      case Kind::paragraph:
        wrap(out, plain(part.lines[0]), "", 0);
        break;
      case Kind::item:
        wrap(out, plain(part.lines[0]), "  ", 4);
        break;
      case Kind::code:
        for (const std::string& line : part.lines) out << "    " << line << '\n';
        break;
      case Kind::table:
        plain_table(out, part);
        break;
    }
  }
  return out.str();
}

// The word that a piece of code explains: "LAG(x,n)" is about LAG, "RIDGE=" about RIDGE,
// "FILE CLOSE 11" about CLOSE.
std::string index_word(std::string code) {
  for (const std::string_view command : {"FILE ", "SET "}) {
    if (code.starts_with(command)) code.erase(0, command.size());
  }
  std::string word;
  for (const char c : code) {
    if (std::isalnum(static_cast<unsigned char>(c)) == 0 && c != '_' && c != '$' && c != '*') break;
    word += static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  }
  return word;
}

// Words that the first cells of tables and the beginnings of items explain, with their text.
struct Entry {
  std::string word, text;
};
std::vector<Entry> index_page(const Page& page) {
  std::vector<Entry> entries;
  const auto add = [&](const std::string& head, const std::string& text) {
    for (std::size_t at = head.find('`'); at != std::string::npos;) {
      const auto end = head.find('`', at + 1);
      if (end == std::string::npos) break;
      const std::string word = index_word(head.substr(at + 1, end - at - 1));
      const bool again =
          !entries.empty() && entries.back().word == word && entries.back().text == text;
      if (!word.empty() && !again) entries.push_back({word, text});
      at = head.find('`', end + 1);
    }
  };
  for (const Part& part : page.parts) {
    if (part.kind == Kind::table) {
      for (const auto& row : part.cells) {
        // A table may hold several pairs of word and meaning side by side.
        for (std::size_t c = 0; c + 1 < row.size(); c += row.size() == 4 ? 2 : row.size()) {
          const std::string meaning = row.size() == 4 ? row[c + 1] : [&] {
            std::string all;
            for (std::size_t k = c + 1; k < row.size(); ++k)
              all += (k > c + 1 ? "; " : "") + row[k];
            return all;
          }();
          add(row[c], plain(row[c]) + ": " + plain(meaning));
        }
      }
    } else if (part.kind == Kind::item) {
      const std::string& text = part.lines[0];
      const auto colon = text.find(": ");
      if (colon != std::string::npos && text.find('`') < colon) {
        add(text.substr(0, colon), plain(text.substr(2)));
      }
    }
  }
  return entries;
}

std::string literal(const std::string& text) {
  // Raw strings of moderate length; longer ones are joined by the compiler.
  constexpr std::size_t PIECE = 8000;
  std::string out;
  for (std::size_t at = 0; at < text.size() || at == 0; at += PIECE) {
    out += "R\"KOR(" + text.substr(at, PIECE) + ")KOR\"\n";
  }
  return out;
}

void write_cpp(const std::vector<Page>& pages, std::ostream& out) {
  out << "// Made from docs/manual by tools/make_help.cpp.\n"
         "#include \"engine/help.h\"\n\nnamespace korvel {\nnamespace {\n";
  for (std::size_t k = 0; k < pages.size(); ++k) {
    out << "constexpr HelpEntry ENTRIES" << k << "[] = {\n";
    for (const Entry& entry : index_page(pages[k])) {
      out << "{\"" << entry.word << "\", " << literal(entry.text) << "},\n";
    }
    out << "{\"\", \"\"}};\n";
  }
  out << "constexpr HelpPage LIST[] = {\n";
  for (std::size_t k = 0; k < pages.size(); ++k) {
    const auto count = index_page(pages[k]).size();
    out << "{\"" << pages[k].name << "\", " << literal(plain_page(pages[k])) << ", {ENTRIES" << k
        << ", " << count << "}},\n";
  }
  out << "};\n}  // namespace\n\nstd::span<const HelpPage> help_pages() { return LIST; }\n\n}\n";
}

std::string escaped(const std::string& s) {
  std::string out;
  for (const char c : s) {
    if (c == '&') {
      out += "&amp;";
    } else if (c == '<') {
      out += "&lt;";
    } else if (c == '>') {
      out += "&gt;";
    } else {
      out += c;
    }
  }
  return out;
}

// Inline marks to HTML.
std::string inline_html(const std::string& s) {
  std::string out;
  bool code = false, bold = false;
  for (std::size_t i = 0; i < s.size(); ++i) {
    if (s[i] == '`') {
      out += code ? "</code>" : "<code>";
      code = !code;
    } else if (!code && s.compare(i, 2, "**") == 0) {
      out += bold ? "</b>" : "<b>";
      bold = !bold;
      ++i;
    } else if (!code && s[i] == '[' && s.find("](", i) != std::string::npos) {
      const auto middle = s.find("](", i);
      const auto end = s.find(')', middle);
      std::string target = s.substr(middle + 2, end - middle - 2);
      if (target.size() > 3 && target.ends_with(".md")) {
        target = target.substr(0, target.size() - 3) + ".html";
      }
      out += "<a href=\"" + escaped(target) + "\">" + inline_html(s.substr(i + 1, middle - i - 1)) +
             "</a>";
      i = end;
    } else {
      out += escaped(std::string(1, s[i]));
    }
  }
  return out;
}

void write_html(const Page& page, std::ostream& out) {
  const std::string title =
      page.parts.empty() ? page.name : plain(page.parts.front().lines.front());
  out << "<!DOCTYPE html>\n<html lang=\"en\"><head><meta charset=\"utf-8\"><title>"
      << escaped(title)
      << "</title><style>body{font:16px/1.5 sans-serif;max-width:52em;margin:2em auto;padding:0 "
         "1em}pre{background:#f4f4f4;padding:.6em;overflow:auto}td,th{padding:.2em "
         ".8em;border-bottom:1px solid #ddd;text-align:left;vertical-align:top}"
         "</style></head><body>\n<p><a href=\"README.html\">Contents</a></p>\n";
  bool list = false;
  for (const Part& part : page.parts) {
    if (list && part.kind != Kind::item) {
      out << "</ul>\n";
      list = false;
    }
    switch (part.kind) {
      case Kind::heading:
        out << "<h" << part.level << '>' << inline_html(part.lines[0]) << "</h" << part.level
            << ">\n";
        break;
      case Kind::paragraph:
        out << "<p>" << inline_html(part.lines[0]) << "</p>\n";
        break;
      case Kind::item: {
        if (!list) out << "<ul>\n";
        list = true;
        const auto text = part.lines[0].find(' ');
        out << "<li>" << inline_html(part.lines[0].substr(text + 1)) << "</li>\n";
        break;
      }
      case Kind::code:
        out << "<pre>";
        for (const std::string& line : part.lines) out << escaped(line) << '\n';
        out << "</pre>\n";
        break;
      case Kind::table:
        out << "<table>\n";
        for (const auto& row : part.cells) {
          out << "<tr>";
          for (const std::string& cell : row) out << "<td>" << inline_html(cell) << "</td>";
          out << "</tr>\n";
        }
        out << "</table>\n";
        break;
    }
  }
  if (list) out << "</ul>\n";
  out << "</body></html>\n";
}

// Lines for troff: a point or quote at the start and backslashes have a meaning there.
void troff(std::ostream& out, const std::string& text) {
  if (!text.empty() && (text[0] == '.' || text[0] == '\'')) out << "\\&";
  for (const char c : text) {
    if (c == '\\') {
      out << "\\e";
    } else if (c == '-') {
      out << "\\-";
    } else {
      out << c;
    }
  }
  out << '\n';
}

// The page of the program itself: its call from CALL.md, then a line for every command.
void write_man(const std::vector<Page>& pages, std::ostream& out) {
  out << ".TH KORVEL 1\n.SH NAME\nkorvel \\- econometrics and statistics by commands\n";
  for (const Page& page : pages) {
    if (page.name != "CALL") continue;
    for (const Part& part : page.parts) {
      if (part.kind == Kind::heading) {
        if (part.level == 1) continue;
        std::string heading = plain(part.lines[0]);
        std::ranges::transform(heading, heading.begin(),
                               [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
        out << ".SH ";
        troff(out, heading);
      } else if (part.kind == Kind::code) {
        out << ".PP\n.nf\n";
        for (const std::string& line : part.lines) troff(out, line);
        out << ".fi\n";
      } else if (part.kind == Kind::table) {
        for (const auto& row : part.cells) {
          if (row.size() < 2 || row[0].empty()) continue;
          out << ".TP\n";
          troff(out, plain(row[0]));
          troff(out, plain(row[1]));
        }
      } else {
        out << ".PP\n";
        troff(out, plain(part.lines[0]));
      }
    }
  }
  out << ".SH COMMANDS\nKORVEL's own HELP command shows each page in full.\n";
  for (const Page& page : pages) {
    if (page.name == "README" || page.name == "CALL" || page.name == "LANGUAGE") continue;
    out << ".TP\n.B " << page.name << '\n';
    for (const Part& part : page.parts) {
      if (part.kind == Kind::paragraph) {
        troff(out, plain(part.lines[0]));
        break;
      }
    }
  }
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 4) {
    std::cerr << "usage: make_help cpp|text|html|man FOLDER OUTPUT\n";
    return 2;
  }
  const std::string mode = argv[1];
  std::vector<std::filesystem::path> paths;
  for (const auto& entry : std::filesystem::directory_iterator(argv[2])) {
    if (entry.path().extension() == ".md") paths.push_back(entry.path());
  }
  std::ranges::sort(paths);
  std::vector<Page> pages;
  for (const auto& path : paths) pages.push_back(read_page(path));
  if (mode == "html") {
    std::filesystem::create_directories(argv[3]);
    for (const Page& page : pages) {
      std::ofstream out(std::filesystem::path(argv[3]) / (page.name + ".html"));
      write_html(page, out);
      if (!out.flush()) return 1;
    }
    return 0;
  }
  std::ofstream out(argv[3]);
  if (mode == "cpp") {
    write_cpp(pages, out);
  } else if (mode == "man") {
    write_man(pages, out);
  } else {
    for (const Page& page : pages) {
      if (page.name != "README") out << "*" << page.name << '\n' << plain_page(page) << '\n';
    }
  }
  return out.flush() ? 0 : 1;
}
