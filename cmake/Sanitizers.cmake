# VEXO_SANITIZE builds everything with AddressSanitizer and UndefinedBehaviorSanitizer;
# any report aborts the process so that a test cannot pass over it.
if(VEXO_SANITIZE)
  add_compile_options(-fsanitize=address,undefined -fno-sanitize-recover=all -fno-omit-frame-pointer)
  add_link_options(-fsanitize=address,undefined)
endif()
