// imply: the operators that older compilers leave out.
#pragma once

struct symbol_t;

void imply_operators(symbol_t *psect);   // puts them into the nodes of one psect
