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

# corvane_board_program(TARGET): a program or module that starts on a board's bare image, where
# CORVANE_BOARD_TOOLS asks for it: with the C++ library inside, and with nothing of a newer glibc.
function(corvane_board_program target)
  if(NOT CORVANE_BOARD_TOOLS)
    return()
  endif()
  target_sources(${target} PRIVATE ${PROJECT_SOURCE_DIR}/tools/board/old_glibc.c)
  set_source_files_properties(${PROJECT_SOURCE_DIR}/tools/board/old_glibc.c TARGET_DIRECTORY ${target}
    PROPERTIES COMPILE_OPTIONS "-std=gnu11;-Wno-maybe-uninitialized;-Wno-shadow")
  target_compile_options(${target} PRIVATE -ffunction-sections -fdata-sections)
  target_link_options(${target} PRIVATE -static-libstdc++ -static-libgcc -Wl,--gc-sections)
  # What glibc has had in one library since 2.34 was in three.
  target_link_libraries(${target} PRIVATE
    -Wl,--push-state,--no-as-needed -l:libpthread.so.0 -l:libdl.so.2 -Wl,--pop-state)
endfunction()
