#!/bin/sh
# Becomes the systemd of a Debian in a directory, in namespaces that scripts/packages.sh has made for it.
#
# usage: boot.sh ROOT
set -e
root=$1
mount --bind "$root" "$root"
mount -t proc proc "$root/proc"
mount -t sysfs sysfs "$root/sys"
mount -t cgroup2 none "$root/sys/fs/cgroup"
for place in run tmp dev; do mount -t tmpfs -o mode=755 tmpfs "$root/$place"; done
chmod 1777 "$root/tmp"
for device in null zero full random urandom tty; do
  : >"$root/dev/$device"
  mount --bind "/dev/$device" "$root/dev/$device"
done
mkdir "$root/dev/shm" "$root/dev/pts" "$root/dev/mqueue"
mount -t tmpfs tmpfs "$root/dev/shm"
mount -t devpts -o newinstance,ptmxmode=0666 devpts "$root/dev/pts"
ln -s pts/ptmx "$root/dev/ptmx"
ln -s /proc/self/fd "$root/dev/fd"
cd "$root"
mkdir -p old
pivot_root . old
umount -l /old
exec env -i container=other PATH=/usr/sbin:/usr/bin:/sbin:/bin /lib/systemd/systemd --unit=multi-user.target
