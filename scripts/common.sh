# shellcheck shell=bash
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

# is_count TEXT: whether it is a number, 1 at least. Of checks that try nothing all would pass.
is_count() { [[ $1 =~ ^[1-9][0-9]{0,17}$ ]]; }

# need_built DIRECTORY FILE: the script ends when the release tree has no such file.
need_built() {
  [ ! -e "$1/$2" ] || return 0
  echo "${0##*/}: there is no $2 in $1 (build it: cmake --preset release && cmake --build --preset release)" >&2
  exit 2
}

# tree PRESET: the directory that it is built in.
tree() { [ "$1" = release ] && echo build || echo "build-$1"; }

# configure PRESET; ccache is used where it is installed. A tree that was configured before keeps its generator.
configure() {
  local settings=() cache generator
  cache=$(tree "$1")/CMakeCache.txt
  if [ -f "$cache" ]; then
    generator=$(sed -n 's/^CMAKE_GENERATOR:INTERNAL=//p' "$cache")
    settings+=(-G "$generator")
  fi
  ! command -v ccache >/dev/null || settings+=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
  # A tree whose compiler changes forgets the other settings, and has to be told them again.
  [ ! -f "$cache" ] || cmake --preset "$1" "${settings[@]}" >/dev/null || return
  cmake --preset "$1" "${settings[@]}" >/dev/null
}

# compile PRESET [CMAKE_BUILD_OPTION...]
compile() { cmake --build --preset "$@" --parallel "$(nproc)"; }
