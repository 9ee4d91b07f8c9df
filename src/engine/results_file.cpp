#include "engine/results_file.h"

#include <charconv>
#include <cmath>

#include "engine/input.h"
#include "engine/output.h"
#include "engine/run.h"
#include "platform/file_output.h"

namespace korvel {
namespace {

constexpr int DIGITS = 17;  // of a double that reads back to itself

struct Results {
  FileOutput file;
  bool first_record = true;
};
Results& results() {
  static Results r;
  return r;
}

void put(std::string_view text) { results().file.write(text); }

// A string of JSON. Bytes above 127 stay as they are; control characters are escaped.
void put_string(std::string_view text) {
  constexpr std::string_view HEX = "0123456789abcdef";
  put("\"");
  for (const char c : text) {
    const auto code = static_cast<unsigned char>(c);
    if (c == '"' || c == '\\') {
      const char escaped[2] = {'\\', c};
      put({escaped, 2});
    } else if (code < 32) {
      const char escaped[6] = {'\\', 'u', '0', '0', HEX[code >> 4], HEX[code & 15]};
      put({escaped, 6});
    } else {
      put({&c, 1});
    }
  }
  put("\"");
}

void put_number(double value) {
  if (!std::isfinite(value) || value == UNSET) return put("null");
  char digits[40];
  const auto end =
      std::to_chars(digits, digits + sizeof digits, value, std::chars_format::general, DIGITS).ptr;
  put({digits, static_cast<std::size_t>(end - digits)});
}

}  // namespace

bool results_wanted() { return results().file.opened(); }

int open_results(const std::string& path) {
  Results& r = results();
  r.first_record = true;
  if (!r.file.open(path, WriteMode::replace)) return r.file.error();
  put("{\"format\": \"korvel-results-1\",\n \"script\": ");
  put_string(RUNCOM.script);
  put(",\n \"records\": [");
  return 0;
}

int close_results(int status) {
  if (!results_wanted()) return 0;
  put("\n ],\n \"errors\": ");
  put_number(RUNCOM.failures);
  put(",\n \"status\": ");
  put_number(status);
  put("\n}\n");
  return results().file.commit() ? 0 : results().file.error();
}

ResultRecord::ResultRecord(std::string_view kind, std::string_view command, int line) {
  put(results().first_record ? "\n  {" : ",\n  {");
  results().first_record = false;
  text("kind", kind);
  text("command", command);
  number("line", line);
  const std::string file = running_file();
  if (!file.empty()) text("file", file);
  const double sample[2] = {static_cast<double>(DATCOM.MBEG), static_cast<double>(DATCOM.MEND)};
  numbers("sample", sample);
}

ResultRecord::~ResultRecord() { put("}"); }

void ResultRecord::open(std::string_view key, char bracket) {
  if (!first_) put(",\n   ");
  put_string(key);
  put(": ");
  put({&bracket, 1});
  first_ = true;
}

void ResultRecord::close(char bracket) {
  put({&bracket, 1});
  first_ = false;
}

void ResultRecord::element(double value) {
  if (!first_) put(", ");
  put_number(value);
  first_ = false;
}

void ResultRecord::element(std::string_view value) {
  if (!first_) put(", ");
  put_string(value);
  first_ = false;
}

void ResultRecord::text(std::string_view key, std::string_view value) {
  if (!first_) put(", ");
  put_string(key);
  put(": ");
  put_string(value);
  first_ = false;
}

void ResultRecord::number(std::string_view key, double value) {
  if (!first_) put(", ");
  put_string(key);
  put(": ");
  put_number(value);
  first_ = false;
}

void ResultRecord::truth(std::string_view key, bool value) {
  if (!first_) put(", ");
  put_string(key);
  put(value ? ": true" : ": false");
  first_ = false;
}

void ResultRecord::numbers(std::string_view key, std::span<const double> values) {
  open(key, '[');
  for (const double v : values) element(v);
  close(']');
}

void ResultRecord::temporaries() {
  open("temporaries", '{');
  for (int k = 0; k < NTEMPS; ++k) {
    const std::string_view name = TEMPNAMES[static_cast<std::size_t>(k)];
    if (temporary(k) != UNSET && name != "DATE" && name != "TIME") number(name, temporary(k));
  }
  close('}');
}

}  // namespace korvel
