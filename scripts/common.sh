# What demo.sh and test.sh share. Sourced with the repository's root as the working directory.

# Installs the Debian packages that are missing.
need_packages() {
  local missing=() package
  for package in "$@"; do
    dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q 'ok installed' || missing+=("$package")
  done
  [ ${#missing[@]} -eq 0 ] && return
  echo "installing ${missing[*]}"
  local as_root=()
  [ "$(id -u)" -eq 0 ] || as_root=(sudo)
  "${as_root[@]}" apt-get update -qq
  DEBIAN_FRONTEND=noninteractive "${as_root[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}" \
    >/dev/null
}

# configure DIRECTORY [CMAKE_OPTION...]; ccache is used where it is installed.
configure() {
  local directory=$1 launcher=()
  shift
  command -v ccache >/dev/null && launcher=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
  cmake -G Ninja -S . -B "$directory" "${launcher[@]}" "$@" >/dev/null
}
