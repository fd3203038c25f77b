# shellcheck shell=bash
# Debians of their own, in which packages are built and tried, so that this machine keeps its packages and its architecture.
# Sourced after scripts/common.sh with the repository's root as the working directory; it takes root.

# Where this machine has its packages from.
sources=()
for list in /etc/apt/sources.list /etc/apt/sources.list.d/debian.sources; do [ ! -s "$list" ] || sources+=("$list"); done

# fail REASON: the end of the script.
fail() {
  echo "${0##*/}: $1" >&2
  exit 1
}

# A Debian to build or to install in, made by make_root ROOT WORDS...; made anew when the words change.
make_root() {
  local root=$1
  shift
  [ "$(cat "$root.made" 2>/dev/null)" != "$*" ] || return 0
  rm -rf "$root" "$root.made"
  mmdebstrap --quiet --mode=root --variant=apt "$@" bookworm "$root" "${sources[@]}"
  echo "$*" >"$root.made"
}

# in_root ROOT COMMAND...: with processes and mounts of its own, which are gone when it ends.
in_root() {
  unshare --mount --pid --fork --propagation private -- sh -ec '
    root=$1
    shift
    mount -t proc proc "$root/proc"
    mount -t tmpfs tmpfs "$root/dev/shm"
    mount -t devpts -o newinstance,ptmxmode=0666 devpts "$root/dev/pts"
    exec chroot "$root" env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin HOME=/root "$@"' sh "$@"
}

# own_mounts ARGUMENT...: what the calling script mounts from here on is seen by itself alone, and gone when it ends; it
# starts again with these arguments.
own_mounts() { [ -n "${own_mounts-}" ] || own_mounts=1 exec unshare --mount --propagation private -- "scripts/${0##*/}" "$@"; }

# run_arm64: until this script ends the kernel runs AArch64 programs, in qemu-user, in whatever Debian they stand: also
# those that such programs start. QEMU_RESERVED_VA bounds their addresses. Takes own_mounts.
run_arm64() {
  local qemu=$PWD/build/packages/qemu-aarch64-static formats=/proc/sys/fs/binfmt_misc type=qdt-aarch64-$$ package
  if [ ! -x "$qemu" ]; then
    package=$(mktemp -d)
    (cd "$package" && apt-get -qq -o APT::Sandbox::User=root download qemu-user-static) || fail "there is no qemu-user-static"
    dpkg-deb --fsys-tarfile "$package"/*.deb | tar -xO ./usr/bin/qemu-aarch64-static >"$qemu"
    chmod 755 "$qemu"
    rm -r "$package"
  fi
  # What starts as an ELF file of 64 bits, little-endian, executable or shared, for processor 183 does. F: qemu is opened
  # now, and found whatever the program's root is; P: programs see how they were called.
  local magic='\x7fELF\x02\x01\x01\x00\x00\x00\x00\x00\x00\x00\x00\x00\x02\x00\xb7\x00'
  local mask='\xff\xff\xff\xff\xff\xff\xff\x00\xff\xff\xff\xff\xff\xff\xff\xff\xfe\xff\xff\xff'
  [ -e "$formats/register" ] || mount -t binfmt_misc binfmt_misc "$formats" || fail "the kernel has no binfmt_misc"
  printf %s ":$type:M::$magic:$mask:$qemu:FP" >"$formats/register" || fail "the kernel takes no format of programs"
  # Kernels before 6.7 keep it longer than the mount.
  # shellcheck disable=SC2064
  trap "echo -1 >$formats/$type" EXIT
}
