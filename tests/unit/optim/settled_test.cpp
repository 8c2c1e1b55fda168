// Passing over settled psects leaves everything as it would be otherwise: programs of several psects whose code jumps and calls
// from one to the other, so that what one pass changes lets rules apply elsewhere.
#include "optim/settled.h"

#include <algorithm>
#include <random>
#include <vector>

#include "fixture.h"
#include "optim/driver.h"

static std::string some(std::mt19937 &random, std::initializer_list<const char *> of)
{
    return of.begin()[random() % of.size()];
}

// Jumps lead to a label of the own psect, or anywhere, or to the first label of another.
static std::string target(std::mt19937 &random, unsigned long own, unsigned long psects)
{
    const unsigned long other = random() % 3 ? own : random() % psects;
    return "L" + std::to_string(other) + "_" + std::to_string(random() % 5 ? random() % 4 : 0);
}

static std::string statement(std::mt19937 &random, unsigned long own, unsigned long psects)
{
    switch (random() % 8) {
    case 0: return "goto " + target(random, own, psects);
    case 1: return "call " + target(random, own, psects) + (random() % 2 ? " / return" : "");
    case 2: return some(random, {"btfsc x,1", "btfss status,2", "decfsz y"}) + " / goto " + target(random, own, psects);
    case 3: return some(random, {"return", "retlw 1", "nop", "daw"});
    case 4: return "movlw " + some(random, {"0", "1", "255", "low(L0_1)"});
    case 5: return some(random, {"movwf x", "clrf y", "movff x,y", "movff x,fsr0"});
    case 6: return some(random, {"addlw 0", "andlw 255", "iorlw 0", "incf x", "movf y,w"});
    default: return some(random, {"incf x / incf y / daw", "clrw / incf y / movwf z", "movlw 1 / movwf x / movwf z"});
    }
}

static std::string several_psects(std::mt19937 &random)
{
    std::string code = "fsr0 equ 0FD2h";
    for (unsigned long p = 0, psects = 2 + random() % 8; p < psects; p++) {
        code += " / psect text" + std::to_string(p) + ",class=CODE";
        for (int l = 0; l < 4; l++) {
            code += " / L" + std::to_string(p) + "_" + std::to_string(l) + ":";
            for (auto n = random() % 5; n > 0; n--)
                code += " / " + statement(random, p, psects);
        }
        code += " / " + some(random, {"return", "goto out", "goto L0_0"});
        if (p == 0 || random() % 2)
            code += " / global L" + std::to_string(p) + "_0";
    }
    return code;
}

// Each psect can be simplified further only when the next one has been, in whatever order they come: as what it computes isn't
// needed there, which may be behind code that stays, or as nothing leads to the next one's code any more.
static std::string chain_of_psects(std::mt19937 &random)
{
    const unsigned long links = 3 + random() % 5;
    std::vector<std::string> code(links + 1);
    for (unsigned long i = 0; i <= links; i++) {
        const std::string n = std::to_string(i), next = std::to_string(i + 1);
        code[i] = " / psect text" + n + ",class=CODE / nop / goto out / D" + n + ": / ";
        if (i == links) {
            code[i] += "incf y / goto out / W" + n + ": / movlw 1";
        } else {
            code[i] += random() % 3 ? some(random, {"call D", "goto D"}) + next : "movlw low(D" + next + ")";
            code[i] += " / goto out / W" + n + ": / btfsc z,1 / " + some(random, {"addwf", "andwf", "iorwf"}) +
                       " y,w / incf x / " + some(random, {"goto W", "call W", "goto I", "call I"}) + next + " / movlw 2";
        }
        code[i] += " / movwf z / goto out / psect itext" + n + ",class=CODE / I" + n + ": / nop / goto W" + n;
    }
    std::shuffle(code.begin(), code.end(), random);
    std::string all = "global W0";
    for (const std::string &psect : code)
        all += psect;
    return all;
}

static std::string all_texts(std::string (*text_of)(const symbol_t *psect))
{
    std::string all;
    for (const code_list_t *list : psect_list)
        all += text_of(list->psect);
    return all;
}

TEST_F(Optim, SettledPsects)
{
    std::mt19937 random(1);
    uint32_t passes[2] = {0, 0};
    unsigned changed = 0;
    options_to_write().optimise = true;
    for (int round = 0; round < 300; round++) {
        const std::string code = round % 2 ? chain_of_psects(random) : several_psects(random);
        std::string before, after[2];
        for (const bool every : {false, true}) {
            assemble(code);
            before = all_texts(text_of);
            optimise_every_pass = every;
            const uint32_t made = settled_passes;
            optimise_run();
            passes[every] += settled_passes - made;
            after[every] = all_texts(text_of);
        }
        EXPECT_EQ(after[0], after[1]) << code;
        changed += after[0] != before;
    }
    options_to_write().optimise = optimise_every_pass = false;
    EXPECT_LT(passes[0], passes[1] * 9 / 10);
    EXPECT_GT(changed, 250u);
}
