// instruction: the instruction statements.
#pragma once

#include <cstdint>

// The instruction whose mnemonic, with the opcode template `subop`, has been taken. False on a syntax error, and without a
// message when the token is no mnemonic, as `*mine` tells.
bool parse_instruction(int token, uint16_t subop, bool *mine);
