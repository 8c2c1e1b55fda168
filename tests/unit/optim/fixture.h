// Code from text and back: what the optimiser's tests are written with.
#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstring>
#include <fstream>
#include <span>
#include <string>

#include "chip/chipinfo.h"
#include "chip/sfrs.h"
#include "code/ops.h"
#include "code/tlab.h"
#include "common/alert.h"
#include "env/catalogue.h"
#include "front/lexutil.h"
#include "front/parser.h"
#include "front/statement.h"
#include "optim/jump.h"
#include "optim/labels.h"
#include "optim/node.h"
#include "optim/report.h"
#include "options.h"
#include "out/emasm.h"

class Optim : public testing::Test
{
  protected:
    static void SetUpTestSuite()
    {
        static const alert_services_t services = {catalogue_path, exit};
        alert_set_services(&services);
        alert_set_log(unexpected);
        chipinfo_t *chip = chipinfo_load(nullptr, "ZEL8K10");
        chip_select(chip);
        sfr_init(chip);
        jump_init();
    }

    static void unexpected(const char *message) { ADD_FAILURE() << message; }

    // The code of the psect `t`: statements with " / " between, "L:" a label. x, y, z are numbers, registers
    // of the access bank, and v is one that may be an offset in any bank; r and s are known to the linker only. Where the
    // code goes on at DEAD nothing is needed any more, at USED everything may be.
    static symbol_t *assemble(std::string code)
    {
        static const char *const words[][2] = {{"DEAD", "goto start"}, {"USED", "goto out"}, {" / ", "\n\t"}};
        for (auto [word, text] : words)
            for (size_t at; (at = code.find(word)) != std::string::npos;)
                code.replace(at, strlen(word), text);
        char name[] = "/tmp/optimXXXXXX";
        close(mkstemp(name));
        std::ofstream(name)
            << "x equ 0F66h\ny equ 0F67h\nz equ 0F65h\nv equ 20h\nstatus equ 0FF4h\nwreg equ 0FF3h\npcl equ 0FECh\n"
               "bsr equ 0FF2h\nindf0 equ 0FD0h\npostinc0 equ 0FD1h\nplusw0 equ 0FD4h\n"
               "global r,s,out,start,p__Lparam\npsect t,class=CODE\n\t"
            << code << '\n';
        char *sources[] = {name};
        options_to_write().src_files = sources;
        options_to_write().src_count = 1;
        sym_init();
        tlab_init();
        lex_init();
        take();   // the end of the text before
        yyparse();
        unlink(name);
        for (op_t *op = node(cur_psect, 0); op->op_type != 0; op = op->op_next) {
            value_eval(&op->op_opnd1.opnd_value);
            if (op->op_second)
                value_eval(&op->op_second->opnd_value);
        }
        list_build_refs(cur_psect);
        return cur_psect;
    }

    static op_t *node(const symbol_t *psect, int n)
    {
        op_t *op = psect->s_psect->p_code->head.op_next;
        while (n-- > 0)
            op = op->op_next;
        return op;
    }

    static std::string text_of(const symbol_t *psect)
    {
        std::string text;
        for (const op_t *op = node(psect, 0); op->op_type != 0; op = op->op_next)
            text += asm_op(op, ASM_COMPARE);
        return text;
    }

    // A row of a table. In its code {a|b} stands for a, with which the rule has to keep still, and b, with which it fires.
    struct row_t {
        const char *label, *code, *after = nullptr;   // null: something else, if the code has two forms
    };
    static std::string form(std::string code, bool fires)
    {
        for (size_t from; (from = code.find('{')) != std::string::npos;) {
            const size_t bar = code.find('|', from), to = code.find('}', from);
            code.replace(from, to + 1 - from,
                         fires ? code.substr(bar + 1, to - bar - 1) : code.substr(from + 1, bar - from - 1));
        }
        return code;
    }

    // That `walk` does so with each row; `shape` tells what the code is.
    static void expect(void (*walk)(symbol_t *psect), std::span<const row_t> rows,
                       std::string (*shape)(const symbol_t *) = text_of)
    {
        for (const row_t &row : rows)
            for (const bool fires : {false, true}) {
                const std::string code = form(row.code, fires);
                SCOPED_TRACE(std::string(row.label) + ": " + code);
                if (!fires && code == row.code)
                    continue;   // it has one form only
                symbol_t *psect = assemble(code);
                const std::string before = shape(psect);
                for (op_t *op = node(psect, 0); op->op_type != 0; op = op->op_next)
                    op->op_flags |= OPF_MARK;
                build_all_refs();
                opt_changed = false;
                walk(psect);
                const std::string result = shape(psect);
                EXPECT_EQ(opt_changed, fires);
                if (!fires)
                    EXPECT_EQ(result, before);
                else if (row.after)
                    EXPECT_EQ(result, shape(assemble(row.after)));
                else
                    EXPECT_NE(result, before);
            }
    }
};
