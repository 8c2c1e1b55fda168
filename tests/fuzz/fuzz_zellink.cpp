// Any bytes at all as words of a command line, up to the first newline, and an archive behind it. The whole of a link is done with
// them but for files, of all members whose names begin with a capital, and of those that they need. What comes out without an
// error has to be read again as the same program.

#include "fuzz_chip40.h"
#include "load.h"
#include "target.h"
#include "zellink.h"

void target_clean() {}
bool target_may_take_long(std::string_view) { return false; }

static void read_again(const zl_linker &l)
{
    program_t names;
    std::map<uint32_t, uint8_t> of_hex, of_elf;
    std::string told;
    const bool sound = read_hex(zl_hex(l), of_hex).empty() && read_elf(zl_elf(l), names, of_elf, told).empty();
    if (!sound || of_hex != of_elf || told != chip.name)
        abort();
    const std::string raw = zl_binary(l);
    for (const auto &[at, byte] : of_hex)
        if (at >= raw.size() || static_cast<uint8_t>(raw[at]) != byte)
            abort();
}

void target_run(std::string_view input)
{
    const size_t line = std::min(input.find('\n'), input.size());
    std::vector<std::string> words{"-o", "x", "x"};
    zl_options options;
    bool help = false, version = false;
    const std::string_view told = input.substr(0, line);
    if (told.find('@') != told.npos || !zo_split_words(std::string(told), words) ||
        !zl_parse_options(words, options, help, version).empty())
        return;
    std::deque<zl_source> sources;
    std::vector<zl_message> messages;
    zl_add_input("x", {input.begin() + static_cast<std::ptrdiff_t>(std::min(line + 1, input.size())), input.end()}, sources,
                 messages);
    if (!messages.empty())
        return;
    for (zl_source &s : sources)
        if (s.name.size() > 2 && s.name[2] >= 'A' && s.name[2] <= 'Z')
            s.member = !(s.wanted = true);
    zl_choose_members(sources);
    zl_common_chip(sources, messages);
    zl_linker l{options, chip};
    zl_link(l, sources);
    if (zl_failed(l))
        return;
    const zl_flow flow = zl_take_apart(l);
    zl_call_graph(l, flow);
    zl_check(l, flow);
    zl_map(l);
    if (!zl_failed(l))
        read_again(l);
}
