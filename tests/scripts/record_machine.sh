#!/bin/sh
# SPDX-License-Identifier: MIT
# A small machine full of private names is recorded: what the backend reads is there, nothing private is, and the same original
# has the same made-up name in every file.
set -eu
record=$1
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
machine=$work/machine
folder=/sys/devices/pci0000:00/usb1/block/sda
mapping=/sys/devices/virtual/block/dm-0

fail() {
  echo "record_machine: $1"
  exit 1
}
put() {
  mkdir -p "$machine${1%/*}"
  cat >"$machine$1"
}

mkdir -p "$machine/sys/class/block" "$machine/sys/dev/block"
for name in sda sda/sda1; do ln -s "../../devices/pci0000:00/usb1/block/$name" "$machine/sys/class/block/${name##*/}"; done
ln -s ../../devices/virtual/block/dm-0 "$machine/sys/class/block/dm-0"
echo 8:0 | put $folder/dev
echo 1000 | put $folder/size
echo SECRET-SERIAL | put $folder/serial
echo 8:1 | put $folder/sda1/dev
echo 1 | put $folder/sda1/partition
echo 500 | put $folder/sda1/size
echo 252:0 | put $mapping/dev
echo vault-of-anna | put $mapping/dm/name
ln -s ../../../bus/usb "$machine/sys/devices/pci0000:00/usb1/subsystem"
put /run/udev/data/b8:1 <<'END'
E:ID_SERIAL=SECRET-SERIAL
E:ID_FS_TYPE=ext4
E:ID_FS_UUID=5ecae7ed-1111-2222-3333-444455556666
E:ID_FS_LABEL_ENC=Anna\x27s\x20stick
END
put /run/udev/data/b252:0 <<'END'
E:ID_FS_UUID=5ecae7ed-1111-2222-3333-444455556666
END
put /proc/self/mountinfo <<'END'
20 1 8:1 / /run/media/anna/Anna's\040stick rw shared:1 - ext4 /dev/sda1 rw,errors=anna
21 1 0:40 /@home /home rw - btrfs /dev/mapper/vault-of-anna rw,subvolid=257,subvol=/@home
22 1 0:41 / /mnt/anna rw - nfs4 anna.example:/secret rw,addr=10.1.2.3
23 1 0:42 / /tmp rw - tmpfs  rw
END

"$record" "$work/copy" "$machine" >/dev/null
! grep -riE 'anna|secret|5ecae7ed|10\.1\.2\.3' "$work/copy" || fail "something private is left"
cmp "$machine$folder/sda1/size" "$work/copy$folder/sda1/size" || fail "a size is missing"
[ "$(cat "$work/copy/sys/class/block/sda1/partition" "$work/copy/sys/dev/block/8:0/dev" 2>/dev/null)" = 1 ] ||
  fail "the partition cannot be reached"
[ "$(readlink "$work/copy/sys/devices/pci0000:00/usb1/subsystem")" = ../../../bus/usb ] || fail "the bus is missing"
[ "$(grep -h ID_FS_UUID "$work/copy/run/udev/data/"* | sort -u | wc -l)" -eq 1 ] || fail "one UUID has two made-up ones"
grep -qxF 'E:ID_FS_LABEL_ENC=Label\x201' "$work/copy/run/udev/data/b8:1" || fail "the label is not made up"
cat >"$work/expected" <<'END'
20 1 8:1 / /run/media/name1/Label\0401 rw shared:1 - ext4 /dev/sda1 rw
21 1 0:40 /@home /home rw - btrfs /dev/mapper/mapping1 rw,subvolid=257,subvol=/@home
22 1 0:41 / /mnt/name1 rw - nfs4 server:/export1 rw
23 1 0:42 / /tmp rw - tmpfs  rw
END
diff "$work/expected" "$work/copy/proc/self/mountinfo" || fail "the mount table"
grep -qx mapping1 "$work/copy$mapping/dm/name" || fail "the mapping has another name than in the mount table"

"$record" "$work/again" "$work/copy" >/dev/null
diff -r --no-dereference "$work/copy" "$work/again" || fail "a recording of a recording differs"
