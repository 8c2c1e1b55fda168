// The word tables and the instruction table.
#include "code/ops.h"

#include "code/list.h"
#include "code_test.h"

static const op_row_t *keyword(const std::string &word) { return op_lookup_keyword(word.data(), word.size()); }

TEST(Ops, EveryWordIsFoundInAnyCaseAndNothingElse)
{
    for (int i = 0; i < OP_ROWS; i++) {
        const std::string name = op_rows[i].name;
        std::string mixed;
        for (size_t k = 0; k < name.size(); k++)
            mixed += static_cast<char>(k % 2 ? toupper(name[k]) : name[k]);
        const op_row_t *row = &op_rows[name == "include" ? 172 : i];
        EXPECT_EQ(keyword(name), row);
        EXPECT_EQ(keyword(mixed), row);
        // Anything close to it is another word or none.
        std::string longer = name + "x", zero = name + '\0', shorter = name.substr(0, name.size() ? name.size() - 1 : 0);
        for (const std::string &near : {longer, zero, shorter}) {
            const op_row_t *hit = keyword(near);
            EXPECT_TRUE(!hit || near == hit->name) << near;
        }
        for (size_t k = 0; k < name.size(); k++)
            for (int flip : {0x20, 0x80}) {
                std::string other = name;
                other[k] = static_cast<char>(other[k] ^ flip);
                EXPECT_TRUE((flip == 0x20 && isalpha(name[k])) || !keyword(other)) << other;
            }
    }
    for (const char *miss : {"_movlw", "tblwtpostincr", "averyveryverylongname", "\xDF"})
        EXPECT_FALSE(keyword(miss)) << miss;
}

TEST(Ops, NodesFindTheirFirstRow)
{
    struct { uint16_t type, subop; const char *name; } facts[] = {
        {T_BCC, 0xE600, "bmi"}, {T_CALL, 0xEC00, "call"}, {T_RETURN, 0x0011, "retfie"}, {T_TBLRD, 0x000E, "tblwt"},
        {T_BCF, 0x7000, "btg"}, {T_NOP, 0xFFFF, "nop2"}, {T_DB, 4, "ddw"}, {T_SUBWF, 0x5400, "subfwb"},
    };
    op_t op = {};
    for (const auto &f : facts) {
        op.op_type = f.type;
        op.op_subop = f.subop;
        EXPECT_STREQ(op_name(&op), f.name);
    }
    op.op_type = T_CALL;
    op.op_subop = 0xED00;
    testing::internal::CaptureStderr();
    EXPECT_FALSE(op_name(&op));
    EXPECT_EQ(op_status_read(&op), 0u);
    const std::string line = "Can't find op (op = " + std::to_string(T_CALL) + ", subop == ED00)\n\n";
    EXPECT_EQ(testing::internal::GetCapturedStderr(), line + line);
}
