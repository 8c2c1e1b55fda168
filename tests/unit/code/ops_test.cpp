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
    for (const char *miss : {"_movlw", "movlv", "tblwtpostincr", "main", "L12", "averyveryverylongname", "\xDF", "__BADRAN"})
        EXPECT_FALSE(keyword(miss)) << miss;
}

TEST(Ops, OtherTables)
{
    struct { const op_row_t *(*fn)(const char *, size_t); const char *word; int token, subop; } hits[] = {
        {op_lookup_control, "STACK", 357, 1}, {op_lookup_control, "nocond", 260, 0},
        {op_lookup_control, "asmopt_off", 386, 0},
        {op_lookup_control, "asmopt_push", 387, 1}, {op_lookup_control, "subtitle", 351, 1},
        {op_lookup_control, "include", 316, 1}, {op_lookup_listopt, "C", 371, 0}, {op_lookup_listopt, "t", 372, 0},
        {op_lookup_listopt, "r", 373, 0}, {op_lookup_listopt, "n", 374, 0}, {op_lookup_listopt, "x", 375, 0},
        {op_lookup_listopt, "p", 376, 0}, {op_lookup_listopt, "on", 377, 0}, {op_lookup_listopt, "off", 378, 0},
        {op_lookup_switch, "on", 391, 0}, {op_lookup_switch, "off", 392, 0}, {op_lookup_switch, "push", 393, 0},
        {op_lookup_switch, "Pop", 394, 0}, {op_lookup_psectflag, "global", 344, 0x10},
        {op_lookup_psectflag, "common", 344, 0x200}, {op_lookup_psectflag, "note", 344, 0x1000},
        {op_lookup_psectflag, "reloc", 423, 0}, {op_lookup_psectflag, "optim", 433, 0},
        {op_lookup_psectflag, "codecov", 441, 0},
    };
    for (const auto &h : hits) {
        const op_row_t *row = h.fn(h.word, strlen(h.word));
        ASSERT_TRUE(row) << h.word;
        EXPECT_EQ(row->token, h.token) << h.word;
        EXPECT_EQ(row->subop, h.subop) << h.word;
    }
    EXPECT_FALSE(op_lookup_control("movlw", 5));
    EXPECT_FALSE(op_lookup_switch("", 0));
    EXPECT_FALSE(op_lookup_psectflag("pages", 5));
}

TEST(Ops, Rows)
{
    const int C = ST_C, Z = ST_Z, N = ST_N, five = 0x1F;
    struct { int row; const char *name; int token, subop, arch, written, read; } facts[] = {
        {0, "nul", 334, 8, 0, 0, 0}, {26, "^", 401, 18, 0, 0, 0}, {29, "|", 401, 25, 0, 0, 0}, {31, "dec", 369, 10, 0, 0, 0},
        {33, "addwf", 285, 0x2400, 0x380, five, 0}, {34, "addwfc", 285, 0x2000, 0x380, five, C},
        {46, "rlcf", 267, 0x3400, 0x380, C | Z | N, C}, {53, "swapf", 266, 0x3800, 0x380, 0, 0},
        {55, "movffl", 269, 0x0060, 0x100, 0, 0}, {62, "bnov", 275, 0xE500, 0x380, 0, ST_OV},
        {68, "clrf", 361, 0x6A00, 0x380, Z, 0}, {70, "negf", 361, 0x6C00, 0x380, five, 0},
        {84, "tblrdpreinc", 382, 0x000B, 0x380, 0, 0}, {85, "daw", 333, 7, 0x380, C, C | ST_DC},
        {92, "reset", 333, 0xFF, 0x380, five, 0}, {110, "andlw", 326, 0x0B00, 0x380, Z | N, 0},
        {119, "callw", 270, 0x0014, 0x100, 0, 0}, {122, "subfsr", 271, 0xE900, 0x100, 0, 0},
        {131, "subulnk", 288, 0xE9C0, 0x380, 0, 0}, {136, "a", 278, 0, 0x380, 0, 0}, {137, "", 279, 0, 0x380, 0, 0},
        {149, "ddw", 262, 4, 0x380, 0, 0}, {180, "config", 398, 0, 0x380, 0, 0}, {190, "include", 316, 1, 0x380, 0, 0},
        {201, "exitm", 301, 0, 0x380, 0, 0},
    };
    for (const auto &f : facts) {
        const op_row_t &r = op_rows[f.row];
        EXPECT_STREQ(r.name, f.name);
        EXPECT_EQ(r.token, f.token) << f.name;
        EXPECT_EQ(r.subop, f.subop) << f.name;
        EXPECT_EQ(r.archmask, f.arch) << f.name;
        EXPECT_EQ(r.status_written, f.written) << f.name;
        EXPECT_EQ(r.status_read, f.read) << f.name;
    }
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

TEST(Ops, Architecture)
{
    opt.cur_chip = &chip;
    chip.c_arch = arch_find("ZEL8V");
    EXPECT_EQ(said([] {
        keyword("movffl"), keyword("low"), keyword("eq"), keyword("nosuchword"), op_check_arch();   // these carry no mask
        srcpos.cur_line++;
        keyword("movff"), op_check_arch();
        srcpos.cur_line++;
        keyword("callw"), op_check_arch();
    }), " 0:849 2:849");
    chip.c_arch = arch_find("ZEL8X");
    EXPECT_EQ(said([] { keyword("callw"), op_check_arch(); }), "");
}

TEST(Ops, AccessResolution)
{
    opt.cur_chip = &chip;
    chip.c_arch = arch_find("ZEL8");
    chip.c_common = {0, 0x5F, nullptr};
    chip.c_sfrcommon = {0xF60, 0xFFF, nullptr};
    symbol_t some = {};
    const value_t symbol = value_sym(&some), sfr = value_const(0xF60), ram = value_const(0x5F), bank = value_const(0x60);
    value_t common = symbol;
    common.v_common = 1;
    struct { bool no_trans, xinst; uint16_t token; const value_t *v; uint16_t result; const char *messages; } facts[] = {
        {false, false, ACCESS_B, &common, ACCESS_B, " 0:1224"}, {false, false, ACCESS_B, &sfr, ACCESS_B, ""},
        {true, false, ACCESS_C, &bank, ACCESS_C, ""}, {true, false, ACCESS_NONE, &common, ACCESS_C, ""},
        {false, false, ACCESS_NONE, &symbol, ACCESS_B, ""}, {true, false, ACCESS_NONE, &symbol, ACCESS_B, " 0:1522"},
        {false, false, ACCESS_NONE, &sfr, ACCESS_C, ""}, {true, true, ACCESS_NONE, &sfr, ACCESS_C, " 0:1522"},
        {false, false, ACCESS_NONE, &ram, ACCESS_B, ""}, {true, false, ACCESS_NONE, &ram, ACCESS_C, " 0:1522"},
        {true, true, ACCESS_NONE, &ram, ACCESS_B, " 0:1522"}, {true, false, ACCESS_NONE, &bank, ACCESS_B, " 0:1522"},
    };
    for (const auto &f : facts) {
        opt.no_trans = f.no_trans;
        opt.xinst = f.xinst;
        EXPECT_EQ(said([&] { EXPECT_EQ(op_resolve_access(f.token, f.v), f.result); }), f.messages);
    }
    opt.no_trans = true;
    EXPECT_EQ(said([&] { op_resolve_access(ACCESS_NONE, &sfr), op_resolve_access(ACCESS_NONE, &symbol); }), " 0:1522");
    opt.no_trans = opt.xinst = false;
}
