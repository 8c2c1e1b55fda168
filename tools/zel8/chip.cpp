// chip: which chips there are, and what a preprocessed source may ask of the one that it is for.
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <set>
#include <sstream>

#include "target.h"
#include "zel8.h"
#include "zelobj.h"

namespace fs = std::filesystem;

enum : size_t { LISTED = 8 };   // names in a message

static std::set<std::string> names_in(const fs::path &data)
{
    std::set<std::string> names;
    std::error_code error;
    for (const auto &file : fs::directory_iterator(data / "ini", error)) {
        std::ifstream in(file.path());
        for (std::string line; std::getline(in, line);)
            if (line.starts_with("[") && line.find(']') != std::string::npos)
                names.insert(line.substr(1, line.find(']') - 1));
    }
    return names;
}

std::string z8_chip_list(const std::string &data)
{
    std::string text;
    for (const std::string &name : names_in(data))
        text += name + "\n";
    return text;
}

std::string z8_chip_unknown(const z8_options &o, const std::string &bin)
{
    // A chip file that only the assembler is told of.
    for (const std::string &word : o.assembler)
        if (word.size() > 2 && (word.starts_with("-C") || word.starts_with("-c")))
            return "";
    if (!o.chip_file.empty() || !target_file(bin, o.chip).empty())
        return "";
    const std::set<std::string> names = names_in(fs::path(bin).parent_path() / "zel" / "dat");
    std::string upper = o.chip, text;
    for (char &c : upper)
        c = static_cast<char>(toupper(static_cast<unsigned char>(c)));
    if (text = z8_meant(upper, {names.begin(), names.end()}); text.empty()) {
        size_t n = 0;
        for (const std::string &name : names)
            if (n++ < LISTED)
                text += (n == 1 ? ": there are " : ", ") + name;
        text += n > LISTED ? ", ...; --list-chips shows all" : n == 0 ? ": the installation has none" : "";
    }
    return "unknown chip " + o.chip + text;
}

static std::string find(const z8_options &o, const std::string &bin, target_t &t)
{
    return o.chip_file.empty() ? target_find(bin, o.chip, t) : target_read(o.chip_file, o.chip, t);
}

std::string z8_chip_macros(const z8_options &o, const std::string &bin, std::vector<std::string> &words)
{
    target_t t;
    if (const std::string error = find(o, bin, t); !error.empty())
        return error + ", which a preprocessed source needs";
    const auto define = [&](const std::string &name, uint32_t value) {
        words.push_back("-D__" + name + "__=" + std::to_string(value));
    };
    define("ZEL8", 1);
    define(t.name, 1);
    define("ZEL8_ROM_SIZE", t.rom_size);
    define("ZEL8_RAM_SIZE", t.ram_size);
    define("ZEL8_EEPROM_SIZE", t.eeprom.hi ? t.eeprom.hi - t.eeprom.lo + 1 : 0);
    define("ZEL8_DATA_BITS", t.wide ? 14 : 12);
    define("ZEL8_VECTORS", t.vectors_at[0] != 0);
    return "";
}

namespace
{

struct header_t {
    std::string text;
    std::set<std::string> taken;   // names that stand there, or may not

    void line(std::string name, uint32_t value)
    {
        std::string lower = name;
        for (char &c : lower)
            c = static_cast<char>(tolower(static_cast<unsigned char>(c)));
        if (taken.contains(lower))
            name.insert(0, "_");
        if (taken.insert(name).second)   // the first of two meanings
            text += zo_format("%-22s equ 0x%02X\n", name.c_str(), value);
    }
    void range(const std::string &name, range_t r)
    {
        if (r.hi == 0)
            return;
        line(name + "_BEGIN", r.lo);
        line(name + "_SIZE", r.hi - r.lo + 1);
    }
};

}   // namespace

static void add_memory(header_t &h, const target_t &t)
{
    h.text += "\n; Memory in bytes\n";
    h.line("CHIP_ROM_SIZE", t.rom_size);
    h.line("CHIP_RAM_SIZE", t.ram_size);
    h.range("CHIP_ACCESS_RAM", t.common);
    h.range("CHIP_ACCESS_SFR", t.sfr_common);
    h.range("CHIP_CONFIG", t.config);
    h.range("CHIP_IDLOC", t.idloc);
    h.range("CHIP_EEPROM", t.eeprom);
}

// Addresses without a table; with one, also the numbers of the sources in it.
static void add_vectors(header_t &h, const target_t &t)
{
    h.text += "\n; Vectors\n";
    h.line("RESET_VECTOR", 0);
    h.line("HIGH_VECTOR", 0x08);
    h.line("LOW_VECTOR", 0x18);
    for (const auto &[name, number] : t.sources)
        h.line(name + "_VECTOR", number);
}

static void add_registers(header_t &h, const target_t &t)
{
    h.text += "\n; Registers and their bits\n";
    std::multimap<uint32_t, std::string> registers, fields;   // by address; by address and bit
    for (const auto &[name, address] : t.sfr)
        registers.emplace(address, name);
    for (const auto &[name, bits] : t.fields)
        fields.emplace(bits.address * 8U + bits.low, name);
    auto next = fields.begin();
    for (auto r = registers.begin(); r != registers.end(); ++r) {
        h.line(r->second, r->first);
        const auto above = std::next(r);
        const uint32_t end = above == registers.end() ? UINT32_MAX : above->first * 8;
        for (; next != fields.end() && next->first < end; ++next) {
            const sfr_bits_t &bits = t.fields.at(next->second);
            h.line(next->second + "_BIT", bits.low);
            h.line(next->second + "_MASK", ((1U << bits.bits) - 1) << bits.low & 0xFF);
        }
    }
}

std::string z8_chip_header(const z8_options &o, const std::string &bin, const std::string &keywords, std::string &text)
{
    target_t t;
    if (std::string error = find(o, bin, t); !error.empty())
        return error;
    header_t h;
    std::istringstream words(keywords);
    for (std::string word; words >> word;)
        h.taken.insert(word);
    h.text = "; " + t.name + ": made by zel8 header. It may be included more than once.\n\tprocessor\t" + t.name + "\n";
    add_memory(h, t);
    add_vectors(h, t);
    add_registers(h, t);
    text = h.text;
    return "";
}
