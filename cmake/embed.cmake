# Writes the file IN as a constant of bytes, NAME_text, with its length, NAME_length, to the C++ source OUT.
file(READ ${IN} hex HEX)
string(LENGTH "${hex}" digits)
math(EXPR length "${digits} / 2")
string(REGEX REPLACE "([0-9a-f][0-9a-f])" "0x\\1," bytes "${hex}")
string(REGEX REPLACE "(0x..,0x..,0x..,0x..,0x..,0x..,0x..,0x..,0x..,0x..,0x..,0x..,0x..,0x..,0x..,0x..,)" "\\1\n" bytes "${bytes}")
file(WRITE ${OUT} "#include \"env/catalogue.h\"\n\nconst uint32_t ${NAME}_length = ${length};\nconst unsigned char ${NAME}_text[] = {\n${bytes}\n};\n")
