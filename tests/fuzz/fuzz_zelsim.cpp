// Any bytes at all as a program or a script. What begins with ":" is a HEX file, and with 0x7F ELF; it then runs for a while on
// the chip with the most, its units and table of vectors. All else is read as a script.
#include <algorithm>

#include "fuzz_chip40.h"
#include "script.h"
#include "target.h"

enum : uint64_t { CYCLES = 5000 };

void target_clean() {}
bool target_may_take_long(std::string_view) { return false; }

void target_run(std::string_view input)
{
    settings_t settings;
    std::map<uint32_t, uint8_t> bytes;
    program_t names;
    std::string told;
    if (input.starts_with('\x7F'))
        read_elf(input, names, bytes, told);
    else if (input.starts_with(':'))
        read_hex(std::string(input), bytes);   // what was read ahead of an error runs, too
    else
        return static_cast<void>(read_script("script", std::string(input), settings));
    std::vector<uint8_t> program(chip.rom_size, 0xFF);
    for (const auto &[at, byte] : bytes)
        if (at < program.size())
            program[at] = byte;
    sim_t sim;
    devices_t devices;
    sim_init(sim, chip, program);
    devices.use_table = true;
    sim.log_tables = false;
    devices_init(devices, sim);
    for (const char *source : {"INT0", "TM1", "SRX2"})
        devices_add_input(devices, sim, {sim_input::FLAG, CYCLES / 10, source, 0, ""});
    devices_add_input(devices, sim, {sim_input::SERIAL, 100, "SRX", 0, "text"});
    do {
        devices_service(devices, sim, CYCLES);
        if (sim.stop == SIM_RUNS)
            sim_go(sim);
    } while (sim.cycles < CYCLES && (sim.stop == SIM_RUNS || devices.asleep));
}
