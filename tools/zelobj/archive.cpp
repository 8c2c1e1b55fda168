// archive: the objects in a file, which is one itself or an archive of the system's `ar`.
//
// `ar` can't read objects, so that its table of symbols is empty or missing; the members' own SYM records tell what is in them.
// Names of more than 15 characters stand in a member "//", or, as another `ar` does it, in front of the member's content.
#include <cstdio>
#include <cstring>

#include "zelobj.h"

constexpr size_t AR_MAGIC = 8, AR_HEAD = 60, AR_NAME = 16, AR_SIZE = 48, AR_DIGITS = 10;

std::string_view zo_view(std::span<const uint8_t> bytes)
{
    return {reinterpret_cast<const char *>(bytes.data()), bytes.size()};
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

bool zo_is_archive(std::span<const uint8_t> bytes)
{
    const std::string_view text = zo_view(bytes);
    return text.starts_with("!<arch>\n") || text.starts_with("!<thin>\n");
}

std::string zo_members(const std::string &path, std::span<const uint8_t> bytes, std::vector<zo_member> &members)
{
    const std::string_view all = zo_view(bytes);
    if (!zo_is_archive(bytes)) {
        members.push_back({path, bytes});
        return "";
    }
    if (all.starts_with("!<thin>"))
        return "a thin archive holds no members: make it anew without T";
    std::string_view long_names;
    for (size_t at = AR_MAGIC; at < all.size();) {
        const std::string_view head = all.substr(at, AR_HEAD);
        size_t size;
        if (head.size() < AR_HEAD || !head.ends_with("`\n") || !decimal(head.substr(AR_SIZE, AR_DIGITS), size))
            return zo_format("damaged archive: no member's head at 0x%zX", at);
        std::string name{head.substr(0, head.substr(0, AR_NAME).find_last_not_of(' ') + 1)};
        at += AR_HEAD;
        if (size > all.size() - at)
            return zo_format("damaged archive: it ends inside member %s", name.c_str());
        std::span<const uint8_t> body = bytes.subspan(at, size);
        at += size + size % 2;
        size_t number;
        if (name == "/" || name == "/SYM64/" || name == "__.SYMDEF" || name == "__.SYMDEF SORTED")
            continue;
        if (name == "//") {
            long_names = zo_view(body);
            continue;
        }
        if (name.starts_with("#1/") && decimal(name.substr(3), number) && number <= size) {
            name = zo_view(body.first(number));
            name.resize(strlen(name.c_str()));
            body = body.subspan(number);
        } else if (name.size() > 1 && name.starts_with("/")) {
            if (!decimal(name.substr(1), number) || number >= long_names.size())
                return zo_format("damaged archive: no name for member %s", name.c_str());
            name = long_names.substr(number, long_names.find('\n', number) - number);
        }
        if (name.ends_with('/'))
            name.pop_back();
        members.push_back({path + "(" + name + ")", body});
    }
    return "";
}

bool zo_read_file(const std::string &path, std::vector<uint8_t> &bytes)
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
