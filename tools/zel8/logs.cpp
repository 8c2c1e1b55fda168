// logs: several SARIF logs as one, with a run for each.
#include <nlohmann/json.hpp>

#include "zel8.h"

using json = nlohmann::ordered_json;

std::string z8_join_logs(const std::vector<std::string> &texts)
{
    json all;
    std::string others;
    for (const std::string &text : texts) {
        const json log = json::parse(text, nullptr, false);
        if (!log.is_object() || !log.contains("runs"))
            others += text;
        else if (all.empty())
            all = log;
        else
            all["runs"].insert(all["runs"].end(), log["runs"].begin(), log["runs"].end());
    }
    return others + (all.empty() ? "" : all.dump(2) + '\n');
}
