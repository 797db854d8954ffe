# Writes the bytes of INPUT as the initialiser list of a character array to OUTPUT and, where HASH names a file, those of
# its SHA-256 there.
function(write_bytes hex file)
  string(REGEX REPLACE "([0-9a-f][0-9a-f])" "0x\\1," bytes "${hex}")
  string(REGEX REPLACE "(....................................................................................................)"
         "\\1\n" bytes "${bytes}")
  file(WRITE ${file} "${bytes}\n")
endfunction()

file(READ ${INPUT} bytes HEX)
write_bytes("${bytes}" ${OUTPUT})
if(HASH)
  file(SHA256 ${INPUT} hash)
  write_bytes("${hash}" ${HASH})
endif()
