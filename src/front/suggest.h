// suggest: the word that was probably meant where one isn't known.
#pragma once

#include <string>
#include <string_view>

// A symbol of the program, of this spelling or nearly so. "": none is near.
std::string suggest_symbol(std::string_view word);
// For a line with a syntax error: the word of the language, or the macro, that the word in front of `at`, or the one there, was
// probably meant to be, if the word itself is nothing. *word becomes that word.
std::string suggest_keyword(std::string_view line, size_t at, std::string_view *word);
