// Any bytes at all as a chip information file, behind a program that has to do with the chip's memory and registers. The
// chip is asked for by the end that the names of all sample chips have; they are in dat/ini/.
#include "target.h"

static std::string program(std::string_view, std::string_view)
{
    return R"(
	global	ext
	psect	ram,class=RAM,space=1
v:	ds	2
	psect	text,class=CODE,reloc=2
start:	movlw	5
	movwf	v,c
	movwf	0x60
	movff	v,0xFF3
	movwf	0xFE0
	addwf	ext,w,b
	bcf	0xFD8,0,c
	clrf	0xF60
	movlb	2
	goto	start
	end	start
)";
}

const assembly_t assembly = {
    "in.ini",
    '#',
    {"-mcpu=0", "-Cin.ini"},
    true,
    {{'M', "--maxizel"}, {'O', "-O"}, {'T', "-no_trans"}, {'A', "-A"}, {'X', "--xinst"}, {'L', "-L"}, {'1', "-mcpu=10"}},
    program,
    nullptr};
