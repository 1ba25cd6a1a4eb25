# Sourced by the other scripts: their help, and installing what is missing, by Debian package name.

# show_help SCRIPT ARGUMENT: for -h and --help prints the comment at the head of the script, and ends it.
show_help() {
  case "${2-}" in
    -h | --help)
      sed -n '2,/^[^#]/{s/^# \{0,1\}//p}' "$1"
      exit 0
      ;;
  esac
}

# ensure_packages NAME...: installs those of the packages that are not there yet.
ensure_packages() {
  local missing=() name
  for name in "$@"; do
    if [ "$(dpkg-query -W -f='${db:Status-Status}' "$name" 2>/dev/null)" != installed ]; then
      missing+=("$name")
    fi
  done
  [ ${#missing[@]} -eq 0 ] && return 0

  echo "installing: ${missing[*]}"
  local as_root=()
  if [ "$(id -u)" -ne 0 ]; then
    if ! command -v sudo >/dev/null; then
      echo "Not root, and there is no sudo. As root: apt-get install ${missing[*]}" >&2
      return 1
    fi
    as_root=(sudo)
  fi
  "${as_root[@]}" apt-get update -qq
  "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive \
    apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
}

packages_build=(g++ cmake ninja-build)
packages_tool=(libcli11-dev libpng-dev libjpeg62-turbo-dev nlohmann-json3-dev libopencv-dnn-dev)  # OpenCV runs ONNX
packages_test=(libgtest-dev libgmock-dev pkg-config python3 "${packages_tool[@]}")
packages_cross=(g++-aarch64-linux-gnu qemu-user googletest pkg-config git)
packages_board=(libcli11-dev nlohmann-json3-dev g++-aarch64-linux-gnu)
packages_debian=(build-essential debhelper)
packages_clang=(clang libclang-rt-14-dev)
packages_builds=(clang libc++-dev libc++abi-dev clang-19 lld-19 g++-11 python3-kconfiglib)
packages_lint=(clang-format clang-tidy clang git)
packages_docs=(doxygen git python3)
