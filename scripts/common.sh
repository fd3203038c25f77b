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

# configure DIRECTORY [CMAKE_OPTION...]; ccache is used where it is installed. A directory that was configured before keeps
# its generator.
configure() {
  local directory=$1 settings=()
  shift
  [ -f "$directory/CMakeCache.txt" ] || settings+=(-G Ninja)
  command -v ccache >/dev/null && settings+=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
  cmake -S . -B "$directory" "${settings[@]}" "$@" >/dev/null
}

# compile DIRECTORY [TARGET...]
compile() {
  local directory=$1
  shift
  cmake --build "$directory" --parallel "$(nproc)" ${1:+--target "$@"}
}
