#include "options.h"

static options_t options;
const options_t &opt = options;

options_t &options_to_write() { return options; }
