// Code from text and back: what the optimiser's tests are written with.
#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <fstream>
#include <string>
#include <vector>

#include "chip/chipinfo.h"
#include "chip/sfrs.h"
#include "code/ops.h"
#include "code/tlab.h"
#include "common/alert.h"
#include "common/srcpos.h"
#include "env/catalogue.h"
#include "front/lexutil.h"
#include "front/parser.h"
#include "optim/optim.h"
#include "optim/reg.h"
#include "options.h"
#include "out/emasm.h"

class Optim : public testing::Test {
protected:
    static void SetUpTestSuite()
    {
        static const alert_services_t services = {catalogue_path, exit};
        alert_set_services(&services);
        opt.cur_chip = chipinfo_load(nullptr, "ZEL8K10");
        sfr_init(opt.cur_chip);
        optim_init();
    }

    // The code of the psect `t`, one statement after another with " / " between; "L:" is a label. x to z are numbers, registers
    // of the access bank; v lies in bank 1; the linker knows r and s, which are banked. Where the code goes on at `start` nothing
    // is needed any more, at `out` everything may be.
    static symbol_t *assemble(const std::string &code)
    {
        char name[] = "/tmp/optimXXXXXX";
        close(mkstemp(name));
        std::string text = "x equ 0F66h\ny equ 0F67h\nz equ 0F68h\nv equ 20h\nstatus equ 0FF4h\nwreg equ 0FF3h\nbsr equ 0FF2h\n"
                           "indf0 equ 0FD0h\npostinc0 equ 0FD1h\npreinc0 equ 0FD3h\nplusw0 equ 0FD4h\ntablat equ 0FF5h\n"
                           "global r,s,out,start,p__Lparam\npsect t,class=CODE\n\t";
        for (size_t i = 0; i < code.size(); i++)
            text += code.compare(i, 3, " / ") == 0 ? i += 2, "\n\t" : std::string(1, code[i]);
        std::ofstream(name) << text << '\n';
        char *sources[] = {name};
        opt.src_files = sources;
        opt.src_count = 1;
        opt.src_next = 0;
        opt.radix = 10;
        sym_init();
        tlab_init();
        lex_init();
        take();   // the end of the text before
        yyparse();
        unlink(name);
        list_build_refs(cur_psect);
        return cur_psect;
    }

    // One node as text without its tabs at the ends; a tab inside is a blank.
    static std::string text_of(const op_t *op)
    {
        std::string text(asm_op(op, ASM_COMPARE));
        for (char &c : text)
            c = c == '\t' || c == '\n' ? ' ' : c;
        text.erase(0, text.find_first_not_of(' '));
        text.erase(text.find_last_not_of(' ') + 1);
        return text;
    }
    static std::string code_of(const symbol_t *psect)
    {
        std::string text;
        for (const op_t *op = psect->s_psect->p_code->head.op_next; op->op_type != 0; op = op->op_next)
            text += (text.empty() ? "" : " / ") + text_of(op);
        return text;
    }
    static op_t *node(const symbol_t *psect, int n)
    {
        op_t *op = psect->s_psect->p_code->head.op_next;
        while (n-- > 0)
            op = op->op_next;
        return op;
    }
};
