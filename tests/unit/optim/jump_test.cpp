// The jump rules and the branch stage, beyond what the cases have: code that a rule rewrites, and code that it has to leave
// alone.
#include <algorithm>
#include <random>

#include "fixture.h"
#include "optim/hoist.h"
#include "optim/tails.h"

// The code with a jump's label told by the number of labels before it: new labels have names of their own.
static std::string shape_of(const symbol_t *psect)
{
    std::string shape;
    for (const op_t *op = psect->s_psect->p_code->head.op_next; op->op_type != 0; op = op->op_next) {
        const op_t *target = op_is_skip(op) ? nullptr : op_target(op);
        shape += op->op_type == T_NAME ? "label\n" : target ? std::to_string(op->op_type) : asm_op(op, ASM_COMPARE);
        long labels = 0;
        for (const op_t *before = target; before && before->op_type != 0; before = before->op_prev)
            labels += before->op_type == T_NAME;
        if (target)
            shape += " to label " + std::to_string(labels) + "\n";
    }
    return shape;
}

TEST_F(Optim, TestsAndBranches)
{
    static const row_t rows[] = {
        {"J1 leaves what is marked", "return / incf x ;# / incf y / L: / incf z", "return / incf x ;# / L: / incf z"},
        {"J1 up to an align", "goto out / incf x / k equ 1 / align 2 / incf y", "goto out / k equ 1 / align 2 / incf y"},
        {"J1 up to an org", "goto out / incf x / k equ 1 / org 64 / incf y", "goto out / k equ 1 / org 64 / incf y"},
        {"J1 behind a skip", "{btfsc x,1 / |}L: / if 1 / return / endif / incf y"},
        {"J2 of a toggle", "btfsc x,1 / return / {btg|bcf} x,1 / return"},
        {"J2 through a pointer that moves", "btfsc {postinc0|x},1 / return / bcf {postinc0|x},1 / return"},
        {"J2 of what is volatile", "btfsc x,1{ ;volatile|} / return / bcf x,1 / return"},
        {"J2 behind a skip", "{btfsc y,0 / |}btfsc x,1 / return / bcf x,1 / return"},
        {"J3 of what is volatile", "btfsc x,1{ ;volatile|} / goto L / L: / incf y", "L: / incf y"},
        {"J3 at the end", "btfsc x,1 / goto L / L:", "L:"},
        {"J4 of what is volatile", "btfsc x,1{ ;volatile|} / goto out / L: / goto out", "L: / goto out"},
        {"J5 behind a skip", "{btfsc y,0 / M: / |}btfsc x,1 / goto L / movlw 5 / L: / incf y"},
        {"J5 over no instruction", "btfsc x,1 / goto L / {k equ 5|incf z} / L: / incf y",
         "btfss x,1 / incf z / L: / incf y"},
        {"J5 over a branch that may grow",
         "btfsc x,1 / goto L / bz M / L: / incf y / ds {260|240} / M:", "btfss x,1 / bz M / L: / incf y / ds 240 / M:"},
        {"J7 of a marked return", "btfsc x,1 / goto L / return{ ;volsfr|} / M: / incf z / L: / incf y"},
        {"J8 of the other value", "btfsc x,1 / goto L / nop / USED / L: / {bcf|bsf} x,1"},
        {"J8 of a toggle", "btfss x,1 / goto L / nop / USED / L: / {btg|bcf} x,1"},
        {"J8 of what is volatile", "btfss x,1 / goto L / nop / USED / L: / bcf x,1{ ;volatile|}"},
        {"J8 in a circle", "btfss x,1 / goto L / nop / USED / L: / bcf x,1 / {goto L|incf y}"},
        {"J9 out of reach", "M: / incf y / ds {252|250} / nop / bz L / USED / L: / goto M",
         "M: / incf y / ds 250 / nop / bz M / USED / L: / goto M"},
    };
    expect(jump_walk, rows, shape_of);
}

TEST_F(Optim, Jumps)
{
    static const row_t rows[] = {
        {"J11", "goto M / incf z / L: / M: / incf y", "goto L / L: / M: / incf y"},
        {"J11 of a global label", "{global M / |}goto M / L: / M: / incf y", "goto L / L: / M: / incf y"},
        {"J13 of a distance", "goto {L+2|L} / M: / nop / L: / goto N / K: / clrw / N: / daw"},
        {"J13 in a circle that stays", "goto K / L: / daw / K: / M: / {asmopt off / |}goto M / {asmopt on|nop}"},
        {"J15 of another bit",
         "btfsc x,1 / goto L / goto M / K: / nop / btfss x,{2|1} / goto M / L: / incf y / DEAD / M: / clrf z"},
        {"J15 of the same value",
         "btfsc x,1 / goto L / goto M / K: / nop / btfs{c|s} x,1 / goto M / L: / incf y / DEAD / M: / clrf z"},
        {"J15 behind a skip",
         "btfsc x,1 / goto L / goto M / K: / {decfsz z|nop} / btfss x,1 / goto M / L: / incf y / DEAD / M: / clrf z"},
        {"J16 up to save",
         "goto L / M: / DEAD / L: / int_fun: / nop / retfie / save:", "L: / int_fun: / nop / retfie / M: / DEAD / save:"},
        {"J16 without save", "goto int_fun / M: / DEAD / int_fun: / nop / save: / retfie",
         "int_fun: / nop / save: / retfie / M: / DEAD"},
        {"J16 where control falls in", "goto L / M: / {incf z|DEAD} / L: / int_fun: / incf y / retfie"},
        {"J16 at an address", "goto L / M: / DEAD / L: / int_fun: / nop / USED / {org 64 / |}N: / retfie"},
        {"J12", "goto L / M: / incf z / L: / return", "return / M: / incf z / L: / return"},
    };
    expect(jump_walk, rows, shape_of);
    options_to_write().errata_mask = 0x4000;
    expect(jump_walk, {{{"J12 with errata", "goto L / M: / incf z / L: / {return|goto out}"}}}, shape_of);
    options_to_write().errata_mask = 0;
}

