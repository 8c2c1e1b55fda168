// A word is near if it takes two changes to get there: a character more, less or another one, or two neighbours swapped. Short
// words have to be nearer, as everything is near to them. Of those that are equally near, the one counts that
// has the same letters, then the one that begins alike for longer, and then the first in the order of the alphabet, so that a
// program always gets the same answer. A name whose letters differ by their case alone is one change away.
//
// A search goes through all symbols; so that a program with many errors stays fast, only the first errors get one, and fewer
// of them if there are very many symbols.
#include "front/suggest.h"

#include <strings.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <vector>

#include "code/oprows.h"
#include "code/sym.h"
#include "front/chars.h"

constexpr size_t LONGEST = 64;   // of the words that are compared
constexpr unsigned SEARCHES = 100;
constexpr size_t NAMES = 200000;   // of symbols that are looked at in a run, until no search begins any more
constexpr size_t FILES = 10000;    // that are looked at

struct search_t {
    std::string_view word;
    bool fold;   // case doesn't matter
    unsigned best;
    std::string_view found;
    bool rivals;   // another word is as near
};

static char folded(char c, bool fold) { return fold && c >= 'A' && c <= 'Z' ? static_cast<char>(c | 0x20) : c; }

static size_t alike(std::string_view a, std::string_view b, bool fold)
{
    size_t n = 0;
    while (n < a.size() && n < b.size() && folded(a[n], fold) == folded(b[n], fold))
        n++;
    return n;
}

static bool have_same_letters(std::string_view a, std::string_view b)
{
    return std::is_permutation(a.begin(), a.end(), b.begin(), b.end(),
                               [](char c, char d) { return folded(c, true) == folded(d, true); });
}

// How many changes lead from one word to the other, but at most `limit` + 1. What both begin and end with doesn't count.
static unsigned distance(std::string_view a, std::string_view b, bool fold, unsigned limit)
{
    const size_t apart = a.size() > b.size() ? a.size() - b.size() : b.size() - a.size();
    if (apart > limit || a.size() > LONGEST || b.size() > LONGEST)
        return limit + 1;
    const size_t begin = alike(a, b, fold);
    if (!fold && apart == 0 && begin < a.size() && alike(a, b, true) == a.size())
        return 1;
    a.remove_prefix(begin);
    b.remove_prefix(begin);
    while (!a.empty() && !b.empty() && folded(a.back(), fold) == folded(b.back(), fold)) {
        a.remove_suffix(1);
        b.remove_suffix(1);
    }
    unsigned rows[3][LONGEST + 1];   // the row before the last one, the last one, this one, in turn
    for (unsigned j = 0; j <= b.size(); j++)
        rows[0][j] = j;
    for (size_t i = 1, too_far = 0; i <= a.size(); i++) {
        unsigned *row = rows[i % 3], least = row[0] = static_cast<unsigned>(i);
        const unsigned *last = rows[(i + 2) % 3], *before = rows[(i + 1) % 3];
        for (size_t j = 1; j <= b.size(); j++) {
            const char c = folded(a[i - 1], fold), d = folded(b[j - 1], fold);
            row[j] = std::min({last[j] + 1, row[j - 1] + 1, last[j - 1] + (c != d)});
            if (i > 1 && j > 1 && c == folded(b[j - 2], fold) && folded(a[i - 2], fold) == d)
                row[j] = std::min(row[j], before[j - 2] + 1);
            least = std::min(least, row[j]);
        }
        too_far = least > limit ? too_far + 1 : 0;
        if (too_far == 2)   // rows from which all others come
            return limit + 1;
    }
    return std::min(rows[a.size() % 3][b.size()], limit + 1);
}

static struct {
    unsigned searches;
    size_t names;
} st;

static bool may_search() { return st.names < NAMES && st.searches++ < SEARCHES; }

static search_t search_for(std::string_view word, bool fold)
{
    const unsigned limit = word.size() < 2 ? 0 : word.size() < 5 ? 1 : 2;
    return {word, fold, limit + 1, {}, false};
}

// Whether it is to be preferred to the one that was found, which is as near.
static bool is_likelier(const search_t &s, std::string_view candidate)
{
    const bool same = have_same_letters(s.word, candidate);
    if (same != have_same_letters(s.word, s.found))
        return same;
    const size_t now = alike(s.word, candidate, false), before = alike(s.word, s.found, false);
    return now > before || (now == before && candidate < s.found);
}

static void offer(search_t *s, std::string_view candidate)
{
    if (s->best == 0 || candidate == s->found)
        return;
    const unsigned d = distance(s->word, candidate, s->fold, s->best);
    if (d == 0 || d > s->best || (d == s->best && s->found.empty()))
        return;
    s->rivals = d == s->best;
    if (d < s->best || is_likelier(*s, candidate))
        s->found = candidate;
    s->best = d;
}

static void offer_symbols(search_t *s, uint64_t mask, uint64_t flags)
{
    const vec_t<symbol_t *> all = sym_all();
    st.names += vec_size(all);
    for (const symbol_t *symbol : all)
        if ((symbol->s_flags & mask) == flags && *symbol->s_name != '?')
            offer(s, symbol->s_name);
    vec_destroy(all.raw);
}

static suggestion_t as_suggestion(const search_t &s)
{
    return {std::string(s.word), std::string(s.found), s.best == 1 && !s.rivals};
}

