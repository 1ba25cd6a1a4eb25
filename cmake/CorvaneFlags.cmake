# Flags for every target of this project. corvane_flags(TARGET) is called once for each.
function(corvane_flags target)
  # The promised bits depend on one rounding per operation: both GCC and Clang fuse a * b + c on
  # AArch64 by default, and a parent project may ask for -ffast-math or -Ofast. These come last.
  target_compile_options(${target} PRIVATE -fno-fast-math -ffp-contract=off -Wall -Wextra -Wconversion -Wshadow)
  if(CORVANE_WARNINGS_AS_ERRORS)
    target_compile_options(${target} PRIVATE -Werror)
  endif()
  if(CORVANE_SANITIZE)
    target_compile_options(${target} PRIVATE -fsanitize=${CORVANE_SANITIZE} -fno-omit-frame-pointer
                                             -fno-sanitize-recover=all)
    target_link_options(${target} PRIVATE -fsanitize=${CORVANE_SANITIZE})
  endif()
  if(CORVANE_HARDENING AND NOT CORVANE_SANITIZE)
    # Fortifying needs the optimiser; undefined first, for compilers that predefine another level.
    target_compile_options(${target} PRIVATE -fstack-protector-strong
      $<$<NOT:$<CONFIG:Debug>>:-U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2>)
    target_link_options(${target} PRIVATE -Wl,-z,relro -Wl,-z,now -Wl,-z,noexecstack)
  endif()
  set_target_properties(${target} PROPERTIES
    CXX_STANDARD_REQUIRED ON CXX_EXTENSIONS OFF
    CXX_VISIBILITY_PRESET hidden VISIBILITY_INLINES_HIDDEN ON POSITION_INDEPENDENT_CODE ON)
endfunction()
