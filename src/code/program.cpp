// One record, filled by the directives in the order of the source and read when everything is written. Nothing here has a
// place in a code list, so nothing here is touched by the passes between.
#include "code/program.h"

#include "options.h"

program_t program;

void program_init()
{
    program = {};
    program.page = {opt.form_length, opt.page_width};
}
