// words: the words of a command line, some of which stand in files.
//
// A file's words are parted by white space. Quotes of either kind stand around one that holds some, a backslash ahead of any
// character that is to be itself, and `#` where a word would begin is a comment up to the end of its line.
#include <algorithm>
#include <cerrno>
#include <cstring>

#include "zelobj.h"

enum : size_t { FILE_DEPTH = 8, WORDS_MAX = 100000 };

static bool is_white(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }

bool zo_split_words(const std::string &text, std::vector<std::string> &words)
{
    std::string word;
    bool some = false;
    char quote = 0;
    for (size_t i = 0; i < text.size(); i++) {
        const char c = text[i];
        if (!quote && !some && c == '#') {
            i = std::min(text.find('\n', i), text.size());
        } else if (!quote && is_white(c)) {
            if (some)
                words.push_back(word);
            word.clear();
            some = false;
        } else if (c == '\\' && i + 1 < text.size()) {
            word += text[++i];
            some = true;
        } else if (quote ? c == quote : c == '"' || c == '\'') {
            quote = quote ? '\0' : c;
            some = true;
        } else {
            word += c;
            some = true;
        }
    }
    if (some)
        words.push_back(word);
    return !quote;
}

static std::string expand(const std::vector<std::string> &from, std::vector<std::string> &to, const std::string &what,
                          size_t depth)
{
    for (const std::string &word : from) {
        if (to.size() >= WORDS_MAX)
            return "too many words on the command line";
        if (word.size() < 2 || word[0] != '@') {
            to.push_back(word);
            continue;
        }
        const std::string path = word.substr(1);
        if (depth == FILE_DEPTH)
            return what + zo_format("s name each other more than %zu deep", size_t{FILE_DEPTH});
        std::vector<uint8_t> bytes;
        if (!zo_read_file(path, bytes))
            return "can't read " + what + " \"" + path + "\": " + strerror(errno);
        std::vector<std::string> words;
        if (!zo_split_words({bytes.begin(), bytes.end()}, words))
            return what + " \"" + path + "\": a quote isn't closed";
        if (std::string error = expand(words, to, what, depth + 1); !error.empty())
            return error;
    }
    return "";
}

std::string zo_expand(const std::vector<std::string> &from, std::vector<std::string> &to, const std::string &what)
{
    return expand(from, to, what, 0);
}
