// Any bytes at all as a configuration data file, programmed by a source that is made of it: the options, every word by a
// number, and of each setting one of its values by name. Files to begin with are in dat/cfgdata/.
#include <cstdio>
#include <sstream>

#include "child.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const std::string text(reinterpret_cast<const char *>(data), size);
    std::string source = " config ignore_cmsgs=off\n", line, setting;
    const auto program = [&source](const std::string &what, const std::string &with) {
        source += " config " + what + "=" + with + "\n";
    };
    const unsigned choice = size > 0 ? data[size - 1] ^ '\n' : 0u;
    if (choice & 1) program("pad_punits", "on");
    if (choice & 2) program("default_idlocs", "always");
    if (choice & 4) program("default_configs", "off");
    std::istringstream lines(text);
    for (unsigned n = choice >> 3; std::getline(lines, line); n++) {
        char name[64];
        if (sscanf(line.c_str(), "CWORD:%*[^:]:%*[^:]:%*[^:]:%63[^:,\r\n]", name) == 1 && n % 3 == 0)
            program(name, std::to_string(n * 0x9E3779B9u));
        else if (sscanf(line.c_str(), "CSETTING:%*[^:]:%63[^:,]", name) == 1)
            setting = name;
        else if (sscanf(line.c_str(), "CVALUE:%*[^:]:%63[^:,]", name) == 1 && !setting.empty() && n % 2 == 0) {
            program(setting, n % 8 ? name : std::to_string(n));
            setting.clear();
        }
    }
    run_child({{"-mcpu=ZEL8K10", "--emax=1000", "--cfgdata=FILE"}, {}, source, false}, text);
    return 0;
}