TEST_F(Optim, Tails)
{
    static const row_t rows[] = {
        {"J17 behind a skip", "{btfsc x,1 / |}clrf y / goto L / M: / clrf y / L: / movlw 5"},
        {"J17 of what is marked", "clrf y{ ;volsfr|} / goto L / M: / clrf y / L: / movlw 5"},
        {"J17 of what is volatile", "clrf y / goto L / M: / clrf y{ ;volatile|} / L: / movlw 5"},
        {"J17 of no code", "{if 1 / endif|clrw} / goto L / M: / {if 1 / endif|clrw} / L: / movlw 5"},
        {"J17 without a coverage psect", "incf x / nop / goto L / M: / daw / incf x / nop / L: / clrw",
         "goto P / M: / daw / P: / incf x / nop / L: / clrw"},
        {"J18 past a label", "incf x / nop / USED / M: / clrw / incf x / N: / nop / USED",
         "goto P / M: / clrw / P: / incf x / N: / nop / USED"},
        {"J18 of a skip", "btfsc x,1 / nop / USED / M: / clrw / btfsc x,1 / nop / USED",
         "goto P / M: / clrw / P: / btfsc x,1 / nop / USED"},
        {"J18 of a return", "nop / {retlw r|incf x} / L: / USED / K: / clrw / {retlw r|incf x} / M: / USED"},
    };
    static const row_t covered[] = {
        // with a coverage psect J17 and J18 are off, and labels end a tail
        {"J17 with a coverage psect", "incf x / nop / goto {L|out} / M: / daw / incf x / nop / {L: / clrw|USED}"},
        {"J19 up to a label", "incf x / nop / USED / M: / clrw / incf x / N: / nop / USED",
         "incf x / goto N / M: / clrw / incf x / N: / nop / USED"},
        {"J19 of what control doesn't fall into", "DEAD / {db 1|K:} / nop / USED / M: / clrw / nop / USED"},
        {"J19 with what control doesn't fall into", "clrw / nop / USED / M: / DEAD / {db 1|K:} / nop / USED"},
    };
    expect(jump_walk, rows, shape_of);
    codecov_seen = true;
    expect(jump_walk, covered, shape_of);
    codecov_seen = false;
}

TEST_F(Optim, CommonBeginnings)
{
    static const row_t rows[] = {
        {"another way in", "bc L / comf x / nop / goto M / L: / comf x / clrw / M: / {goto L|nop}"},
        {"an address taken", "bc L / comf x / nop / goto M / L: / comf x / clrw / M: / movlw {low(L)|1}"},
        {"what mustn't follow the branch", "bc L / comf x / {mulwf y|nop} / goto M / L: / comf x / clrw / M:"},
        {"what mustn't pass it", "bc L / {movlw 1|comf y} / movwf x / goto M / L: / {movlw 1|comf y} / clrf x / M:"},
    };
    expect(hoist_walk, rows, shape_of);
    opt_changed = false;
    hoist_walk(assemble("bc L / comf x / goto M / L: / comf y / M:"));
    EXPECT_TRUE(opt_changed) << "nothing in common counts all the same";
}

// The index finds what trying one goto after the other finds, also when the list has changed under it.
TEST_F(Optim, SharedTails)
{
    static const char *const pieces[] = {"incf x",   "incf y", "nop",     "clrw",   "btfsc x,1",
                                         "decfsz y", "daw",    "retlw 1", "call L0"};
    std::mt19937 random(1);
    unsigned merged = 0;
    for (int round = 0; round < 150; round++) {
        std::string code;
        for (unsigned long i = 0, labels = 4 + random() % 8; i < labels; i++) {
            code += "L" + std::to_string(i) + ": / ";
            for (auto n = random() % 7; n > 0; n--)
                code += std::string(pieces[random() % (n > 2 ? 9 : 5)]) + " / ";
            code += random() % 5 ? "goto L" + std::to_string(random() % std::min(labels, 3ul)) + " / " : "";
        }
        codecov_seen = round % 3 == 0;
        std::string shapes[2];
        for (int plain = 0; plain < 2; plain++) {
            symbol_t *psect = assemble(code + "USED");
            const std::string before = shape_of(psect);
            opt_plain_search = plain;
            for (op_t *op = node(psect, 0); op->op_type != 0; op = op->op_next)
                op->op_flags |= OPF_MARK;
            build_all_refs();
            jump_walk(psect);
            shapes[plain] = shape_of(psect);
            merged += shapes[plain] != before;
        }
        EXPECT_EQ(shapes[0], shapes[1]) << code;
    }
    EXPECT_GT(merged, 200u);
    opt_plain_search = codecov_seen = false;

    // One that stands first when the dead code before it is gone
    symbol_t *psect =
        assemble("nop / USED / K: / goto s / N: / nop / USED / L: / goto s / M: / bz K / bz L / bz M / bz N / USED");
    for (op_t *op = node(psect, 2); op->op_type != 0; op = op->op_next)
        op->op_flags |= OPF_MARK;
    jump_walk(psect);
    EXPECT_EQ(shape_of(psect),
              shape_of(assemble("K: / goto s / N: / nop / USED / L: / goto s / M: / bz K / bz L / bz M / bz N / USED")));
}
