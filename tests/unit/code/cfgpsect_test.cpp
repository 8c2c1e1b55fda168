// What is written for the configuration words: which of them, with which comments and nodes, in which psects.
#include "code/cfgpsect.h"

#include <gtest/gtest.h>

#include "../common/child.h"
#include "chip/cfgdata.h"
#include "chip/chip.h"
#include "chip/config.h"
#include "code/list.h"
#include "code/ops.h"
#include "common/alert.h"
#include "common/stringcache.h"

static const char words[] =
    "CWORD:103:FF:0F:\nCWORD:100:3F:7F:A\nCSETTING:3:LOW,L:two bits\nCVALUE:1:ONE:the one\nCSETTING:3C:HIGH:four bits\n"
    "CVALUE:C:THREE:three: four\nCWORD:101:FF:22:B\nCSETTING:80:TOP:top bit\nCVALUE:0:OFF:none\nCWORD:104:FF:44:ALONE\n"
    "CWORD:200:FF:AA:ID0\nCWORD:201:FF:BB:ID1\nCWORD:202:FFFF:CCDD:ID2\n";

static unsigned long number(uint64_t n) { return static_cast<unsigned long>(n); }

// The psects that have a class, and their nodes with the comments ahead.
static void print_psects()
{
    for (code_list_t *list : psect_list) {
        const psect_t *p = list->psect->s_psect;
        if (!p->p_class)
            continue;
        fprintf(stderr, "%s %lX class %s space %d delta %d%s\n", list->psect->s_name, number(list->psect->s_flags),
                p->p_class->s_name, p->p_space, p->p_delta, p->p_noexec ? " noexec" : "");
        for (const op_t *op = list->head.op_next; op->op_type; op = op->op_next) {
            op_comments_each(op, [](const char *text) { fputs(*text == '\n' ? "" : text, stderr); });
            if (op->op_type == T_ORG && op->op_opnd1.opnd_kind == OPND_LIT)
                fprintf(stderr, "%lX", number(op->op_arg));
            else if (op->op_type == T_DB && !op->op_data->next && op->op_data->value.v_rtype == RT_CONST)
                fprintf(stderr, " %d:%lX\n", op->op_subop, number(static_cast<uint64_t>(op->op_data->value.v_offs)));
        }
    }
}

// Messages and psects after the statements, which are "name=value" or "name=#number" in base 16.
static std::string written(std::initializer_list<const char *> statements)
{
    scratch_dir_t dir;
    const std::string file = dir.path + "/c";
    write_file(file, words);
    const outcome_t o = in_child([&] {
        static const alert_services_t services = {[]() -> const char * { return nullptr; }, exit};   // numbers will do
        static chipinfo_t chip;
        alert_set_services(&services);
        alert_set_hook(nullptr);
        alert_set_location(nullptr, nullptr, nullptr, nullptr);
        chip.c_arch = arch_find("ZEL8");
        chip.c_cfgmem = {0x100, 0x10F, nullptr};
        chip.c_useridmem = {0x200, 0x203, nullptr};
        opt.cur_chip = &chip;
        sym_init();
        sym_enter("config", S_PSECT);   // a source's; what is written has psects of its own
        cfg_set_file(file.c_str());
        for (const char *s : statements) {
            const char *with = strchr(s, '=') + 1, *what = cache_substring(s, static_cast<size_t>(with - 1 - s));
            if (*with == '#')
                cfg_prog_with_value(what, strtoul(with + 1, nullptr, 16));
            else
                cfg_prog_with_name(what, with);
        }
        cfg_make_psects();
        print_psects();
    });
    EXPECT_EQ(o.status, CAME_BACK);
    std::string text = o.text;   // messages by number alone
    for (size_t at; (at = text.find(" An error")) != std::string::npos;)
        text.erase(at, text.find('\n', at) + 1 - at);
    return text;
}

