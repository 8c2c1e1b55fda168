// A driver that has too many arguments for a command line passes them through a file or through standard input. A blank ends a
// word unless a quote or a backslash keeps it; a tab and the line's end always do.
#include "env/arguments.h"

#include <cstring>
#include <string>
#include <unistd.h>

#include "common/alert.h"
#include "common/fileguard.h"
#include "common/xalloc.h"

constexpr char CTRL_Z = 0x1A;
constexpr int WORD_BUFFER = 2048;   // a word's bytes with its NUL
constexpr size_t LINE_MOST = 1 << 24;
constexpr int WORDS_FIRST = 1024;

struct words_t {
    char **list;
    int count, room;
    char word[WORD_BUFFER];
    int length;
};

static void end_word(words_t *w)
{
    xreserve(w->list, w->count, w->count + 2, w->room, WORDS_FIRST);   // with a null behind the last
    w->list[w->count++] = xstrndup(w->word, static_cast<size_t>(w->length));
    w->length = 0;
}

// False, after message 917, when the word buffer is full; the word is cut.
static bool store(words_t *w, char c)
{
    if (w->length == WORD_BUFFER - 1) {
        alert_msg(917);
        return false;
    }
    w->word[w->length++] = c;
    return true;
}

// The words of one line. False when a word was too long: the words so far stand, and nothing more is read.
static bool read_line_words(words_t *w, const char *line, size_t length)
{
    char quote = 0;
    bool escaped = false, stored = true;
    for (size_t i = 0; i < length && stored; i++) {
        const char c = line[i];
        if (c == ' ') {
            if (quote || escaped)
                stored = store(w, c);
            else
                end_word(w);
            escaped = false;
        } else if (c == '\t') {
            end_word(w);
            quote = 0;
            escaped = false;
        } else if (c == '"' || c == '\'') {
            if (escaped || (quote && quote != c))
                stored = store(w, c);
            else
                quote = quote ? 0 : c;
            escaped = false;
        } else if (c == '\\') {
            if (escaped)
                stored = store(w, c);
            escaped = !escaped;
        } else {
            if (escaped)
                stored = store(w, '\\');
            escaped = false;
            stored = stored && store(w, c);
        }
    }
    if (w->length > 0)
        end_word(w);
    return stored;
}

// The next line, with its end. False at the end of input. A line of more bytes than any list of words has is given up as a word
// that is too long would be: the input may have no end.
static bool read_line(FILE *in, std::string *line)
{
    line->clear();
    for (int c; (c = getc(in)) != EOF;) {
        if (line->size() == LINE_MOST) {
            alert_msg(917);
            return false;
        }
        *line += static_cast<char>(c);
        if (c == '\n')
            break;
    }
    return !line->empty();
}

void arguments_read(FILE *in, int *argc, char ***argv)
{
    words_t *w = xnew<words_t>();
    w->length = 6;
    memcpy(w->word, "ASZEL8", 6);
    end_word(w);
    guard_input(fileno(in));
    const bool prompt = isatty(fileno(in));
    std::string line;
    bool first = true;
    for (;;) {
        if (prompt) {
            fputs("ASZEL8> ", stdout);
            fflush(stdout);
        }
        if (!read_line(in, &line))
            break;
        size_t length = line.size();
        const bool whole = line[length - 1] == '\n';
        if (whole && --length > 0 && line[length - 1] == '\r')
            length--;
        while (!whole && length > 0 && line[length - 1] == CTRL_Z)
            length--;
        const size_t mark = first && length >= 3 && line.starts_with("\xEF\xBB\xBF") ? 3 : 0;
        first = false;
        if (!read_line_words(w, line.data() + mark, length - mark))
            break;
    }
    *argc = w->count;
    *argv = w->list;
}
