#!/usr/bin/env bash
# Builds the Debian packages, in a Debian of their own that has what debian/control asks for and nothing else. Nothing is
# installed on this machine but the programs that do so, and no foreign architecture is added to it.
#
# usage: scripts/packages.sh [--once|--build] [ARCHITECTURE]   amd64 or arm64; this machine's unless told otherwise
#
# Builds twice, in different folders, at different times and with different habits, and compares the packages byte by
# byte (with --once it builds once and compares nothing); shows them to lintian, which may have nothing to say; holds the
# services to their sandbox; and installs and uses them where nothing else is (tests/packages/use_packages.sh), those for
# arm64 in qemu-user on a machine that is no such. --build does not use them, and builds once. They come to stand in
# build/packages/ARCHITECTURE. Runs as root.
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/common.sh
. scripts/roots.sh

# What the packages are built in: what debian/control asks for, libraries for the architecture that is built for.
make_build_root() {
  local architectures=$here compilers=build-essential
  [ "$arch" = "$here" ] || { architectures+=,$arch && compilers+=,crossbuild-essential-$arch; }
  make_root "$root" --architectures="$architectures" --include="$compilers,debhelper" \
    --customize-hook='mkdir -p "$1/wanted" && cp -r debian "$1/wanted/"' \
    --customize-hook="chroot \"\$1\" apt-get -qq -y --no-install-recommends build-dep -a $arch ${cross[*]/#/-P} ./wanted" \
    --setup-hook=": $(sed '/^$/q' debian/control | sha256sum)"
}

# build PLACE ENVIRONMENT...: the packages of the sources as they stand, out of the root's folder PLACE.
build() {
  local place=$1 tree
  shift
  tree=$root$place/libqdt-util
  rm -rf "${root:?}$place"
  mkdir -p "$tree"
  git ls-files -z --cached --others --exclude-standard | xargs -0 tar -c --ignore-failed-read | tar -x -C "$tree"
  in_root "$root" env "$@" sh -ec "cd $place/libqdt-util && dpkg-buildpackage --build=binary --host-arch=$arch \
    --no-sign --jobs=$(nproc) ${cross[*]/#/-P}" ||
    fail "the packages do not build"
}

# A bare Debian with the packages to install.
make_use() {
  rm -rf "$use"
  cp -a "$bare" "$use"
  mkdir "$use/packages"
  cp "$packages"/*.deb "$use/packages"
  cp /etc/resolv.conf "$use/etc/"
}

# The services under a systemd of their own.
use_services() {
  local boot init='' inside good=0
  in_root "$use" sh -ec 'export DEBIAN_FRONTEND=noninteractive
    apt-get -qq update
    apt-get -qq install -y --no-install-recommends systemd systemd-sysv dbus iproute2 \
      /packages/nqe-tools_*.deb /packages/omad_*.deb >/dev/null' || return
  unshare --mount --pid --uts --ipc --cgroup --net --fork --kill-child --propagation private -- \
    sh tests/packages/boot.sh "$use" >"$use.log" 2>&1 </dev/null &
  boot=$!
  for _ in $(seq 600); do
    init=$(pgrep -P "$boot") || true
    inside=(nsenter --target "$init" --mount --pid --uts --ipc --cgroup --net --root --wd env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin)
    [ -z "$init" ] || ! "${inside[@]}" systemctl is-active --quiet multi-user.target 2>/dev/null || { good=1 && break; }
    kill -0 "$boot" 2>/dev/null || break
    sleep 0.1
  done
  if [ "$good" -eq 1 ]; then
    "${inside[@]}" bash -s <tests/packages/use_services.sh || good=0
  else
    echo "systemd does not start: $(cat "$use.log")" >&2
  fi
  kill -KILL "$boot" 2>/dev/null || true
  wait "$boot" 2>/dev/null || true
  [ "$good" -eq 1 ]
}

[ "$(id -u)" -eq 0 ] || fail "it takes root to make a Debian to build in (sudo $0)"
own_mounts "$@"
once='' use_them=1
case ${1-} in
  --once) once=1 && shift ;;
  --build) once=1 use_them='' && shift ;;
esac
here=$(dpkg --print-architecture)
arch=${1-$here}
case $arch in
  amd64 | arm64) ;;
  *) echo "packages.sh: cannot make sense of \"$arch\"; packages are built for amd64 and arm64" >&2 && exit 2 ;;
esac
cross=()
[ "$arch" = "$here" ] || cross=("cross,nocheck")
need_packages git mmdebstrap lintian systemd
mkdir -p build/packages
root=$PWD/build/packages/build-$arch
make_build_root

first=/first/of-two second=/a/second/place/with/a/longer/name
echo "building for $arch"
build $first TZ=UTC LC_ALL=C.UTF-8
packages=build/packages/$arch
rm -rf "$packages"
mkdir -p "$packages"
cp "$root$first"/*.deb "$root$first"/*.changes "$root$first"/*.buildinfo "$packages"
if [ -z "$once" ]; then
  echo "building for $arch a second time"
  build $second TZ=Asia/Kathmandu LC_ALL=C HOME=/nowhere DEB_BUILD_OPTIONS=terse
  for package in "$packages"/*.deb; do
    cmp "$package" "$root$second/${package##*/}" || fail "$package is not the same when it is built again"
  done
  echo "built twice, byte by byte the same:"
fi
(cd "$packages" && sha256sum ./*.deb)

# In tenths: what is open to somebody who has taken over a service.
for unit in nqe-tools/nqed omad/omad; do
  dpkg-deb --fsys-tarfile "$packages/${unit%/*}"_*.deb | tar -xO "./lib/systemd/system/${unit#*/}.service" >"$packages/${unit#*/}.service"
  systemd-analyze security --offline=true --threshold=20 "$packages/${unit#*/}.service" >"$packages/exposure" ||
    fail "$(tail -n 1 "$packages/exposure")"
  tail -n 1 "$packages/exposure"
done

lintian --allow-root --fail-on error,warning "$packages"/*.changes || fail "lintian has something to say"

case $here-$arch-$use_them in
  amd64-arm64-1) run_arm64 ;;
  arm64-amd64-1) echo "amd64 packages are not used on an arm64 machine" && use_them='' ;;
esac
if [ -n "$use_them" ]; then
  bare=$PWD/build/packages/bare-$arch use=$PWD/build/packages/use-$arch
  make_root "$bare" --architectures="$arch" --skip=check/qemu
  make_use
  in_root "$use" bash -s <tests/packages/use_packages.sh || fail "the packages do not work where nothing else is installed"
  # qemu-user is no kernel to be a systemd on.
  if [ "$arch" = "$here" ]; then
    make_use
    use_services || fail "the services do not run in their sandbox"
  fi
  rm -rf "$use"
fi