static const std::string config = "config 1D0 class CONFIG space 4 delta 1 noexec\n";
static const std::string idloc = "idloc 1D0 class IDLOC space 5 delta 1 noexec\n";
static const std::string defaults = ";\tunspecified, using default values\n", literal = ";\tusing specified literal value\n";
static const std::string a = ";Config register A @ 0x100\n", b = ";Config register B @ 0x101\n";
static const std::string high_unset = ";\tfour bits\n;\tHIGH = 0xF, unprogrammed default\n";
static const std::string low_unset = ";\ttwo bits\n;\tLOW = 0x3, unprogrammed default\n";
static const std::string low_one = ";\ttwo bits\n;\tLOW = ONE, the one\n";
static const std::string a_unset = a + defaults + low_unset + high_unset + "100 1:7F\n";
static const std::string b_unset = b + defaults + ";\ttop bit\n;\tTOP = 0x0, unprogrammed default\n101 1:22\n";
static const std::string unset_103 = ";Config register @ 0x103\n" + defaults + "103 1:F\n";
static const std::string alone = ";Config register ALONE @ 0x104\n", unset_104 = alone + defaults + "104 1:44\n";
static const std::string all = "(1311)(1311)" + config + a_unset + b_unset + unset_103 + unset_104;

TEST(CfgPsect, Configs)
{
    EXPECT_EQ(written({}), "");
    EXPECT_EQ(written({"default_configs=always"}), all);
    EXPECT_EQ(written({"TOP=ON"}), "(1363)" + all);   // a statement that was refused has named the region
    EXPECT_EQ(written({"ID0=ON"}), "(1363)");
    EXPECT_EQ(written({"L=ONE"}),
              "(1311)" + config + a + low_one + high_unset + "100 1:7D\n" + b_unset + unset_103 + unset_104);
    // Words by number: bits that the chip lacks keep their default; no record names what HIGH and TOP get.
    EXPECT_EQ(written({"default_configs=off", "A=#31", "B=#80"}),
              "(1386)(1386)" + config + a + low_one + ";\tfour bits\n;\tHIGH = 0xC, user specified literal\n100 1:71\n" + b +
                  ";\ttop bit\n;\tTOP = 0x1, user specified literal\n101 1:80\n");
    // The neighbour in the unit. Where it is skipped, its comments go ahead of the next node.
    const std::string three = "(1311)" + config + a + low_unset + ";\tfour bits\n;\tHIGH = THREE, three: four\n100 1:4F\n";
    EXPECT_EQ(written({"default_configs=off", "HIGH=THREE"}), three);
    EXPECT_EQ(written({"default_configs=off", "HIGH=THREE", "ALONE=#7"}),
              three + b + ";\tunspecified, skipping\n" + alone + literal + "104 1:7\n");
    EXPECT_EQ(written({"default_configs=off", "HIGH=THREE", "pad_punits=on"}), three + b_unset);
    // Holes behind a word and ahead of one.
    const std::string pad = "; Padding undefined space\n", pad_105 = pad + "105 1:FF\n";
    EXPECT_EQ(written({"default_configs=off", "ALONE=#7", "pad_punits=#1"}),
              config + alone + literal + "104 1:7\n" + pad_105);
    EXPECT_EQ(written({"default_configs=#2", "pad_punits=on"}),
              "(1311)(1311)" + config + a_unset + b_unset + pad + "102 1:FF\n" + unset_103 + unset_104 + pad_105);
}

TEST(CfgPsect, IdLocations)
{
    const std::string id = ";Config register ID", id0 = id + "0 @ 0x200\n" + defaults + "200 1:AA\n";
    const std::string id1 = id + "1 @ 0x201\n" + literal + "201 1:12\n", id2 = id + "2 @ 0x202\n";
    EXPECT_EQ(written({"ID1=#12"}), idloc + id1);
    EXPECT_EQ(written({"ID1=#12", "default_idlocs=auto"}), idloc + id0 + id1 + id2 + defaults + "202 2:CCDD\n");
    EXPECT_EQ(written({"default_idlocs=auto"}), "");
    EXPECT_EQ(written({"default_idlocs=always", "default_configs=off", "ALONE=#1", "ID2=#FFFF"}),
              config + alone + literal + "104 1:1\n" + idloc + id0 + id + "1 @ 0x201\n" + defaults + "201 1:BB\n" +
                  id2 + literal + "202 2:FFFF\n");
}
