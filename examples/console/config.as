; Configuration words and version of the product.
	config	ignore_cmsgs = off, default_idlocs = auto
	config	CLOCK = INTHIGH, PLL = OFF, CLKOUT = OFF
	config	PWRTIMER = ON, BROWNOUT = AWAKE, BROWNVOLT = V220
	config	WDT = OFF, WDTPS = P256
	config	RESETPIN = ON, ANALOGB = OFF, CC2PIN = RC1
	config	LVPROG = OFF, XINST = OFF, STKRESET = ON
	config	READPROT = 0x0F, READPROT2 = 0xC0, WRITEPROT = 0x0F, WRITEPROT2 = 0xE0
	config	IDLOC0 = 1, IDLOC1 = 2

; What this chip has beyond that. A macro of the chip's file: `config` counts in an arm of `if` that doesn't.
	chip_config
