#!/bin/sh
# Installs the Debian package in a fresh system and builds and tests the product of the examples there. As root, with debootstrap,
# lintian and a network.
#
#     check-package.sh PACKAGE.deb [ROOT]
#
# ROOT, if it is there already, is taken as the fresh system; otherwise it is made, and left for the next time.
set -eu
[ $# -ge 1 ] && [ $# -le 2 ] && [ -f "$1" ] || { echo "usage: check-package.sh PACKAGE.deb [ROOT]" >&2; exit 2; }
package=$1 root=${2:-/var/tmp/zel8-root}
[ "$(id -u)" = 0 ] || { echo "check-package: only root can make a system" >&2; exit 2; }
lintian --fail-on error,warning "$package"
[ -d "$root/usr" ] || debootstrap --variant=minbase --include=make bookworm "$root" >/dev/null
mount -t proc proc "$root/proc"
trap 'chroot "$root" dpkg --purge zel8 >/dev/null; umount "$root/proc"; rm -rf "$root/package.deb" "$root/tmp/examples"' EXIT
cp "$package" "$root/package.deb"
chroot "$root" sh -eu <<'END'
apt-get install -y -qq /package.deb >/dev/null 2>&1
cp -r /usr/share/doc/zel8/examples /tmp
cd /tmp/examples/console
BIN=/usr/bin DATA=$(zel8 --print-search-dirs | sed -n 's/^data: //p')
make -s all check BIN="$BIN" DATA="$DATA"
cd ..
zel8 -mcpu=ZEL8K10 -O -o blink.hex blink.as
zelsim -mcpu=ZEL8K10 --script=blink.test blink.hex
END
echo "$package works in a fresh system"
