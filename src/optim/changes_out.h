// changes_out: the report of what the optimiser did, for people or for programs. The manual tells both forms.
#pragma once

#include <cstdio>

// Writes what `changes` holds, as lines or as JSON. To `to`, whose errors are for the caller to see.
void changes_write_text(FILE *to);
void changes_write_json(FILE *to);
