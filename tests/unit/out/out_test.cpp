// The size pass, the reduction of operands, relocation entries and the limits of the record buffers, on nodes and values
// made by hand.
#include <gtest/gtest.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "chip/chip.h"
#include "code/ops.h"
#include "common/alert.h"
#include "common/srcpos.h"
#include "env/catalogue.h"
#include "options.h"
#include "out/emobj.h"
#include "out/objout.h"

class Out : public testing::Test {
protected:
    chipinfo_t chip = {};
    symbol_t *foo, *lab;   // undefined; p+4

    void SetUp() override
    {
        static const alert_services_t services = {catalogue_path, exit};
        alert_set_services(&services);
        srcpos = {};
        srcpos.cur_file = srcpos.phys_file = "t.as";
        chip.c_arch = arch_find("ZEL8");
        opt = {};
        opt.cur_chip = &chip;
        sym_init();
        use_psect("p");
        foo = sym_enter("foo", 0);
        foo->s_flags |= S_GLOBAL;
        lab = define("lab", value_psect_offset(cur_psect, 4));
        opt.out_stream = tmpfile();
        obj_open_ident("X");
        obj_text_begin();
    }
    void TearDown() override
    {
        fclose(opt.out_stream);
        opt = {};
    }

    static void use_psect(const std::string &name) { cur_psect = sym_enter(name.c_str(), S_PSECT); }
    static symbol_t *define(const std::string &name, value_t v)
    {
        symbol_t *s = sym_enter(name.c_str(), 0);
        s->s_flags &= ~uint64_t{S_UNDEF};
        s->s_value = v;
        return s;
    }
    static value_t plus(value_t v, int64_t n) { v.v_offs += n; return v; }
    static value_t un(uint8_t rtype, value_t a) { return value_make_unary(rtype, &a); }
    static value_t bin(uint8_t rtype, value_t a, value_t b) { return value_make_binary(rtype, &a, &b); }
    static value_t reduced(value_t v) { operand_reduce(&v); return v; }

    static op_t *append(uint16_t type, int64_t n = 0)
    {
        op_t *op = op_insert_after(cur_psect->s_psect->p_code->tail.op_prev, op_new());
        op->op_type = type;
        op->op_opnd1.opnd_value = value_const(n);
        op->op_arg = static_cast<uint64_t>(n);
        return op;
    }
    static op_t *append_label(const char *name)
    {
        op_t *op = append(T_NAME);
        op->op_sym = define(name, {});
        op->op_sym->s_value = value_sym(op->op_sym);
        return op;
    }
    static op_t *append_jump(uint16_t type, const char *name)
    {
        op_t *op = append(type);
        op->op_opnd1.opnd_value = value_sym(sym_enter(name, 0));
        return op;
    }

    // The records written since the last call, as "type length body"; IDENT is left out. Bodies above 64 bytes are cut.
    std::vector<std::string> records()
    {
        obj_text_flush();
        std::vector<std::string> all;
        uint8_t head[3], body[512];
        for (rewind(opt.out_stream); fread(head, 1, 3, opt.out_stream) == 3;) {
            const size_t n = head[0] | head[1] << 8u;
            EXPECT_EQ(fread(body, 1, n, opt.out_stream), n);
            std::string s = std::to_string(head[2]) + " " + std::to_string(n) + " ";
            for (size_t i = 0; i < n && i < 64; i++) {
                char hex[3];
                snprintf(hex, sizeof hex, "%02X", body[i]);
                s += hex;
            }
            if (head[2] != 7)
                all.push_back(s);
        }
        rewind(opt.out_stream);
        EXPECT_EQ(ftruncate(fileno(opt.out_stream), 0), 0);
        obj_text_begin();
        return all;
    }
    typedef std::vector<std::string> list;
};

TEST_F(Out, PlainPlacesThatFitTheFieldGoIntoTheWord)
{
    symbol_t *q = sym_enter("q", S_PSECT);
    q->s_flags |= S_COMMON;   // the bit that says `undefined` on a symbol
    const struct { value_t v; unsigned bits; std::string data, reloc; } cases[] = {
        {value_const(-1), 8, "FF0E", ""},
        {value_psect_offset(q, 0xFF), 8, "FF0E", "117100"},
        {value_psect_offset(q, 0x100), 8, "000E", "31107100" "0300010000" "04" "00"},
        {value_psect_offset(q, 5), 6, "050E", "D67100"},
        {bin(RT_SUB, value_sym(foo), value_sym(lab)), 8, "000E", "31107000" "0304000000" "04" "20666F6F00" "05" "00"},
    };
    for (const auto &c : cases) {
        cur_psect->s_psect->p_curr = 0;
        records();
        emit_bytes(0x0E00, &c.v, 2, c.bits);
        list expected = {"1 8 000000007000" + c.data};
        if (!c.reloc.empty())
            expected.push_back("3 " + std::to_string(2 + c.reloc.size() / 2) + " 0000" + c.reloc);
        EXPECT_EQ(records(), expected);
    }
}

