// The word tables and the instruction table.
#include "code/ops.h"

#include <cstring>

#include "chip/chip.h"
#include "code/list.h"
#include "code_test.h"

static const op_row_t *keyword(const std::string &word) { return op_lookup_keyword(word.data(), word.size()); }

TEST(Ops, EveryWordIsFoundInAnyCaseAndNothingElse)
{
    for (int i = 0; i < OP_ROWS; i++) {
        const std::string name = op_rows[i].name;
        std::string upper, mixed;
        for (size_t k = 0; k < name.size(); k++) {
            upper += static_cast<char>(toupper(name[k]));
            mixed += k % 2 ? upper[k] : name[k];
        }
        const op_row_t *row = &op_rows[name == "include" ? 172 : i];
        EXPECT_EQ(keyword(name), row);
        EXPECT_EQ(keyword(upper), row);
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

TEST(Ops, OtherTables)
{
    struct { const op_row_t *(*fn)(const char *, size_t); const char *word; int token, subop; } hits[] = {
        {op_lookup_control, "STACK", 357, 1}, {op_lookup_control, "asmopt_push", 387, 1}, {op_lookup_listopt, "C", 371, 0},
        {op_lookup_listopt, "off", 378, 0}, {op_lookup_switch, "Pop", 394, 0}, {op_lookup_psectflag, "note", 344, 0x1000},
        {op_lookup_psectflag, "codecov", 441, 0},
    };
    for (const auto &h : hits) {
        const op_row_t *row = h.fn(h.word, strlen(h.word));
        ASSERT_TRUE(row) << h.word;
        EXPECT_TRUE(row->token == h.token && row->subop == h.subop) << h.word;
    }
    EXPECT_FALSE(op_lookup_control("movlw", 5) || op_lookup_switch("", 0) || op_lookup_psectflag("pages", 5));
}

TEST(Ops, NodesFindTheirFirstRow)
{
    struct { uint16_t type, subop; const char *name; } facts[] = {
        {T_BCC, 0xE600, "bmi"}, {T_BCC, 0xE500, "bnv"}, {T_CALL, 0xEC00, "call"}, {T_GOTO, 0xEF00, "goto"},
        {T_RETURN, 0x0013, "return"}, {T_RETURN, 0x0011, "retfie"}, {T_LFSR, 0xEE20, "lfsr"}, {T_TBLRD, 0x000E, "tblwt"},
        {T_TBLRD, 0x000B, "tblrd"}, {T_BCF, 0x7000, "btg"}, {T_NOP, 0xFFFF, "nop2"}, {T_DB, 4, "ddw"},
        {T_SUBWF, 0x5400, "subfwb"},
    };
    op_t op = {};
    for (const auto &f : facts) {
        op.op_type = f.type;
        op.op_subop = f.subop;
        EXPECT_STREQ(op_name(&op), f.name);
    }
    op.op_subop = 0x5800;
    EXPECT_EQ(op_status_written(&op), 0x1Fu);
    EXPECT_EQ(op_status_read(&op), 1u);
    for (const auto &[type, subop] : {std::pair{T_CALL, 0xED00}, {T_NAME, 0}, {T_TBLRDMODE, 0x10}, {token_t{}, 0}}) {
        op.op_type = type;
        op.op_subop = static_cast<uint16_t>(subop);
        testing::internal::CaptureStderr();
        EXPECT_FALSE(op_name(&op));
        EXPECT_EQ(op_status_read(&op), 0u);
        char line[100];
        snprintf(line, sizeof line, "Can't find op (op = %d, subop == %X)\n\n", type, subop);
        EXPECT_EQ(testing::internal::GetCapturedStderr(), std::string(line) + line);
    }
}

static chipinfo_t chip;

TEST(Ops, MaskOfTheLastWordThatHadOne)
{
    opt.cur_chip = &chip;
    chip.c_arch = arch_find("ZEL8V");
    EXPECT_EQ(said([] {
        keyword("movffl"), keyword("low"), keyword("eq"), keyword("nosuchword"), op_check_arch();
        srcpos.cur_line++;
        keyword("movff"), op_check_arch();
    }), " 0:849");
}

TEST(Ops, AccessWithTheExtendedSet)
{
    chip.c_arch = arch_find("ZEL8");
    chip.c_common = {0, 0x5F, nullptr};
    chip.c_sfrcommon = {0xF60, 0xFFF, nullptr};
    opt.no_trans = opt.xinst = true;
    const value_t sfr = value_const(0xF60), ram = value_const(0x5F);
    EXPECT_EQ(said([&] {
        EXPECT_EQ(op_resolve_access(ACCESS_NONE, &sfr), ACCESS_C);
        srcpos.cur_line++;
        EXPECT_EQ(op_resolve_access(ACCESS_NONE, &ram), ACCESS_B);
        EXPECT_EQ(op_resolve_access(ACCESS_NONE, &sfr), ACCESS_C);   // told once a line
    }), " 0:1522 1:1522");
    opt.no_trans = opt.xinst = false;
    opt.cur_chip = nullptr;
}
