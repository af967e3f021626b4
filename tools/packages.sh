# What the tools share; read by them, not run. Sets `root`, the folder of the sources.

# Where the sources are, whatever leads here: a symbolic link, a path with blanks, CDPATH.
unset CDPATH
root=$(realpath "$(dirname "${BASH_SOURCE[0]}")/..")

# What building takes, what the tests take besides, and what the Windows programs take.
build_packages=(g++ cmake ninja-build pkgconf libtomlplusplus-dev libmnl-dev libedit-dev)
test_packages=(libgtest-dev libgmock-dev iproute2)
windows_packages=(g++-mingw-w64-x86-64-win32 g++-mingw-w64-i686-win32)

# ensure_packages FOR-WHAT PACKAGE...: installs the Debian packages that are missing, as root or by
# sudo, which asks for a password where there is a terminal, wherever output goes; or says which they
# are and how to install them.
ensure_packages() {
  local for_what=$1 missing=() package as_root=()
  shift
  for package in "$@"; do
    [ "$(dpkg-query -W -f='${db:Status-Status}' "$package" 2>/dev/null)" = installed ] ||
      missing+=("$package")
  done
  [ ${#missing[@]} -ne 0 ] || return 0
  if [ "$(id -u)" -ne 0 ]; then
    as_root=(sudo)
    { : </dev/tty; } 2>/dev/null || as_root=(sudo -n)
    command -v sudo >/dev/null || as_root=(false)
  fi
  "${as_root[@]}" apt-get update -qq >&2 &&
    "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends \
      "${missing[@]}" >&2 && return 0
  {
    echo "$for_what: some packages are missing and could not be installed. As root, with a network:"
    echo "  apt-get update"
    echo "  apt-get install --no-install-recommends ${missing[*]}"
  } >&2
  return 1
}

# build PRESET [OPTION...] [-- OPTION-OF-THE-BUILD...]: configures and builds. Whoever else builds in
# this tree is waited for; what was built when the sources stood elsewhere is made anew.
build() (
  preset=$1
  shift
  options=()
  while [ $# -gt 0 ] && [ "$1" != -- ]; do
    options+=("$1")
    shift
  done
  [ $# -eq 0 ] || shift
  mkdir -p "$root/build" && exec 9>"$root/build/lock" || {
    echo "The folder build in $root cannot be written: copy the sources to where it can." >&2
    exit 1
  }
  flock 9
  cache=$root/build/$preset/CMakeCache.txt
  if [ -e "$cache" ] && ! grep -qxF "CMAKE_HOME_DIRECTORY:INTERNAL=$root" "$cache"; then
    rm -rf "$root/build/$preset"
  fi
  cd "$root" &&
    cmake --preset "$preset" "${options[@]}" 9>&- &&
    cmake --build --preset "$preset" "$@" 9>&-
)
