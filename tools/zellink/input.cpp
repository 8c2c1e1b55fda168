// input: objects and archives.
//
// An archive is what the system's `ar` makes of objects. It can't read them, so that its table of symbols is empty or
// missing; the members' own SYM records tell what is in them. Names of more than 15 characters stand in a member "//", or,
// as another `ar` does it, in front of the member's content.
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "zellink.h"

constexpr size_t AR_MAGIC = 8, AR_HEAD = 60, AR_NAME = 16, AR_SIZE = 48, AR_DIGITS = 10;

static std::string_view text_at(std::span<const uint8_t> bytes, size_t at, size_t size)
{
    return {reinterpret_cast<const char *>(bytes.data()) + at, size};
}

// A decimal number with blanks behind it. False for anything else.
static bool decimal(std::string_view text, size_t &number)
{
    const size_t end = text.find_last_not_of(' ') + 1;   // 0 for nothing but blanks
    number = 0;
    for (char c : text.substr(0, end)) {
        if (c < '0' || c > '9')
            return false;
        number = number * 10 + static_cast<size_t>(c - '0');   // 15 digits at most
    }
    return end != 0;
}

std::string zl_archive_members(std::span<const uint8_t> bytes, std::vector<zl_member> &members)
{
    std::string_view long_names;
    for (size_t at = AR_MAGIC; at < bytes.size();) {
        size_t size;
        if (bytes.size() - at < AR_HEAD || text_at(bytes, at + AR_HEAD - 2, 2) != "`\n" ||
            !decimal(text_at(bytes, at + AR_SIZE, AR_DIGITS), size))
            return zo_format("damaged archive: no member's head at 0x%zX", at);
        std::string_view field = text_at(bytes, at, AR_NAME);
        field = field.substr(0, field.find_last_not_of(' ') + 1);
        at += AR_HEAD;
        if (size > bytes.size() - at)
            return zo_format("damaged archive: it ends inside member %s", std::string(field).c_str());
        zl_member member{std::string(field), at, size};
        at += size + size % 2;
        size_t number;
        if (field == "/" || field == "/SYM64/" || field == "__.SYMDEF" || field == "__.SYMDEF SORTED")
            continue;
        if (field == "//") {
            long_names = text_at(bytes, member.at, size);
            continue;
        }
        if (field.starts_with("#1/") && decimal(field.substr(3), number) && number <= size) {
            member = {std::string(text_at(bytes, member.at, number)), member.at + number, size - number};
            member.name.resize(std::min(member.name.size(), strlen(member.name.c_str())));
        } else if (field.size() > 1 && field.starts_with("/")) {
            if (!decimal(field.substr(1), number) || number >= long_names.size())
                return zo_format("damaged archive: no name for member %s", member.name.c_str());
            member.name = long_names.substr(number, long_names.find('\n', number) - number);
        }
        if (member.name.ends_with('/'))
            member.name.pop_back();
        members.push_back(member);
    }
    return "";
}

bool zl_read_file(const std::string &path, std::vector<uint8_t> &bytes)
{
    FILE *const f = fopen(path.c_str(), "rb");
    if (!f)
        return false;
    uint8_t buffer[65536];
    for (size_t n; (n = fread(buffer, 1, sizeof buffer, f)) != 0;)
        bytes.insert(bytes.end(), buffer, buffer + n);
    const bool good = !ferror(f);   // a folder opens, too, but can't be read
    fclose(f);
    return good;
}

static void add(zl_source source, std::deque<zl_source> &sources, std::vector<zl_message> &messages)
{
    sources.push_back(std::move(source));
    zl_source &s = sources.back();
    s.file = zo_read(s.bytes);
    const auto fail = [&](const std::string &why) { messages.push_back({s.name, why, false}); };
    if (s.file.records.empty() || s.file.records[0].type != ZO_IDENT)
        return fail("not an object file of this assembler");
    if (!s.file.error.empty())
        return fail("damaged object file: " + s.file.error + ": assemble it again");
    for (size_t i = 0; i < s.file.records.size(); i++) {
        const zo_record &r = s.file.records[i];
        if (!r.error.empty())
            return fail(zo_format("damaged object file: record %zu (%s): ", i + 1, zo_type_name(r.type)) + r.error +
                        ": assemble it again");
        if (r.type == ZO_LR_TEXT || r.type == ZO_LR_RELOC)
            return fail("a relocation listing, not an object file: name the .obj beside it");
    }
    if (s.file.records.back().type != ZO_END)
        fail("damaged object file: it has no END record: assemble it again");
}

void zl_read_inputs(const std::vector<std::string> &paths, std::deque<zl_source> &sources, std::vector<zl_message> &messages)
{
    for (const std::string &path : paths) {
        zl_source source;
        source.name = source.path = path;
        if (!zl_read_file(path, source.bytes)) {
            messages.push_back({path, zo_format("can't read the file: %s", strerror(errno)), false});
            continue;
        }
        const std::string_view magic = text_at(source.bytes, 0, std::min(source.bytes.size(), AR_MAGIC));
        if (magic == "!<thin>\n") {
            messages.push_back({path, "a thin archive holds no members: make it anew without T", false});
        } else if (magic == "!<arch>\n") {
            std::vector<zl_member> members;
            if (const std::string error = zl_archive_members(source.bytes, members); !error.empty())
                messages.push_back({path, error, false});
            for (const zl_member &m : members) {
                const uint8_t *const begin = source.bytes.data() + m.at;
                add({path + "(" + m.name + ")", path, {begin, begin + m.size}, {}, true, false}, sources, messages);
            }
        } else {
            add(std::move(source), sources, messages);
        }
    }
}
