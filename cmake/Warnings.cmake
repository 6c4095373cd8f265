# Every target of ours compiles with the same strict warnings; third-party headers are
# included as system headers and so stay quiet.
add_library(vexo_warnings INTERFACE)
target_compile_options(vexo_warnings INTERFACE -Wall -Wextra -Werror)
