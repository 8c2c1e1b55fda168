// debug: commands that run a program step by step and look at it. `help` tells them.
#pragma once

#include "session.h"

// Commands from `read_line`, which is false at the end of input, up to `quit`. Answers go to standard output.
void debug_run(session_t &session, bool (*read_line)(std::string &line));
