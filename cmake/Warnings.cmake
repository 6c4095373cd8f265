# Every target of ours compiles with the same strict warnings; third-party headers are
# included as system headers and so stay quiet.
add_library(vexo_warnings INTERFACE)
target_compile_options(vexo_warnings INTERFACE -Wall -Wextra -Werror)
# GCC 12 reports -Wrestrict wrongly for std::string operator+ chains once -O3 inlines them
# (GCC bug 105651, fixed in GCC 13), which would stop every Release build.
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
  target_compile_options(vexo_warnings INTERFACE $<$<CONFIG:Release>:-Wno-restrict>)
endif()
