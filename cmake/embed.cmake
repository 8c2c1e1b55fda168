# Writes the file IN as a constant of bytes, with its length, to the C++ source OUT.
file(READ ${IN} hex HEX)
string(LENGTH "${hex}" digits)
math(EXPR length "${digits} / 2")
string(REGEX REPLACE "([0-9a-f][0-9a-f])" "0x\\1," bytes "${hex}")
string(REGEX REPLACE "(0x..,0x..,0x..,0x..,0x..,0x..,0x..,0x..,0x..,0x..,0x..,0x..,0x..,0x..,0x..,0x..,)" "\\1\n" bytes "${bytes}")
file(WRITE ${OUT} "#include \"env/catalogue.h\"\n\nconst uint32_t catalogue_length = ${length};\nconst unsigned char catalogue_text[] = {\n${bytes}\n};\n")
