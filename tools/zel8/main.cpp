// zel8: assembles and links, with the options that compilers have.
//
// Exit status: 0, 1 if a source or the program is wrong or a file can't be written, 2 for wrong usage.
#include <cstdio>
#include <filesystem>
#include <unistd.h>

#include "common/streams.h"
#include "zel8.h"

namespace fs = std::filesystem;

static const char help_text[] =
    "usage: zel8 -mcpu=CHIP [option...] file...      a file - is standard input\n"
    "       zel8 header CHIP [-o FILE]               the include file of a chip\n"
    "  -mcpu=CHIP              the chip\n"
    "  --chipinfo=FILE         its file, if it isn't to be that of the installation\n"
    "  -E, -c, -S, -fsyntax-only   preprocessed text; objects; assembly text; messages alone. Otherwise\n"
    "                          all is linked\n"
    "  -x LANG                 of the files behind it: assembler, assembler-with-cpp, none: by their names\n"
    "  -o FILE                 the output; of a program .hex, .bin or .elf\n"
    "  -I DIR, -D NAME[=N], -U NAME   where includes are; symbols\n"
    "  -O0, -O, -Os, -g        optimise: not, yes, for space; lines for a debugger\n"
    "  -Wall, -Wextra, -w      more warnings, all, none\n"
    "  -Werror                 warnings fail the run\n"
    "  -WGROUP, -Wno-GROUP, -Wno-N   a group of warnings; not that one; not message N\n"
    "  --diagnostics=plain|rich|json|sarif, --color=auto|always|never   how messages look\n"
    "  -MD, -MMD, -MF FILE, -MT NAME, -MP   rules for Make beside the objects\n"
    "  --annotate=txt|html|FILE   each source with addresses, words, cycles; .html for a browser\n"
    "  -Wa,WORDS, -Wl,WORDS    words for the assembler, for the linker\n"
    "  -j N                    so many sources at a time\n"
    "  -v, -###                show the commands; and don't run them\n"
    "  --explain=N             what message N means, an example, the remedy\n"
    "  --list-chips, --print-search-dirs, --version, --help\n"
    "  @FILE                   more of these words from a file\n";

int main(int argc, char **argv)
{
    if (!streams_complete())
        return 2;
    z8_options o;
    if (const std::string error = z8_parse({argv + 1, argv + argc}, o); !error.empty()) {
        fprintf(stderr, "zel8: error: %s\n", error.c_str());
        return 2;
    }
    std::error_code ignored;
    const fs::path bin = fs::read_symlink("/proc/self/exe", ignored).parent_path();
    const fs::path data = bin.parent_path() / "zel" / "dat";
    if (const std::string error = o.what == z8_options::WORK || o.what == z8_options::HEADER ? z8_chip_unknown(o, bin) : "";
        !error.empty()) {
        fprintf(stderr, "zel8: error: %s\n", error.c_str());
        return 2;
    }
    std::string text;
    switch (o.what) {
    case z8_options::WORK:
    case z8_options::HEADER: return z8_run(o, bin);
    case z8_options::HELP: text = help_text; break;
    case z8_options::VERSION: text = "zel8 " ZELLINK_VERSION "\n"; break;
    case z8_options::CHIPS: text = z8_chip_list(data); break;
    case z8_options::EXPLAIN:
        execl((bin / "aszel8").c_str(), "aszel8", o.assembler[0].c_str(), nullptr);
        perror("aszel8");
        return 1;
    case z8_options::DIRECTORIES: text = "programs: " + bin.string() + "\ndata: " + data.string() + "\n"; break;
    }
    return fputs(text.c_str(), stdout) < 0 || fflush(stdout) != 0;
}
