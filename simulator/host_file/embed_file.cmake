# Writes the bytes of INPUT as the initialiser list of a character array to OUTPUT.
file(READ ${INPUT} bytes HEX)
string(REGEX REPLACE "([0-9a-f][0-9a-f])" "0x\\1," bytes "${bytes}")
string(REGEX REPLACE "(....................................................................................................)"
       "\\1\n" bytes "${bytes}")
file(WRITE ${OUTPUT} "${bytes}\n")
