// A run of the target in a child of this process, see target.h; for the drivers that fork by themselves.
#pragma once

#include <string_view>

// False after a fault, or after running out of time where that is one. `at_end` is called in the child when it ends well.
bool run_forked(std::string_view input, void (*at_end)());
