# For the other tools to source: ensures that Debian packages are installed.
#   ensure_packages COMMAND-NAME PACKAGE...
# Installs what is missing, as root or through sudo; otherwise says what to install and ends with 1.
# Everything it prints goes to standard error.
ensure_packages() {
  local for_what=$1 package
  shift
  local missing=()
  for package in "$@"; do
    [ "$(dpkg-query -W -f='${db:Status-Status}' "$package" 2>/dev/null)" = installed ] ||
      missing+=("$package")
  done
  [ ${#missing[@]} -eq 0 ] && return 0
  local as_root=()
  if [ "$(id -u)" -ne 0 ]; then
    if ! command -v sudo >/dev/null || ! sudo -n true 2>/dev/null; then
      echo "$for_what needs these packages; install them and try again:" >&2
      echo "  apt-get install ${missing[*]}" >&2
      exit 1
    fi
    as_root=(sudo -n)
  fi
  "${as_root[@]}" apt-get update -qq >&2 &&
    "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends "${missing[@]}" >&2
}

# What building takes, what the tests take besides, and what the Windows programs take.
build_packages=(g++ cmake ninja-build pkgconf libtomlplusplus-dev libmnl-dev libedit-dev)
test_packages=(libgtest-dev libgmock-dev iproute2)
windows_packages=(g++-mingw-w64-x86-64-win32 g++-mingw-w64-i686-win32)
