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
#include "env/catalogue.h"

static const char words[] = "CWORD:103:FF:0F:\nCWORD:100:3F:7F:A\nCSETTING:3:LOW,L:two bits\nCVALUE:1:ONE:the one\nCSETTING:3C:HIGH:four bits\n"
                            "CVALUE:C:THREE:three: four\nCWORD:101:FF:22:B\nCSETTING:80:TOP:top bit\nCVALUE:0:OFF:none\n"
                            "CWORD:104:FF:44:ALONE\nCWORD:200:FF:AA:ID0\nCWORD:201:FF:BB:ID1\nCWORD:202:FFFF:CCDD:ID2\n";

// The psects but for the built-in one, and their nodes with the comments ahead.
static void print_psects()
{
    for (code_list_t *list : psect_list) {
        const symbol_t *s = list->psect;
        const psect_t *p = s->s_psect;
        if (!*s->s_name)
            continue;
        fprintf(stderr, "%s %lX class %s space %d delta %d%s\n", s->s_name, static_cast<unsigned long>(s->s_flags), p->p_class->s_name, p->p_space,
                p->p_delta, p->p_noexec ? " noexec" : "");
        for (const op_t *op = list->head.op_next; op->op_type; op = op->op_next) {
            op_comments_each(op, [](const char *text) { fputs(*text == '\n' ? "" : text, stderr); });
            if (op->op_type == T_ORG && op->op_opnd1.opnd_kind == OPND_LIT)
                fprintf(stderr, "%lX", static_cast<unsigned long>(op->op_arg));
            else if (op->op_type == T_DB && !op->op_data->next && op->op_data->value.v_rtype == RT_CONST)
                fprintf(stderr, " %d:%lX\n", op->op_subop, static_cast<unsigned long>(op->op_data->value.v_offs));
        }
    }
}

// Messages and psects after the statements, which are `name=value` or `name=#number in base 16`.
static std::string written(std::initializer_list<const char *> statements)
{
    scratch_dir_t dir;
    const std::string file = dir.path + "/c";
    write_file(file, words);
    const outcome_t o = in_child([&] {
        static const alert_services_t services = {catalogue_path, exit};
        static chipinfo_t chip;
        alert_set_services(&services);
        chip.c_arch = arch_find("ZEL8");
        chip.c_cfgmem = {0x100, 0x10F, nullptr};
        chip.c_useridmem = {0x200, 0x203, nullptr};
        opt.cur_chip = &chip;
        sym_init();
        sym_enter("CONFIG", S_PSECT);   // of another name, in case; what is written has psects of its own
        psect_list = vec_make<code_list_t *>();
        cfg_set_file(file.c_str());
        for (const std::string s : statements) {
            const size_t at = s.find('=');
            const std::string what = s.substr(0, at), with = s.substr(at + 1);
            if (with[0] == '#')
                cfg_prog_with_value(what.c_str(), strtoul(with.c_str() + 1, nullptr, 16));
            else
                cfg_prog_with_name(what.c_str(), with.c_str());
        }
        cfg_make_psects();
        print_psects();
    });
    EXPECT_EQ(o.status, CAME_BACK);
    return o.text;
}

static const std::string config = "config 1D0 class CONFIG space 4 delta 1 noexec\n", idloc = "idloc 1D0 class IDLOC space 5 delta 1 noexec\n";
static const std::string b_default = ";\tunspecified, using default values\n;\ttop bit\n;\tTOP = 0x0, unprogrammed default\n101 1:22\n";
static const std::string unset_103 = ";Config register @ 0x103\n;\tunspecified, using default values\n103 1:F\n";
static const std::string unset_104 = ";Config register ALONE @ 0x104\n;\tunspecified, using default values\n104 1:44\n";
static std::string missing(const char *address)
{
    return std::string("(1311) missing configuration setting for config word 0x") + address + "; using default (warning)\n";
}

