// The size pass against its plain form: all nodes in each walk, distances to where a label stood last.
#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <vector>

#include "chip/chip.h"
#include "code/layout.h"
#include "code/list.h"
#include "code/ops.h"
#include "options.h"

struct plain_t {
    op_t *op;
    size_t target;
    int64_t at;
};

static int64_t plain_size(const plain_t &n, int64_t pos, const std::vector<plain_t> &all, bool known)
{
    if (n.op->op_type == T_NAME)
        return 0;
    if (n.op->op_type == T_ALIGN)
        return (8 - pos % 8) % 8;
    if (n.op->op_type == T_MOVLW)
        return 2;
    const int64_t distance = all[n.target].at - 2 - pos;
    if (n.op->op_type == T_BCC)
        return !known ? 6 : distance >= -256 && distance <= 255 ? 2 : distance >= -2044 && distance <= 2043 ? 4 : 6;
    return known && distance >= -2048 && distance <= 2047 ? 2 : 4;
}

static void plain_pass(std::vector<plain_t> &all)
{
    bool moved = true;
    for (int pass = 1; moved || pass == 2; pass++) {
        moved = false;
        int64_t pos = 0;
        for (size_t i = 0; i < all.size(); i++) {
            moved |= all[i].at != pos;
            all[i].at = pos;
            pos += plain_size(all[i], pos, all, pass > 1 || all[i].target < i);
        }
    }
}

static std::vector<plain_t> random_psect(uint32_t seed, size_t count, bool padded)
{
    static const token_t kinds[] = {T_NAME, T_BCC, T_GOTO, T_CALL, T_MOVLW, T_MOVLW, T_MOVLW, T_ALIGN};
    std::mt19937 random(seed);
    cur_psect = sym_enter(("p" + std::to_string(seed)).c_str(), S_PSECT);
    std::vector<plain_t> all;
    std::vector<size_t> labels;
    for (size_t i = 0; i < count; i++) {
        op_t *op = op_insert_after(cur_psect->s_psect->p_code->tail.op_prev, op_new());
        op->op_type = kinds[i ? random() % (padded && random() % 64 == 0 ? 8 : 7) : 0];
        op->op_opnd1.opnd_value = value_const(0);
        op_set_number(op, 8);
        if (op->op_type == T_NAME) {
            op->op_sym = sym_enter(("l" + std::to_string(seed) + "_" + std::to_string(i)).c_str(), 0);
            labels.push_back(i);
        }
        all.push_back({op, i, -1});
    }
    for (size_t i = 0, next = 0; i < count; i++) {
        next += all[i].op->op_type == T_NAME;
        if (all[i].op->op_type != T_BCC && all[i].op->op_type != T_GOTO && all[i].op->op_type != T_CALL)
            continue;
        const size_t reach = all[i].op->op_type == T_BCC ? 14 : 110;   // about as far as the short forms do
        const size_t low = next > reach ? next - reach : 0, high = std::min(next + reach, labels.size());
        all[i].target = labels[low + random() % (high - low)];
        all[i].op->op_opnd1.opnd_value = value_sym(all[all[i].target].op->op_sym);
    }
    return all;
}

static size_t misplaced(std::vector<plain_t> all)
{
    size_psect(cur_psect);
    plain_pass(all);
    return static_cast<size_t>(std::count_if(all.begin(), all.end(),
                                             [](const plain_t &n) { return n.op->op_offs != static_cast<uint64_t>(n.at); }));
}

TEST(SizePass, EndsWhereThePlainWalksEnd)
{
    chipinfo_t chip = {};
    chip.c_arch = arch_find("ZEL8");
    chip_select(&chip);
    options_to_write() = {};
    options_to_write().optimise = true;
    sym_init();
    for (uint32_t seed = 0; seed < 24; seed++)
        EXPECT_EQ(misplaced(random_psect(seed, seed % 3 ? 400 : 12000, seed % 2)), 0u) << "seed " << seed;
    options_to_write() = {};
    chip_select(nullptr);
}
