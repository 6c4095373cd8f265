# The hardening Debian builds its own packages with: checked buffer functions, stack
# protector, and a read-only relocation table bound at start-up. _FORTIFY_SOURCE needs an
# optimising build (glibc warns otherwise, and warnings are errors here) and is left out
# of the sanitizer and fuzzing builds, whose own checks it would hide.
if(NOT VEXO_SANITIZE AND NOT VEXO_BUILD_FUZZERS)
  add_compile_options(-fstack-protector-strong
                      $<$<NOT:$<CONFIG:Debug>>:-U_FORTIFY_SOURCE$<SEMICOLON>-D_FORTIFY_SOURCE=2>)
  add_link_options(LINKER:-z,relro LINKER:-z,now)
endif()