suggestion_t suggest_word(std::string_view word, const std::vector<std::string> &known)
{
    search_t s = search_for(word, true);
    for (const std::string &other : known)
        offer(&s, other);
    return as_suggestion(s);
}

suggestion_t suggest_file(std::string_view path, const std::vector<const char *> &folders)
{
    namespace fs = std::filesystem;
    const fs::path folder = fs::path(path).parent_path();
    const std::string name = fs::path(path).filename(), stem = fs::path(path).stem();
    if (!may_search())
        return {};
    search_t s = search_for(stem, true);   // an extension doesn't make a name longer
    s.word = name;
    std::vector<std::string> names;
    for (const char *in : folders) {
        std::error_code error;
        for (fs::directory_iterator at(fs::path(in) / folder / ".", error), end; !error && at != end && names.size() < FILES;
             at.increment(error))
            names.push_back(at->path().filename());
    }
    for (const std::string &other : names)
        offer(&s, other);
    return {std::string(path), s.found.empty() ? "" : (folder / s.found).string(), false};
}

suggestion_t suggest_symbol(std::string_view word)
{
    if (!may_search())
        return {};
    search_t s = search_for(word, false);
    offer_symbols(&s, S_SPACE_MASK | S_MACRO | S_UNDEF, 0);
    return as_suggestion(s);
}

static bool is_known(std::string_view word)
{
    if (op_lookup_keyword(word.data(), word.size()) || op_lookup_psectflag(word.data(), word.size()))
        return true;
    const symbol_t *s = sym_find(word.data(), word.size());
    return s && (!(s->s_flags & S_UNDEF) || s->s_flags & S_GLOBAL);
}

// The word that begins at `at`, or the last one in front of it.
static std::string_view word_at(std::string_view line, size_t at, bool in_front)
{
    size_t end = std::min(at, line.size());
    while (in_front && end > 0 && !(class_of(line[end - 1]) & C_WORD))
        end--;
    size_t begin = end;
    while (in_front && begin > 0 && class_of(line[begin - 1]) & C_WORD)
        begin--;
    while (!in_front && end < line.size() && class_of(line[end]) & C_WORD)
        end++;
    return line.substr(begin, end - begin);
}

// What words the language has at a place of a line depends on the word of its statement.
enum word_place_t { PLACE_STATEMENT, PLACE_BEHIND_NAME, PLACE_OPERAND, PLACE_PSECT, PLACE_CONTROL };

static word_place_t place_of(std::string_view statement, std::string_view word)
{
    const op_row_t *row = op_lookup_keyword(statement.data(), statement.size());
    if (statement.data() == word.data())
        return PLACE_STATEMENT;
    const symbol_t *s = row ? nullptr : sym_find(statement.data(), statement.size());
    if (!row)
        return s && (s->s_flags & S_MACRO) ? PLACE_OPERAND : PLACE_BEHIND_NAME;
    return row->token == T_PSECT ? PLACE_PSECT : row->token == T_OPT ? PLACE_CONTROL : PLACE_OPERAND;
}

static bool stands_at(const op_row_t &row, word_place_t place)
{
    switch (row.token) {
    case DEST_W:
    case DEST_F:
    case ACCESS_A:
    case ACCESS_B:
    case ACCESS_C: return place == PLACE_OPERAND;
    case T_EQU:
    case T_SET:
    case T_MACRO: return place == PLACE_BEHIND_NAME;
    default: return row.archmask == 0 ? place == PLACE_OPERAND : place == PLACE_STATEMENT || place == PLACE_CONTROL;
    }
}

// Words that other assemblers have in place of ours, and that no change of a letter leads from.
static const char *of_other_assemblers(std::string_view word)
{
    static constexpr const char *pairs[][2] = {
        {"section", "psect"}, {"segment", "psect"}, {"import", "extrn"}, {"byte", "db"},
        {"word", "dw"},       {"res", "ds"},        {"jmp", "goto"},     {"ret", "return"},
        {"rts", "return"},    {"rti", "retfie"},    {"reti", "retfie"},  {"beq", "bz"},
        {"bne", "bnz"},       {"brz", "bz"},        {"brnz", "bnz"},     {"clear", "clrf"},
    };
    for (const auto &[theirs, ours] : pairs)
        if (word.size() == strlen(theirs) && strncasecmp(word.data(), theirs, word.size()) == 0)
            return ours;
    return nullptr;
}

suggestion_t suggest_keyword(std::string_view line, size_t statement, size_t at)
{
    search_t nearest = {};
    for (const bool in_front : {true, false}) {
        const std::string_view here = word_at(line, at, in_front);
        if (here.empty() || !(class_of(here.front()) & C_LETTER) || is_known(here))
            continue;
        if (!may_search())
            break;
        search_t s = search_for(here, true);
        const word_place_t place = place_of(word_at(line, statement, false), here);
        if (const char *ours = place == PLACE_STATEMENT ? of_other_assemblers(here) : nullptr)
            return {std::string(here), ours, false};
        for (const op_row_t &row : op_rows)
            if (stands_at(row, place))
                offer(&s, row.name);
        if (place == PLACE_PSECT)
            for (const op_row_t &row : op_psectflags())
                offer(&s, row.name);
        s.fold = false;
        if (place == PLACE_STATEMENT)
            offer_symbols(&s, S_SPACE_MASK | S_MACRO, S_MACRO);
        if (!s.found.empty() && (nearest.found.empty() || s.best < nearest.best))
            nearest = s;
    }
    return as_suggestion(nearest);
}
