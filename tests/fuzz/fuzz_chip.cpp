// Any bytes at all as a chip information file, behind a program that has to do with the chip's memory and registers. The
// chip is asked for by the end that the names of all sample chips have; they are in dat/ini/.
#include "child.h"

static const char source[] = R"(
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

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    run_child({{"-mcpu=0", "-CFILE"}, {"--maxizel", "-O", "-no_trans", "-A", "--xinst", "-L/dev/null", "-mcpu=10"},
               source, false},
              {reinterpret_cast<const char *>(data), size});
    return 0;
}
