// Any bytes at all as a configuration data file, programmed by a source that is made of it: the options, some words by a
// number, and of settings one of their values by name. Files to begin with are in dat/cfgdata/.
#include "target.h"

#include <cstdint>
#include <cstdio>
#include <sstream>

static std::string program(std::string_view input, std::string_view letters)
{
    std::string source = " config ignore_cmsgs=off\n", line, setting;
    const auto config = [&source](const std::string &what, const std::string &with) {
        source += " config " + what + "=" + with + "\n";
    };
    const auto chosen = [letters](char letter) { return letters.find(letter) != letters.npos; };
    if (chosen('P'))
        config("pad_punits", "on");
    if (chosen('I'))
        config("default_idlocs", "always");
    if (chosen('D'))
        config("default_configs", "off");
    std::istringstream lines{std::string(input)};
    for (unsigned n = letters.size() & 7; std::getline(lines, line); n++) {
        char name[64];
        if (sscanf(line.c_str(), "CWORD:%*[^:]:%*[^:]:%*[^:]:%63[^:,\r\n]", name) == 1 && n % 3 == 0)
            config(name, std::to_string(n * 0x9E3779B9u));
        else if (sscanf(line.c_str(), "CSETTING:%*[^:]:%63[^:,]", name) == 1)
            setting = name;
        else if (sscanf(line.c_str(), "CVALUE:%*[^:]:%63[^:,]", name) == 1 && !setting.empty() && n % 2 == 0) {
            config(setting, n % 8 ? name : std::to_string(n));
            setting.clear();
        }
    }
    return source;
}

const assembly_t assembly = {"in.cfgdata", '#',    {"-mcpu=ZEL8K10", "--emax=1000", "--cfgdata=in.cfgdata"}, false, {},
                             program,      nullptr};
