// make_editor_files FOLDER: syntax files for editors, from the tables of the engine.
//
//   FOLDER/vim/syntax/korvel.vim, FOLDER/vim/ftdetect/korvel.vim
//   FOLDER/vscode/package.json, language-configuration.json, syntaxes/korvel.tmLanguage.json

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <set>
#include <string>

#include "engine/commands.h"
#include "engine/shared_areas.h"
#include "expr/operators.h"

namespace {

using Words = std::set<std::string>;

Words commands() {
  Words words{"OLS", "PAR", "STAT", "PLOT", "PROC"};  // as they are mostly typed
  for (const korvel::CommandRow& row : korvel::COMMANDS) {
    if (!row.word.empty() && (row.word[0] < 'a' || row.word[0] > 'z')) words.emplace(row.word);
  }
  return words;
}

Words functions() {
  Words words;
  for (int code = korvel::OP_EXP; code <= korvel::NOPERATORS; ++code) {
    const std::string_view symbol = korvel::operator_row(code).symbol;
    const bool dotted = code >= korvel::OP_EQ && code <= korvel::OP_NOT;
    if (symbol.size() > 1 && symbol[0] >= 'A' && symbol[0] <= 'Z' && !dotted) words.emplace(symbol);
  }
  return words;
}

Words temporaries() {
  Words words;
  for (const std::string_view name : korvel::TEMPNAMES) words.emplace(name);
  return words;
}

std::string joined(const Words& words, const std::string& between) {
  std::string text;
  for (const std::string& word : words) {
    if (!text.empty()) text += between;
    text += word;
  }
  return text;
}

void write(const std::filesystem::path& path, const std::string& text) {
  std::filesystem::create_directories(path.parent_path());
  std::ofstream out(path);
  out << text;
  if (!out.flush()) {
    std::cerr << path << " could not be written\n";
    std::exit(1);
  }
}

std::string vim() {
  return R"KOR(" KORVEL command files. Made by tools/make_editor_files.cpp.
if exists("b:current_syntax")
  finish
endif
syntax case ignore
syntax match korvelLabel "^\s*\w\+:"
syntax keyword korvelCommand )KOR" +
         joined(commands(), " ") + R"KOR(
syntax keyword korvelFunction )KOR" +
         joined(functions(), " ") + R"KOR(
syntax match korvelTemporary "\$\(\()KOR" +
         joined(temporaries(), "\\|") + R"KOR(\)\>\)"
syntax match korvelNumber "\<\d\+\(\.\d*\)\?\([ED][-+]\?\d\+\)\?\>"
syntax match korvelOperator "\.\(EQ\|NE\|LT\|LE\|GT\|GE\|AND\|OR\|NOT\)\."
syntax match korvelArgument "\[\w\+\]"
syntax match korvelComment "^\s*\*.*$"
syntax match korvelSystem "^\s*\$.*$"
syntax match korvelContinue "&\s*$"
highlight default link korvelCommand Statement
highlight default link korvelFunction Function
highlight default link korvelTemporary Special
highlight default link korvelNumber Number
highlight default link korvelOperator Operator
highlight default link korvelArgument Identifier
highlight default link korvelComment Comment
highlight default link korvelSystem PreProc
highlight default link korvelContinue Special
highlight default link korvelLabel Label
let b:current_syntax = "korvel"
)KOR";
}

std::string textmate() {
  return R"KOR({
  "name": "KORVEL",
  "scopeName": "source.korvel",
  "fileTypes": ["kor", "prc"],
  "patterns": [
    {"name": "comment.line.korvel", "match": "^\\s*\\*.*$"},
    {"name": "meta.preprocessor.korvel", "match": "^\\s*\\$.*$"},
    {"name": "entity.name.label.korvel", "match": "^\\s*\\w+:"},
    {"name": "keyword.control.korvel", "match": "(?i)^\\s*\\??\\s*\\b()KOR" +
         joined(commands(), "|") + R"KOR()\\b"},
    {"name": "support.function.korvel", "match": "(?i)\\b()KOR" +
         joined(functions(), "|") + R"KOR()(?=\\s*\\()"},
    {"name": "variable.language.korvel", "match": "(?i)\\$()KOR" +
         joined(temporaries(), "|") + R"KOR()\\b"},
    {"name": "keyword.operator.korvel", "match": "(?i)\\.(EQ|NE|LT|LE|GT|GE|AND|OR|NOT)\\."},
    {"name": "variable.parameter.korvel", "match": "\\[\\w+\\]"},
    {"name": "constant.numeric.korvel", "match": "\\b\\d+(\\.\\d*)?([EeDd][-+]?\\d+)?\\b"}
  ]
}
)KOR";
}

constexpr const char* PACKAGE = R"KOR({
  "name": "korvel",
  "displayName": "KORVEL",
  "description": "KORVEL command files",
  "version": "11.0.0",
  "publisher": "korvel",
  "engines": {"vscode": "^1.60.0"},
  "contributes": {
    "languages": [
      {"id": "korvel", "aliases": ["KORVEL"], "extensions": [".kor", ".prc", ".PRC"],
       "configuration": "./language-configuration.json"}
    ],
    "grammars": [
      {"language": "korvel", "scopeName": "source.korvel",
       "path": "./syntaxes/korvel.tmLanguage.json"}
    ]
  }
}
)KOR";

constexpr const char* CONFIGURATION = R"KOR({
  "comments": {"lineComment": "*"},
  "brackets": [["(", ")"], ["[", "]"]],
  "autoClosingPairs": [["(", ")"], ["[", "]"], ["\"", "\""]]
}
)KOR";

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::cerr << "usage: make_editor_files FOLDER\n";
    return 2;
  }
  const std::filesystem::path folder = argv[1];
  write(folder / "vim/syntax/korvel.vim", vim());
  write(folder / "vim/ftdetect/korvel.vim",
        "autocmd BufRead,BufNewFile *.kor,*.prc,*.PRC setfiletype korvel\n");
  write(folder / "vscode/package.json", PACKAGE);
  write(folder / "vscode/language-configuration.json", CONFIGURATION);
  write(folder / "vscode/syntaxes/korvel.tmLanguage.json", textmate());
  return 0;
}
