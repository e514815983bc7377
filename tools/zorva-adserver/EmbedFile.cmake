# Writes a C++ source defining `std::string_view zorva::tools::media::<FUNCTION>()` over the bytes
# of INPUT, so the server carries its media and works from any directory.
# Usage: cmake -DINPUT=<file> -DOUTPUT=<file.cpp> -DFUNCTION=<name> -P EmbedFile.cmake
file(READ "${INPUT}" hex HEX)
string(LENGTH "${hex}" hex_length)
math(EXPR size "${hex_length} / 2")
string(REGEX REPLACE "([0-9a-f][0-9a-f])" "'\\\\x\\1'," bytes "${hex}")
# 16 bytes a line keeps the generated file readable in a debugger.
string(REGEX REPLACE "(('\\\\x[0-9a-f][0-9a-f]',){16})" "\\1\n    " bytes "${bytes}")
get_filename_component(name "${INPUT}" NAME)
file(WRITE "${OUTPUT}.tmp" "// Generated from ${name} by EmbedFile.cmake; do not edit.
#include <string_view>

namespace zorva::tools::media {
namespace {
constexpr char kBytes[${size}] = {
    ${bytes}};
}  // namespace

std::string_view ${FUNCTION}() { return {kBytes, sizeof(kBytes)}; }

}  // namespace zorva::tools::media
")
file(COPY_FILE "${OUTPUT}.tmp" "${OUTPUT}" ONLY_IF_DIFFERENT)
file(REMOVE "${OUTPUT}.tmp")