TEST(CfgPsect, Defaults)
{
    EXPECT_EQ(written({}), "");
    EXPECT_EQ(written({"default_configs=off"}), "");
    // One setting: all configuration words.
    EXPECT_EQ(written({"L=ONE"}), missing("101") + config +
              ";Config register A @ 0x100\n;\ttwo bits\n;\tLOW = ONE, the one\n;\tfour bits\n;\tHIGH = 0xF, unprogrammed default\n100 1:7D\n"
              ";Config register B @ 0x101\n" + b_default + unset_103 + unset_104);
    // A name that was refused counts for the region too.
    const std::string all = missing("100") + missing("101") + config + ";Config register A @ 0x100\n;\tunspecified, using default values\n"
        ";\ttwo bits\n;\tLOW = 0x3, unprogrammed default\n;\tfour bits\n;\tHIGH = 0xF, unprogrammed default\n100 1:7F\n"
        ";Config register B @ 0x101\n" + b_default + unset_103 + unset_104;
    const std::string refused = "(1363) unknown configuration setting/register (";
    EXPECT_EQ(written({"TOP=ON"}), refused + "TOP = ON) used\n" + all);
    EXPECT_EQ(written({"ID0=ON"}), refused + "ID0 = ON) used\n");
    EXPECT_EQ(written({"default_configs=always"}), all);
    // A word by number: the bits that the chip lacks keep their default, and one field no name.
    EXPECT_EQ(written({"default_configs=off", "A=#31", "B=#80"}),
              "(1386) unable to determine the semantics of the configuration setting \"HIGH\" for register \"A\" (warning)\n" + config +
              ";Config register A @ 0x100\n;\ttwo bits\n;\tLOW = ONE, the one\n;\tfour bits\n;\tHIGH = 0xC, user specified literal\n100 1:71\n"
              ";Config register B @ 0x101\n;\ttop bit\n;\tTOP = 0x1, user specified literal\n101 1:80\n");
}

TEST(CfgPsect, Units)
{
    // The neighbour in the unit is skipped, and its comments go ahead of the next node.
    const std::string a = ";Config register A @ 0x100\n;\ttwo bits\n;\tLOW = 0x3, unprogrammed default\n;\tfour bits\n"
                          ";\tHIGH = THREE, three: four\n100 1:4F\n";
    const std::string b = ";Config register B @ 0x101\n";
    EXPECT_EQ(written({"default_configs=off", "HIGH=THREE"}), missing("101") + config + a);
    EXPECT_EQ(written({"default_configs=off", "HIGH=THREE", "ALONE=#7"}),
              missing("101") + config + a + b + ";\tunspecified, skipping\n;Config register ALONE @ 0x104\n;\tusing specified literal value\n104 1:7\n");
    EXPECT_EQ(written({"default_configs=off", "HIGH=THREE", "pad_punits=on"}), missing("101") + config + a + b + b_default);
    // A hole ahead of the word and one behind it.
    const std::string pad = "; Padding undefined space\n";
    EXPECT_EQ(written({"default_configs=off", "ALONE=#7", "pad_punits=#1"}),
              config + ";Config register ALONE @ 0x104\n;\tusing specified literal value\n104 1:7\n" + pad + "105 1:FF\n");
    EXPECT_EQ(written({"default_configs=#2", "pad_punits=on"}).substr(missing("100").size() * 2), written({"default_configs=always"}).substr(missing("100").size() * 2)
              .insert(written({"default_configs=always"}).find(unset_103) - missing("100").size() * 2, pad + "102 1:FF\n") + pad + "105 1:FF\n");
}

TEST(CfgPsect, IdLocations)
{
    const std::string id0 = ";Config register ID0 @ 0x200\n;\tunspecified, using default values\n200 1:AA\n";
    const std::string id1 = ";Config register ID1 @ 0x201\n;\tusing specified literal value\n201 1:12\n";
    const std::string id2 = ";Config register ID2 @ 0x202\n;\tunspecified, using default values\n202 2:CCDD\n";
    EXPECT_EQ(written({"ID1=#12"}), idloc + id1);
    EXPECT_EQ(written({"ID1=#12", "default_idlocs=auto"}), idloc + id0 + id1 + id2);
    EXPECT_EQ(written({"default_idlocs=auto"}), "");
    EXPECT_EQ(written({"default_idlocs=auto", "default_configs=off", "ALONE=#1", "ID2=#FFFF"}),
              config + ";Config register ALONE @ 0x104\n;\tusing specified literal value\n104 1:1\n" + idloc + id0 +
              ";Config register ID1 @ 0x201\n;\tunspecified, using default values\n201 1:BB\n"
              ";Config register ID2 @ 0x202\n;\tusing specified literal value\n202 2:FFFF\n");
}