TEST_F(Out, FullBuffersBreakBeforeTheEntryThatFindsNoRoom)
{
    use_psect("t");
    obj_text_begin();
    for (int i = 0; i < 252; i++)   // the head takes 9 bytes, and byte 512 is never used: 251 words
        emit_bytes(0xF000, nullptr, 2, 0);
    list r = records();
    ASSERT_EQ(r.size(), 2u);
    EXPECT_EQ(r[0].substr(0, 6), "1 508 ");
    EXPECT_EQ(r[1], "1 8 F6010000740000F0");

    use_psect("u");
    obj_text_begin();
    const value_t v = value_psect_offset(cur_psect, 1);
    for (int i = 0; i < 102; i++)   // entries of 5 bytes: 101 of them
        emit_bytes(0, &v, 1, 8);
    r = records();
    ASSERT_EQ(r.size(), 4u);
    EXPECT_EQ(r[1].substr(0, 6), "3 505 ");
    EXPECT_EQ(r[2], "1 7 65000000750001");
    EXPECT_EQ(r[3], "3 5 0000117500");
}

TEST_F(Out, NamesOfAnyLengthAreWrittenOrReported)
{
    const auto emitted = [this](size_t length, bool plain) {
        symbol_t *s = sym_enter(std::string(length, 'n').c_str(), 0);
        s->s_flags |= S_GLOBAL;
        const value_t v = plain ? value_sym(s) : un(RT_LOW, value_sym(s));
        testing::internal::CaptureStderr();
        emit_bytes(0, &v, 1, 8);
        const bool silent = testing::internal::GetCapturedStderr().empty();
        const list r = records();
        EXPECT_EQ(r.size(), silent ? 2u : 1u);
        return silent ? r[1].substr(0, 6) : std::string();
    };
    EXPECT_EQ(emitted(505, true), "3 509 ");
    EXPECT_EQ(emitted(506, true), "");
    EXPECT_EQ(emitted(502, false), "3 509 ");
    EXPECT_EQ(emitted(503, false), "");

    use_psect(std::string(600, 'p'));
    testing::internal::CaptureStderr();
    obj_text_begin();
    emit_bytes(0xF000, nullptr, 2, 0);
    EXPECT_NE(testing::internal::GetCapturedStderr().find("too long"), std::string::npos);
    EXPECT_EQ(records(), list{});
}

TEST_F(Out, ReductionLeavesSharedTreesAloneAndEnds)
{
    symbol_t *other = define("other", value_psect_offset(cur_psect, 10));
    const value_t apart = bin(RT_SUB, value_sym(other), value_sym(lab));
    EXPECT_EQ(reduced(apart).v_offs, 6);
    EXPECT_EQ(value_left(&apart)->v_sym, other);
    symbol_t *x = sym_enter("x", 0), *y = sym_enter("y", 0);
    define("x", plus(value_sym(y), 1));
    define("y", plus(value_sym(x), 1));
    const value_t round = value_sym(x);
    EXPECT_EQ(reduced(round).v_sym, x);
    EXPECT_GT(complex_size(&round), size_t{COMPLEX_MAX});
    value_t v = value_sym(foo);
    for (int i = 0; i < 60; i++)
        v = value_sym(define("d" + std::to_string(i), bin(RT_MUL, v, v)));
    EXPECT_EQ(reduced(v).v_sym, v.v_sym);
    EXPECT_GT(complex_size(&v), size_t{COMPLEX_MAX});
}

TEST_F(Out, BranchesThatChaseEachOtherSettle)
{
    // With the `goto` short, T moves down and the backward branch no longer reaches it; when that grows, `goto` no longer
    // reaches F; when that grows again, T moves up, and so on.
    opt.optimise = true;
    append_jump(T_GOTO, "F");
    op_t *t = append_label("T");
    append(T_DS, 200);
    append(T_ALIGN, 256);
    append(T_DS, 2);
    op_t *back = append_jump(T_BCC, "T");
    append(T_DS, 1788);
    op_t *f = append_label("F");
    size_psect(cur_psect);
    EXPECT_EQ(t->op_offs, 4u);
    EXPECT_EQ(back->op_offs, 258u);
    EXPECT_EQ(f->op_offs, 258u + 4 + 1788);
    EXPECT_EQ(cur_psect->s_psect->p_top, f->op_offs);
}

