#include "options.h"

options_t opt;
