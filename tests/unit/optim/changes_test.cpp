// The report as JSON: that a parser takes it whatever the names, and that its sums agree.
#include "optim/changes.h"

#include <map>
#include <nlohmann/json.hpp>

#include "code/layout.h"
#include "fixture.h"
#include "optim/changes_out.h"
#include "optim/driver.h"

TEST_F(Optim, Report)
{
    symbol_t *t = assemble("btfsc y,0 / goto L / return / incf z / L: / movlw 5 / movwf 16 / movwf 16 / movlw 0 / bz M / "
                           "movwf 17 / movwf 18 / goto M / nop / M: / retlw 0");
    op_set_place(node(t, 0), "a\xFF\"\n.as", op_line(node(t, 0)));
    const vec_t<symbol_t *> code = vec_make<symbol_t *>();
    vec_add(code, t);
    changes_keep();
    changes_begin(code);
    opt_psect(t);
    size_psect(t);
    changes_end();
    FILE *file = tmpfile();
    changes_write_json(file);
    rewind(file);
    const auto report = nlohmann::json::parse(file);
    fclose(file);
    changes = {};

    std::map<std::string, int64_t> by_rule;
    bool odd_name = false;
    for (const auto &c : report["changes"]) {
        by_rule[c["rule"]] += c["bytes"].get<int64_t>();
        odd_name |= c["file"] == "a\xEF\xBF\xBD\"\n.as";
    }
    int64_t sum = report["before"];
    for (const auto &r : report["rules"]) {
        EXPECT_EQ(r["bytes"], by_rule[r["name"]]) << r;
        sum += r["bytes"].get<int64_t>();
    }
    EXPECT_EQ(by_rule.size(), report["rules"].size());
    EXPECT_EQ(sum + report["branches"].get<int64_t>(), report["after"]);
    EXPECT_EQ(report["after"], t->s_psect->p_top);
    EXPECT_TRUE(odd_name);
    EXPECT_EQ(by_rule["V1"], -2);
}
