#!/bin/sh
# Tests the packages in a fresh root: installs them, runs the tests of this folder, and purges them. Nothing may be left
# behind.
#
#     freshRoot.sh ROOT FOLDER
#
# ROOT is a new system made by debootstrap, with what the packages and their tests depend on. FOLDER has the packages.
set -eu
tests=$(dirname "$0")
root=$1
mkdir "$root/packages" "$root/source" "$root/source/debian"
cp "$2"/*.deb "$root/packages"
cp -r "$tests/../../tests" "$root/source"
cp -r "$tests" "$root/source/debian"

cat >"$root/test.sh" <<'TEST'
set -eu
export LC_ALL=C.UTF-8
list() {
    find / -xdev -path /proc -prune -o -path /tmp -prune -o -path /var/lib/dpkg -prune -o -path /var/log -prune -o -print |
        grep -v '^/before$\|^/after$\|^/etc/ld.so.cache$\|^/var/cache/ldconfig' | sort
}
list >/before
dpkg -i /packages/*.deb
cd /source
for test in consumer playout; do
    debian/tests/"$test"
done
dpkg --purge libzvresmgt0 libzvresmgt-dev libzvresmgt-doc zvplayout
list >/after
diff /before /after || { echo "The packages leave files behind, or remove those of others" >&2; exit 1; }
TEST
# The mounts end with the process.
unshare --mount sh -c 'mount -t proc proc "$0/proc" && mount -t tmpfs tmpfs "$0/dev/shm" && exec chroot "$0" sh /test.sh' "$root"
