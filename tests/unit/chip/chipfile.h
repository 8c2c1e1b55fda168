// Chip files for tests: written, read, and what the read said kept with the result.
#pragma once

#include <gtest/gtest.h>

#include "../common/child.h"
#include "chip/chipinfo.h"
#include "common/alert.h"
#include "env/catalogue.h"

struct stopped_t {};   // thrown by a fatal message

struct ChipFile : testing::Test {
    scratch_dir_t scratch;
    std::string said;   // messages, a line each, without the directory's name
    ~ChipFile() override { opt.cur_chip = nullptr; }
    std::string path(const std::string &name) const { return scratch.path + "/" + name; }
    template <class F> void listen(F fn) {
        static const alert_services_t services = {catalogue_path, [](int) { throw stopped_t(); }};
        alert_set_services(&services);
        alert_set_formats("%f: (%n) %s", "%f: (%n) %s", nullptr);
        testing::internal::CaptureStderr();
        try {
            fn();
        } catch (const stopped_t &) {
        }
        said = testing::internal::GetCapturedStderr();
        for (size_t at; (at = said.find(path(""))) != std::string::npos;) said.erase(at, path("").size());
    }
    // Reads `chip` from a file "f" of that text; null after a fatal message.
    chipinfo_t *load(const std::string &text, const char *chip = "ZEL8T1") {
        chipinfo_t *ci = nullptr;
        write_file(path("f"), text);
        listen([&] { ci = chipinfo_load(path("f").c_str(), chip); });
        return ci;
    }
    sfr_t *find(chipinfo_t *ci, const char *name) {
        sfr_t *sfr = nullptr;
        listen([&] { sfr = chip_findSFR(ci, name); });
        return sfr;
    }
    // Whether there is a message with exactly that text; of the file "f" when a line is given.
    testing::AssertionResult has(unsigned number, const std::string &text, int line = 0) const {
        std::string whole = "(" + std::to_string(number) + ") " + text;
        if (line) whole += " in chipinfo file \"f\" at line " + std::to_string(line);
        if ((said + "\n").find(whole + "\n") != std::string::npos) return testing::AssertionSuccess();
        return testing::AssertionFailure() << "no " << whole << "\nin: " << said;
    }
    void fails(const std::string &text, unsigned number, const std::string &words, int line) {
        EXPECT_EQ(load(text), nullptr);
        EXPECT_TRUE(has(number, words, line)) << text;
    }
};

// All that a ZEL8 section needs, in 13 lines with the header; `more` comes behind.
inline std::string zel8(const std::string &more = "", const char *name = "ZEL8T1", const char *arch = "ZEL8") {
    return std::string("[") + name + "]\nARCH=" + arch + "\nRAMSIZE=600\nROMSIZE=8000\nCOMMON=0-5F\nSFRCOMMON=F60-FFF\n"
           "GPRBANKS=60-FF,100-1FF\nSFRBANKS=F40-F5F\nCFGMEM=230000-230009\nPCBITS=14\nBSRBITS=4\nSFR=WREG,FF3,8\n"
           "SFRFLD=W0,FF3,0,1\n" + more;
}
// The same less the line of `key`.
inline std::string zel8_without(const std::string &key, const std::string &more = "") {
    std::string text = zel8(more);
    size_t at = text.find("\n" + key + "=") + 1;
    return text.erase(at, text.find('\n', at) + 1 - at);
}
inline std::string mid(const char *arch, const std::string &more) {   // 11 lines of the other family
    return std::string("[ZEL8T1]\nARCH=") + arch + "\nROMSIZE=800\nBANKS=104\nBANKSIZE=80\nPAGESIZE=800\nSTACKDEPTH=8\n"
           "PCBITS=B\nBANKSELBITS=2\nRAMBANK=20-7F,B0-EF\nCOMMON=70-7F\n" + more;
}
inline std::string show(const memrange_t *list) {
    std::string text;
    for (char piece[32]; list; list = list->next) {
        snprintf(piece, sizeof piece, "%X-%X ", list->lo, list->hi);
        text += piece;
    }
    return text;
}
inline std::string show(vec_t<memrange_t *> ranges) {
    std::string text;
    for (const memrange_t *r : ranges) text += show(r);
    return text;
}
