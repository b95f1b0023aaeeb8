# Makes a source file of any file: cmake -DINPUT=FILE -DOUTPUT=FILE.cpp -DNAME=NAME [-DPLAIN=ON] -P Embed.cmake
# It defines NAME, a view of the bytes, and NAME_SHA256, their hash in hexadecimal digits. PLAIN leaves out the
# indentation and the comments of a script or style that is a part of every page: "/*" at any place, and "//"
# after a blank or a line feed.
if(PLAIN)
  file(READ "${INPUT}" text)
  string(REGEX REPLACE "/\\*([^*]|\\*[^/])*\\*/ ?" "" text "\n${text}")
  string(REGEX REPLACE "[ \n]//[^\n]*" "\n" text "${text}")
  string(REGEX REPLACE " *\n[ \n]*" "\n" text "${text}")
  string(REGEX REPLACE "([{,;])\n" "\\1" text "${text}")
  set(INPUT "${OUTPUT}.txt")
  file(WRITE "${INPUT}" "${text}")
endif()
file(READ "${INPUT}" bytes HEX)
file(SHA256 "${INPUT}" hash)
string(REPEAT "[0-9a-f]" 32 line)
string(REGEX REPLACE "(${line})" "\\1\n    " bytes "${bytes}")
string(REGEX REPLACE "([0-9a-f][0-9a-f])" "'\\\\x\\1'," bytes "${bytes}")
file(WRITE "${OUTPUT}" "#include <string_view>

extern const std::string_view ${NAME};
extern const std::string_view ${NAME}_SHA256;

namespace {
constexpr char DATA[] = {
    ${bytes}'\\0'};
}  // namespace

const std::string_view ${NAME}{static_cast<const char*>(DATA), sizeof DATA - 1};
const std::string_view ${NAME}_SHA256 = \"${hash}\";
")
