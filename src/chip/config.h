// config: what the `config` statements of a source say.
//
// A statement names a configuration byte or ID location, one of its settings, or an option of this module, and gives it a
// named value or a number. The first two change the model of the configuration data (cfgdata); nothing is written here.
// Messages: 1363 for what isn't known, isn't a value, or was refused; 1361 for a wrong word behind an option.
#pragma once

#include <cstdint>

#include "chip/cfgdata.h"

void cfg_prog_with_name(const char *what, const char *with);
void cfg_prog_with_value(const char *what, uint64_t number);

// What the statements have set beside the model.
enum cfg_when_t : uint8_t { CFG_OFF, CFG_AUTO, CFG_ALWAYS };   // auto: if any word of the kind is programmed

struct cfg_options_t {
    uint8_t ignore_cmsgs = 1;             // 0 or 1: keep the messages of the configuration data back
    uint8_t apply_mask = 1;               // 0 or 1: kept, and without effect
    uint8_t pad_punits = 0;               // 0 or 1: fill the holes among locations that are programmed together
    uint8_t default_idlocs = CFG_OFF;     // cfg_when_t: when to write ID locations that the source left alone,
    uint8_t default_configs = CFG_AUTO;   // and configuration words
    bool cfg_any_config, cfg_any_idloc;   // a statement named a word or setting of the region
    cfg_place_t place;                    // of the last statement
};
const cfg_options_t *cfg_options();
