# Sourced: builds and runs tests/package/consumer against an installed tree.
#
# Set by the caller: cmake, cxx, toolchain_file (may be empty), emulator (array, may be empty), scratch.
consumer=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)/consumer

# quietly COMMAND...: shows the output only of a failure.
quietly() {
  local output
  output=$("$@" 2>&1) || {
    printf 'failed: %s\n%s\n' "$*" "$output" >&2
    return 1
  }
}

# configure_consumer PACKAGE_DIR [OPTION...]: into $scratch/consumer.
configure_consumer() {
  rm -rf "$scratch/consumer"
  local options=("-DCMAKE_CXX_COMPILER=$cxx")
  [ -z "$toolchain_file" ] || options=("-DCMAKE_TOOLCHAIN_FILE=$toolchain_file")
  "$cmake" -S "$consumer" -B "$scratch/consumer" "${options[@]}" "-DCorvaneCommon_DIR=$1" "${@:2}"
}

# build_by_cmake PACKAGE_DIR [OPTION...]
build_by_cmake() {
  quietly configure_consumer "$@"
  quietly "$cmake" --build "$scratch/consumer"
  cp "$scratch/consumer/consumer" "$scratch/program"
}

# build_by_pkg_config MODULE [FLAG...]; PKG_CONFIG_* say where.
build_by_pkg_config() {
  local flags
  eval "flags=($(pkg-config --cflags --libs "$1"))"  # it quotes for a shell
  quietly "$cxx" -std=c++11 "${@:2}" "$consumer/consumer.cc" "${flags[@]}" -o "$scratch/program"
}

# run_program [LIBRARY_PATH]
run_program() {
  local output
  output=$(LD_LIBRARY_PATH="${1:-}" ${emulator[@]+"${emulator[@]}"} "$scratch/program" 2>&1) || true
  if ! grep -qx 'consumer works' <<<"$output"; then
    printf 'the program failed:\n%s\n' "$output" >&2
    return 1
  fi
}

# check_headers INCLUDE_DIR SUBFOLDER STANDARD [OPTION...]: each header of the folder compiles alone.
check_headers() {
  local header
  for header in "$1/$2"/*.h; do
    quietly "$cxx" "-std=$3" -pedantic -Wall -Wextra -Wconversion -Wshadow -Werror -fsyntax-only \
      "-I$1" "${@:4}" -include "$header" -x c++ /dev/null
  done
}
