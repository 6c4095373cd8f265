# Every target of ours compiles with the same strict warnings; third-party headers are
# included as system headers and so stay quiet.
add_library(vexo_warnings INTERFACE)
target_compile_options(vexo_warnings INTERFACE -Wall -Wextra -Werror)
# Once -O3 inlines the standard library, GCC 12 reports -Wrestrict wrongly for std::string
# operator+ chains (GCC bug 105651) and -Wstringop-overflow, -Wstringop-overread and
# -Warray-bounds wrongly for std::vector<std::uint8_t> growing by insert or push_back (GCC
# bugs 106199 and 107852), all fixed in GCC 13; they would stop every Release build. Debug
# and RelWithDebInfo builds keep them.
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
  target_compile_options(vexo_warnings INTERFACE
    $<$<CONFIG:Release>:-Wno-restrict -Wno-stringop-overflow -Wno-stringop-overread -Wno-array-bounds>)
endif()
