// Rules for Make, which assembler and preprocessor write: names in them, and what becomes of them.
#include "zel8.h"

#include <algorithm>
#include <fstream>
#include <iterator>
#include <string_view>
#include <utility>

// The words of a rule for Make as they are written there, the target with its colon first.
static std::vector<std::string> rule_words(const std::string &path)
{
    std::ifstream in(path);
    const std::string text{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
    std::vector<std::string> words;
    std::string word;
    for (const char c : text) {
        const size_t slashes = word.size() - (word.find_last_not_of('\\') + 1);
        if (c == '\n' && slashes)
            word.pop_back();
        if (c != '\n' && (c != ' ' || slashes % 2 == 1))
            word += c;
        else if (!word.empty())
            words.push_back(std::exchange(word, ""));
    }
    return words;
}

std::string z8_in_rule(const std::string &name)
{
    std::string text;
    for (const char c : name) {
        if (std::string_view(" \t#:").find(c) != std::string_view::npos)
            text += '\\';
        else if (c == '$')
            text += '$';
        text += c;
    }
    return text;
}

bool z8_finish_rule(const std::string &path, const std::string &other, const std::string &unlisted, bool phony)
{
    if (!phony && other.empty() && unlisted.empty())
        return true;
    std::vector<std::string> words = rule_words(path);
    const std::vector<std::string> more = other.empty() ? words : rule_words(other);
    for (size_t i = 2; i < more.size(); i++)
        if (std::find(words.begin(), words.end(), more[i]) == words.end())
            words.push_back(more[i]);
    if (!unlisted.empty())
        std::erase_if(words, [&](const std::string &word) { return word.starts_with(unlisted); });
    std::ofstream to(path);
    for (size_t i = 0; i < words.size(); i++)
        to << (i ? " \\\n " : "") << words[i];
    to << "\n";
    for (size_t i = 2; i < words.size() && phony; i++)
        to << words[i] << ":\n";
    return static_cast<bool>(to.flush());
}
