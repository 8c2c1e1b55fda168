// input: objects, and the members of archives.
#include <cerrno>
#include <cstring>

#include "zellink.h"

// Records of a later version may mean what nobody here knows.
static std::string strange_format(const zo_ident &ident)
{
    if (ident.order != ZO_ORDER)
        return "its numbers have another order of bytes than this linker reads: assemble it again";
    if (ident.major == ZO_MAJOR && ident.minor <= ZO_MINOR)
        return "";
    return zo_format("made by another version of the assembler, in format %u.%u, not %u.%u: assemble it again", ident.major,
                     ident.minor, ZO_MAJOR, ZO_MINOR);
}

static void add(zl_source source, std::deque<zl_source> &sources, std::vector<zl_message> &messages)
{
    sources.push_back(std::move(source));
    zl_source &s = sources.back();
    s.file = zo_read(s.bytes);
    const auto fail = [&](const std::string &why) { messages.push_back({s.name, why, false}); };
    if (s.file.records.empty() || s.file.records[0].type != ZO_IDENT)
        return fail("not an object file of this assembler");
    if (const auto *ident = std::get_if<zo_ident>(&s.file.records[0].body))
        if (const std::string why = strange_format(*ident); !why.empty())
            return fail(why);
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

void zl_add_input(const std::string &path, const std::vector<uint8_t> &bytes, std::deque<zl_source> &sources,
                  std::vector<zl_message> &messages)
{
    std::vector<zo_member> members;
    if (const std::string error = zo_members(path, bytes, members); !error.empty())
        messages.push_back({path, error, false});
    const bool archive = zo_is_archive(bytes);
    for (const zo_member &m : members)
        add({m.name, path, {m.bytes.begin(), m.bytes.end()}, {}, archive, !archive}, sources, messages);
}

void zl_read_inputs(const zl_options &o, std::deque<zl_source> &sources, std::vector<zl_message> &messages)
{
    for (size_t i = 0; i < o.inputs.size(); i++) {
        const std::string &file = o.inputs[i], &path = o.input_names.contains(i) ? o.input_names.at(i) : file;
        std::vector<uint8_t> bytes;
        if (!zo_read_file(file, bytes)) {
            messages.push_back({path, zo_format("can't read the file: %s", strerror(errno)), false});
            continue;
        }
        zl_add_input(path, bytes, sources, messages);
    }
}
