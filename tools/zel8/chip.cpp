// chip: which chips there are, and what a preprocessed source may ask of the one that it is for.
#include <filesystem>
#include <fstream>
#include <set>

#include "target.h"
#include "zel8.h"

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

std::string z8_chip_macros(const z8_options &o, const std::string &bin, std::vector<std::string> &words)
{
    target_t t;
    if (std::string error = o.chip_file.empty() ? target_find(bin, o.chip, t) : target_read(o.chip_file, o.chip, t);
        !error.empty())
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
