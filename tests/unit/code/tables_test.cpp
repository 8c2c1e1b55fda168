// The table of words, and the predicates on operands, against each id of the core registers.
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <string>

#include "chip/chipinfo.h"
#include "code/oprows.h"
#include "code/sfrop.h"

static const op_row_t *keyword(const std::string &word) { return op_lookup_keyword(word.data(), word.size()); }

TEST(Ops, EveryWordIsFoundInAnyCaseAndNothingElse)
{
    for (int i = 0; i < OP_ROWS; i++) {
        const std::string name = op_rows[i].name;
        const op_row_t *row = std::ranges::find(op_rows, name, &op_row_t::name);   // the first of that name
        EXPECT_EQ(keyword(name), row);
        // Anything close to it is another word or none.
        for (const std::string &near : {name + "x", name + '\0', name.substr(0, name.size() ? name.size() - 1 : 0)}) {
            const op_row_t *hit = keyword(near);
            EXPECT_TRUE(!hit || near == hit->name) << near;
        }
        for (size_t k = 0; k < name.size(); k++)
            for (int flip : {0x20, 0x80}) {
                std::string other = name;
                other[k] = static_cast<char>(other[k] ^ flip);
                EXPECT_EQ(keyword(other), flip == 0x20 && isalpha(name[k]) ? row : nullptr) << other;
            }
    }
    for (const char *miss : {"_movlw", "tblwtpostincr", "averyveryverylongname", "\xDF"})
        EXPECT_FALSE(keyword(miss)) << miss;
}

// A letter for each predicate that holds; a digit for the file select.
static std::string answers(const opnd_t &v)
{
    static const struct {
        bool (*fn)(const opnd_t *);
        char letter;
    } all[] = {{sfr_isKnown, 'k'},   {sfr_isWreg, 'w'},   {sfr_isStatus, 's'},   {sfr_isBsr, 'b'},
               {sfr_isPc, 'p'},      {sfr_isTos, 't'},    {sfr_isIndirect, 'i'}, {sfr_isPostinc, '+'},
               {sfr_isPostdec, '-'}, {sfr_isPreinc, '*'}, {sfr_isPlusw, 'x'}};
    std::string s;
    for (const auto &p : all)
        if (p.fn(&v))
            s += p.letter;
    if (int select = sfr_fileSelect(&v))
        s += static_cast<char>('0' + select);
    return s;
}

TEST(SfrOp, Predicates)
{
    chipinfo_t *chip = chipinfo_load(nullptr, "ZEL8K10");
    chip_select(chip);
    sfr_init(chip);
    static const char *const expected[] = {"kt",   "kt",   "kt",   "k",    "kp",   "kp",   "kp",   "k",    "k",  "k",
                                           "k",    "k",    "k",    "ki1",  "ki+1", "ki-1", "ki*1", "kix1", "k",  "k",
                                           "kw",   "ki2",  "ki+2", "ki-2", "ki*2", "kix2", "k",    "k",    "kb", "ki3",
                                           "ki+3", "ki-3", "ki*3", "kix3", "k",    "k",    "ks"};
    opnd_t v = {};
    for (uint32_t id = SFR_TOSU; id < SFR_END; ++id) {
        v.opnd_value = value_const(sfr_addrOf(id));
        EXPECT_EQ(answers(v), expected[id - 1]) << id;
        v.opnd_value.v_rtype = RT_PSECT;   // an offset in a psect, whatever its number
        EXPECT_EQ(answers(v), "") << id;
    }
    v.opnd_value = value_const(0xF60);
    EXPECT_EQ(answers(v), "k");   // another register of the access bank
    int64_t wreg = sfr_addrOf(SFR_WREG);
    const int64_t wrap = int64_t{1} << 32;
    for (int64_t addr : {int64_t{0}, int64_t{-1}, wreg - 256, wreg + 128, wreg + wrap, wreg - wrap}) {
        v.opnd_value = value_const(addr);
        EXPECT_EQ(answers(v), "") << addr;   // among them those that share wreg's slot
    }
    chip_select(nullptr);
}
