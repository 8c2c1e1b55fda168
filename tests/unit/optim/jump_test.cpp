// The jump rules and the branch stage, beyond what the cases have: code that a rule rewrites, and code that it has to leave
// alone. A row is one walk.
#include <algorithm>
#include <random>

#include "fixture.h"
#include "optim/hoist.h"
#include "optim/labels.h"
#include "optim/tails.h"

struct jump_row_t {
    const char *before, *after = nullptr;   // null: stays
};

static const jump_row_t tests_and_branches[] = {
    // J1 to J9
    {"return / incf x ;# / incf y / L: / incf z", "return / incf x ;# / L: / incf z"},
    {"goto out / incf x / k equ 1 / align 2 / incf y", "goto out / k equ 1 / align 2 / incf y"},
    {"goto out / incf x / k equ 1 / org 64 / incf y", "goto out / k equ 1 / org 64 / incf y"},
    {"btfsc x,1 / L: / if 1 / return / endif / incf y"},
    {"btfsc x,1 / return / btg x,1 / return"},
    {"btfsc postinc0,1 / return / bcf postinc0,1 / return"},
    {"btfsc x,1 ;volatile / return / bcf x,1 / return"},
    {"btfsc y,0 / btfsc x,1 / return / bcf x,1 / return"},
    {"btfsc x,1 ;volatile / goto L / L: / incf y"},
    {"btfsc x,1 / goto L / L:", "L:"},
    {"btfsc x,1 ;volatile / goto out / L: / goto out"},
    {"btfsc y,0 / M: / btfsc x,1 / goto L / movlw 5 / L: / incf y"},
    {"btfsc x,1 / goto L / k equ 5 / L: / incf y"},
    {"btfsc x,1 / goto L / bz M / L: / incf y / ds 240 / M:", "btfss x,1 / bz M / L: / incf y / ds 240 / M:"},
    {"btfsc x,1 / goto L / bz M / L: / incf y / ds 260 / M:"},
    {"btfsc x,1 / goto L / return ;volsfr / M: / incf z / L: / incf y"},
    {"btfsc x,1 / goto L / nop / USED / L: / bcf x,1"},
    {"btfss x,1 / goto L / nop / USED / L: / btg x,1"},
    {"btfss x,1 / goto L / nop / USED / L: / bcf x,1 ;volatile"},
    {"btfss x,1 / goto L / nop / USED / L: / bcf x,1 / goto L"},
    {"M: / incf y / ds 252 / bz L / USED / L: / goto M", "M: / incf y / ds 252 / bz M / USED / L: / goto M"},
    {"M: / incf y / ds 254 / bz L / USED / L: / goto M"},
};

static const jump_row_t jumps[] = {
    // J10 to J16
    {"goto M / incf z / L: / M: / incf y", "goto L / L: / M: / incf y"},
    {"global M / goto M / L: / M: / incf y"},
    {"goto L+2 / M: / nop / L: / goto N / K: / clrw / N: / daw"},
    {"goto K / L: / daw / K: / M: / asmopt off / goto M / asmopt on"},
    {"btfsc x,1 / goto L / goto M / K: / nop / btfss x,2 / goto M / L: / incf y / DEAD / M: / clrf z"},
    {"btfsc x,1 / goto L / goto M / K: / nop / btfsc x,1 / goto M / L: / incf y / DEAD / M: / clrf z"},
    {"btfsc x,1 / goto L / goto M / K: / decfsz z / btfss x,1 / goto M / L: / incf y / DEAD / M: / clrf z"},
    {"goto L / M: / DEAD / L: / int_fun: / nop / retfie / save:", "L: / int_fun: / nop / retfie / M: / DEAD / save:"},
    {"goto int_fun / M: / DEAD / int_fun: / nop / save: / retfie", "int_fun: / nop / save: / retfie / M: / DEAD"},
    {"goto L / M: / incf z / L: / int_fun: / incf y / retfie"},
    {"goto L / M: / DEAD / L: / int_fun: / nop / USED / org 64 / N: / retfie"},
};

static const jump_row_t tails[] = {
    // J17 to J19
    {"btfsc x,1 / clrf y / goto L / M: / clrf y / L: / movlw 5"},
    {"clrf y ;volsfr / goto L / M: / clrf y / L: / movlw 5"},
    {"clrf y / goto L / M: / clrf y ;volatile / L: / movlw 5"},
    {"if 1 / endif / goto L / M: / if 1 / endif / L: / movlw 5"},
    {"incf x / nop / USED / M: / clrw / incf x / N: / nop / USED", "goto P / M: / clrw / P: / incf x / N: / nop / USED"},
    {"btfsc x,1 / nop / USED / M: / clrw / btfsc x,1 / nop / USED", "goto P / M: / clrw / P: / btfsc x,1 / nop / USED"},
    {"nop / retlw r / L: / USED / K: / clrw / retlw r / M: / USED"},
};

// With a coverage psect J17 and J18 are off, and labels end a tail.
static const jump_row_t covered[] = {
    {"incf x / nop / goto L / M: / daw / incf x / nop / L: / clrw"},
    {"incf x / nop / USED / M: / clrw / incf x / N: / nop / USED", "incf x / goto N / M: / clrw / incf x / N: / nop / USED"},
    {"DEAD / db 1 / nop / USED / M: / clrw / nop / USED"},
    {"clrw / nop / USED / M: / DEAD / db 1 / nop / USED"},
};

static const jump_row_t branches[] = {
    {"bc L / comf x / goto M / L: / comf y / M:", "bc L / comf x / goto M / L: / comf y / M:"},   // counts all the same
    {"bc L / comf x / nop / goto M / L: / comf x / clrw / M: / goto L"},
    {"bc L / comf x / nop / goto M / L: / comf x / clrw / M: / movlw low(L)"},
    {"bc L / comf x / mulwf y / goto M / L: / comf x / clrw / M:"},
    {"bc L / movlw 1 / movwf x / goto M / L: / movlw 1 / clrf x / M:"},
};

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

template <size_t N>
static void expect_rows(const jump_row_t (&rows)[N], void (*pass)(symbol_t *psect), symbol_t *(*assemble)(std::string))
{
    for (const jump_row_t &row : rows) {
        symbol_t *psect = assemble(row.before);
        for (op_t *op = psect->s_psect->p_code->head.op_next; op->op_type != 0; op = op->op_next)
            op->op_flags |= OPF_MARK;
        note_taken_labels();
        opt_changed = false;
        pass(psect);
        EXPECT_EQ(opt_changed, row.after != nullptr) << row.before;
        const std::string result = shape_of(psect);
        EXPECT_EQ(result, shape_of(assemble(row.after ? row.after : row.before))) << row.before;
    }
}

TEST_F(Optim, JumpRules)
{
    expect_rows(tests_and_branches, jump_walk, assemble);
    expect_rows(jumps, jump_walk, assemble);
    expect_rows(tails, jump_walk, assemble);
    codecov_seen = true;
    expect_rows(covered, jump_walk, assemble);
    codecov_seen = false;
    expect_rows(branches, hoist_walk, assemble);
    options_to_write().errata_mask = 0x4000;
    expect_rows({{"goto L / M: / incf z / L: / return"}}, jump_walk, assemble);   // J12
    options_to_write().errata_mask = 0;
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
            note_taken_labels();
            jump_walk(psect);
            shapes[plain] = shape_of(psect);
            merged += shapes[plain] != before;
        }
        EXPECT_EQ(shapes[0], shapes[1]) << code;
    }
    EXPECT_GT(merged, 200u);
    opt_plain_search = codecov_seen = false;
}
