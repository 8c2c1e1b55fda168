// suggest: the word that was probably meant where one isn't known.
#pragma once

#include <string>
#include <string_view>
#include <vector>

struct suggestion_t {
    std::string word, meant;   // what was written, and what was probably meant; meant "": nothing is near
    bool certain = false;      // one change leads there, and to no other word
};
// A file of the path's folder, below any of the folders. Never certain.
suggestion_t suggest_file(std::string_view path, const std::vector<const char *> &folders);
suggestion_t suggest_word(std::string_view word, const std::vector<std::string> &known);
suggestion_t suggest_symbol(std::string_view word);   // a symbol of the program
// For a line with a syntax error: the word of the language, or the macro, that the word in front of `at`, or the one there, was
// probably meant to be, if the word itself is nothing.
// `statement`: where the word of the statement stands, which says what words there are behind it.
suggestion_t suggest_keyword(std::string_view line, size_t statement, size_t at);
