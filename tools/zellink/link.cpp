// link: the order of a link, and its messages.
#include <algorithm>

#include "zellink.h"

std::string zl_quoted(const std::string &name) { return '"' + name + '"'; }

void zl_complain(zl_linker &l, const std::string &where, const std::string &text, bool warning)
{
    l.messages.push_back({where, text, warning});
}

// Lines stand in order of their offsets, but for those of an absolute psect with `org`.
std::string zl_line_of(const zl_piece &p, uint64_t offset)
{
    const zl_line *best = nullptr;
    for (const zl_line &line : p.lines)
        if (line.offset <= offset && (!best || line.offset >= best->offset))
            best = &line;
    return best && best->file ? *best->file + ":" + *best->line : "";
}

std::vector<zl_line> zl_lines_of_bytes(const zl_piece &p)
{
    ranges_t texts = p.texts;
    std::vector<zl_line> lines, taken;
    std::copy_if(p.lines.begin(), p.lines.end(), std::back_inserter(lines), [](const zl_line &line) { return line.file; });
    std::sort(texts.begin(), texts.end(), [](range_t a, range_t b) { return a.lo < b.lo; });
    std::stable_sort(lines.begin(), lines.end(), [](const zl_line &a, const zl_line &b) { return a.offset < b.offset; });
    auto text = texts.begin();
    for (const zl_line &line : lines) {
        while (text != texts.end() && text->hi < line.offset)
            ++text;
        if (text != texts.end() && text->lo <= line.offset)
            taken.push_back(line);
    }
    return taken;
}

void zl_complain(zl_linker &l, const zl_piece &p, uint64_t offset, const std::string &text, bool warning)
{
    const std::string line = zl_line_of(p, offset), &module = p.module->name,
                      psect =
                          zo_format("psect %s+0x%llX", zl_quoted(p.x.name).c_str(), static_cast<unsigned long long>(offset));
    if (line.empty())
        zl_complain(l, module, text + " (" + psect + ")", warning);
    else
        zl_complain(l, line, text + " (" + module + ", " + psect + ")", warning);
}

bool zl_failed(const zl_linker &l)
{
    return std::any_of(l.messages.begin(), l.messages.end(), [](const zl_message &m) { return !m.warning; });
}

static void link_all(zl_linker &l);

// Areas of functions are laid over each other by who calls whom, which the code tells once it is linked; and where the code lies
// doesn't depend on where those areas are. So a draft is linked first, in which all areas have one place.
static void add_areas(zl_linker &l)
{
    zl_areas areas = zl_wanted_areas(l);
    if (areas.functions.empty())
        return;
    if (!l.draft) {
        zl_linker draft{l.options, l.target, true};
        for (const zl_module &m : l.modules)
            draft.modules.push_back({m.name, m.path, m.file, {}, {}, {}});
        link_all(draft);
        zl_overlay(l, areas, zl_take_apart(draft));
    }
    zl_add_areas(l, areas);
}

static void link_all(zl_linker &l)
{
    for (zl_module &m : l.modules)
        zl_collect(l, m);
    for (zl_module &m : l.modules)
        zl_define_all(l, m);
    zl_compare_signatures(l);
    add_areas(l);
    if (l.options.gc)
        zl_collect_garbage(l);
    zl_join(l);
    zl_place(l);
    zl_emit(l);
    for (const auto &[name, places] : l.missing)
        if (places.size() > ZL_PLACES_TOLD)
            zl_complain(l, "",
                        zo_format("undefined symbol %s is used at %zu more place%s", zl_quoted(name).c_str(),
                                  places.size() - ZL_PLACES_TOLD, places.size() - ZL_PLACES_TOLD == 1 ? "" : "s"));
}

void zl_link(zl_linker &l, const std::deque<zl_source> &sources)
{
    for (const zl_source &s : sources)
        if (s.wanted)
            l.modules.push_back({s.name, s.path, &s.file, {}, {}, {}});
    link_all(l);
}

std::vector<std::string> link_modules(const std::vector<link_module> &sources, const target_t &target, image_t &image)
{
    const zl_options options;
    zl_linker l{options, target};
    for (const link_module &source : sources) {
        l.modules.push_back({source.name, source.name, &source.file, {}, {}, {}});
        if (const std::string &why = source.file.error; !source.file.decoded())
            zl_complain(l, source.name, why.empty() ? "a record can't be decoded" : why);
    }
    if (!zl_failed(l))
        link_all(l);
    image = image_t();
    image.program.assign(target.rom_size, 0xFF);
    image.start = l.start;
    for (const auto &[number, page] : l.image)
        for (uint32_t i = 0; i < page.bytes.size(); i++)
            if (const uint32_t at = number * 256 + i; page.owner[i] && at < target.rom_size)
                image.program[at] = page.bytes[i];
    const auto note = [&](const zl_symbols &table) {
        for (const auto &[name, s] : table)
            if (zl_sum sum{}; zl_symbol_value(l, s, sum)) {
                image.symbols[std::string(name)] = sum.value;
                if (!sum.data)
                    continue;
                std::string &first = image.data[static_cast<uint32_t>(sum.value)];
                if (first.empty() || name < first)
                    first = name;
            }
    };
    for (const zl_module &m : l.modules)
        note(m.locals);
    note(l.globals);
    std::vector<std::string> errors;
    for (const zl_message &m : l.messages)
        if (!m.warning)
            errors.push_back(m.where.empty() ? m.text : m.where + ": " + m.text);
    return errors;
}
