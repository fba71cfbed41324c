# Script behind ksutil_embed_text: turns INPUT into a C++ source OUTPUT that defines SYMBOL.
file(READ ${INPUT} hex HEX)
string(REGEX REPLACE "([0-9a-f][0-9a-f])" "0x\\1," bytes "${hex}")
set(row "")
foreach(i RANGE 1 16)
  string(APPEND row "0x..,")
endforeach()
string(REGEX REPLACE "(${row})" "\\1\n" body "${bytes}")
file(WRITE ${OUTPUT}
  "namespace ksutil::embedded {\nextern const char ${SYMBOL}[];\n"
  "const char ${SYMBOL}[] = {\n${body}0};\n}  // namespace ksutil::embedded\n")
