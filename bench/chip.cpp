// A chip of its own, so that the figures don't change with the sample chips: the core registers and as many others
// as make up SFR_LINES, each with one field, one address after the other up to the top of memory.

#include "chip.h"

#include <cstdio>

enum { SFR_LINES = 300 };

bool chip_write(const std::string &path)
{
    static const char *const core[] = {
        "TOSU",     "TOSH",     "TOSL",     "STKPTR",   "PCLATU",  "PCLATH",   "PCL",      "TBLPTRU", "TBLPTRH", "TBLPTRL",
        "TABLAT",   "PRODH",    "WREG",     "PRODL",    "INDF0",   "POSTINC0", "POSTDEC0", "PREINC0", "PLUSW0",  "FSR0H",
        "FSR0L",    "INDF1",    "POSTINC1", "POSTDEC1", "PREINC1", "PLUSW1",   "FSR1H",    "FSR1L",   "BSR",     "INDF2",
        "POSTINC2", "POSTDEC2", "PREINC2",  "PLUSW2",   "FSR2H",   "FSR2L",    "STATUS",
    };
    constexpr int cores = sizeof core / sizeof *core;
    FILE *f = fopen(path.c_str(), "w");
    if (!f)
        return false;
    fputs("[ZEL8BENCH]\nARCH=ZEL8\nPROCID=BE00\nRAMSIZE=1000\nROMSIZE=200000\nPCBITS=14\nBSRBITS=4\nCOMMON=0-5F\n"
          "SFRCOMMON=F60-FFF\nGPRBANKS=60-FF,100-1FF,200-2FF,300-3FF\nSFRBANKS=ED4-FFF\nCFGMEM=300000-30000D\n",
          f);
    for (int left = SFR_LINES; left-- > 0;)
        if (left < cores)
            fprintf(f, "SFR=%s,%X,8\n", core[left], 0xFFF - left);
        else
            fprintf(f, "SFR=PERIPH%d,%X,8\n", left, 0xFFF - left);
    for (int left = SFR_LINES; left-- > 0;)
        fprintf(f, "SFRFLD=FIELD%d,%X,%d,1\n", left, 0xFFF - left, left % 8);
    return fclose(f) == 0;
}
