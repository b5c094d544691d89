#!/usr/bin/env bash
# The demo's script: makes sample data in a temporary folder and shows each family at work.
set -euo pipefail
velmora=$(realpath "$1")
work=$(mktemp -d)
trap 'chmod -R u+w "$work"; rm -rf "$work"' EXIT

show() {
  echo
  echo "\$ velmora $*"
  "$velmora" "$@" || echo "(exit $?)"
}

mkdir -p "$work/data/docs" "$work/data/pics"
printf 'hello\n' > "$work/data/docs/readme.txt"
head -c 100000 /dev/urandom > "$work/data/pics/photo.jpg"

echo "Sample data in $work/data, mapped as drive D:"
show --map "D=$work/data" --help

# File properties: attribute flags, and the facts of a file with three names.
ln "$work/data/docs/readme.txt" "$work/data/readme-link.txt"
ln "$work/data/docs/readme.txt" "$work/data/pics/readme-copy.txt"
show --map "D=$work/data" attrib 'D:\docs\readme.txt' +R +H
show --map "D=$work/data" attrib 'D:\docs\readme.txt' -H +C
show --map "D=$work/data" attrib 'D:\docs\readme.txt' -R
show --map "D=$work/data" stat 'D:\docs\readme.txt'
show --map "D=$work/data" stat 'D:\pics\*.jpg'
show --map "D=$work/data" stat 'D:\'

# Enumeration and comparison: a count with its report, MD5 digests that md5sum checks, and a comparison
# of the data with a changed copy of it.
show --map "D=$work/data" count 'D:\'
show --map "D=$work/data" count 'D:\' --list --ext .txt.jpg
echo
echo "\$ velmora hash docs/readme.txt pics/photo.jpg > sums && md5sum -c sums"
(cd "$work/data" && "$velmora" hash docs/readme.txt pics/photo.jpg > "$work/sums" && cat "$work/sums" && md5sum -c "$work/sums")
cp -a "$work/data" "$work/copy"
printf 'hello, again\n' > "$work/copy/docs/readme.txt"
printf 'new\n' > "$work/copy/docs/notes.txt"
touch -d '2001-02-03 04:05:06' "$work/copy/pics/photo.jpg"
show --map "D=$work/data" --map "E=$work/copy" compare 'D:\' 'E:\' --both --hash
show --map "D=$work/data" isempty 'D:\docs'

# ---- Copy engine: a direct copy with its progress bar, a filtered copy, the shell way with the overwrite
# question answered on the terminal, folders made and deleted.
head -c 6000000 /dev/urandom > "$work/data/pics/movie.bin"
echo
echo "Copy engine: D:\\pics copied file by file to E:\\backup, each file's progress drawn as a bar"
mkdir -p "$work/e"
show --map "D=$work/data" --map "E=$work/e" copy 'D:\pics' 'E:\backup'
show --map "D=$work/data" --map "E=$work/e" copy --filter .jpg.png 'D:\pics' 'E:\pictures'
echo
echo "The shell way, with the folder's own name; the existing readme.txt asks before it is replaced (answer: s)"
show --map "D=$work/data" --map "E=$work/e" copy --shell --with-folder-name --silent 'D:\docs' 'E:\shell'
printf 's\n' | "$velmora" --map "D=$work/data" --map "E=$work/e" copy --shell --direct-limit 1000 'D:\docs\readme.txt' 'E:\shell\docs' \
  || echo "(exit $?)"
show --map "E=$work/e" mkdir 'E:\made\a\b\c'
show --map "E=$work/e" rmdir --silent 'E:\made'
echo
echo "What E: holds now:"
(cd "$work/e" && find . | sort)

# ---- Security descriptors and drive letters: an access list shown in SDDL and copied from one file to
# another (on a host folder, from the mode bits), and the data volume moved from D: to F: and back.
chmod 640 "$work/data/docs/readme.txt"
printf 'secret\n' > "$work/data/docs/plan.txt"
chmod 600 "$work/data/docs/plan.txt"
show --map "D=$work/data" acl get 'D:\docs\readme.txt'
show --map "D=$work/data" acl get 'D:\docs\plan.txt'
show --map "D=$work/data" acl copy 'D:\docs\readme.txt' 'D:\docs\plan.txt' --dacl
show --map "D=$work/data" acl get 'D:\docs\plan.txt'
show --map "D=$work/data" drive move D F
show --map "D=$work/data" --map "F=$work/copy" drive move D F
# ---- WIM images: D: captured into an image that wimlib-imagex reads, applied to a new folder and compared,
# then mounted, changed and unmounted with the change written back.
echo
echo "WIM images: D:\\ captured into E:\\data.wim, then applied to E:\\applied"
show --map "D=$work/data" --map "E=$work/e" wim capture 'D:\' 'E:\data.wim' --compress lzx
wimlib-imagex info "$work/e/data.wim" 1 | grep -E '^(Index|Directory Count|File Count|Total Bytes)'
show --map "E=$work/e" wim apply 'E:\data.wim' 1 'E:\applied'
echo
echo "\$ diff -r data applied"
diff -r "$work/data" "$work/e/applied" && echo "(the same tree)"
mkdir -p "$work/e/mnt"
show --map "E=$work/e" wim mount 'E:\data.wim' 1 'E:\mnt' --temp "$work"
printf 'added while mounted\n' > "$work/e/mnt/docs/added.txt"
show --map "E=$work/e" wim unmount 'E:\data.wim' 1 'E:\mnt' --commit
echo
echo "\$ wimlib-imagex dir data.wim 1 | grep docs"
wimlib-imagex dir "$work/e/data.wim" 1 | grep docs
# ---- Shell archives and shortcuts: a tree zipped through the shell's compressed folders, checked by
# unzip and unpacked again, and a shortcut's command line.
echo
echo "Zip: D:\\docs and D:\\pics into E:\\archive.zip, tested by unzip, then unpacked into E:\\unpacked"
show --map "D=$work/data" --map "E=$work/e" zip 'D:\docs' 'E:\archive'
show --map "D=$work/data" --map "E=$work/e" zip 'D:\pics' 'E:\archive.zip'
(cd "$work/e" && unzip -tq archive.zip)
show --map "E=$work/e" unzip 'E:\archive.zip' 'E:\unpacked\here'
(diff -r "$work/data/docs" "$work/e/unpacked/here/docs" && diff -r "$work/data/pics" "$work/e/unpacked/here/pics" && echo "unpacked tree equals the source")
echo
echo "A shortcut whose target comes from %ProgramFiles%, expanded; its arguments stay as stored"
cp "$(dirname "$0")/../tests/data/lnk/e_handmade_expsz.lnk" "$work/e/tool.lnk"
ProgramFiles='C:\Program Files' show --map "E=$work/e" shortcut 'E:\tool.lnk'
# ---- Raw volume access: a disk image with an NTFS and a FAT32 partition, made by fdisk, mkntfs and
# mkfs.fat; a file's sectors located through the library and proved by reading them back from the image.
echo
echo "Raw volume access: a 100 MiB disk image with an NTFS partition (E:) and a FAT32 partition (F:)"
disk="$work/disk.img"
truncate -s 100M "$disk"
printf 'o\nn\np\n1\n2048\n+48M\nn\np\n2\n\n+48M\nw\n' | fdisk -b 512 "$disk" >/dev/null
truncate -s 48M "$work/ntfs.part" && mkntfs -F -Q -q -p 2048 -H 255 -S 63 "$work/ntfs.part" 2>/dev/null
dd if="$work/ntfs.part" of="$disk" bs=1M seek=1 conv=notrunc,sparse status=none && rm -f "$work/ntfs.part"
mkfs.fat -F 32 -s 1 -n VELMORA --offset=100352 "$disk" 49152 >/dev/null 2>&1
head -c 200000 /dev/urandom > "$work/sample.bin"
MTOOLS_SKIP_CHECK=1 mcopy -i "$disk@@51380224" "$work/sample.bin" ::/sample.bin
show --map "D=$work/data" --disk "$disk:EF" copy 'D:\pics' 'E:\pics'
show --disk "$disk:EF" stat 'E:\pics\movie.bin'
show --disk "$disk:EF" attrib 'E:\pics\photo.jpg' +C
for file in 'F:\sample.bin' 'E:\pics\movie.bin' 'E:\pics\photo.jpg'; do
  show --disk "$disk:EF" sectors "$file"
done
echo
echo "The sectors F:\\sample.bin reports, read straight from the image, are the file's bytes:"
"$velmora" --disk "$disk:EF" sectors 'F:\sample.bin' | awk '/^  [0-9]/ {sub(/\+/, "", $2); print $1, $2}' |
  while read -r start count; do dd if="$disk" bs=512 skip="$start" count="$count" status=none; done |
  head -c 200000 | cmp - "$work/sample.bin" && echo "identical"
echo
echo "NTFS keeps a whole security descriptor per file: D:\\docs\\readme.txt's access list copied onto"
echo "E:\\pics\\photo.jpg, then from there onto E:\\pics\\movie.bin, both inside the image"
chmod 640 "$work/data/docs/readme.txt"
show --disk "$disk:EF" acl get 'E:\pics\movie.bin'
show --map "D=$work/data" --disk "$disk:EF" acl copy 'D:\docs\readme.txt' 'E:\pics\photo.jpg' --dacl
show --disk "$disk:EF" acl copy 'E:\pics\photo.jpg' 'E:\pics\movie.bin' --dacl
show --disk "$disk:EF" acl get 'E:\pics\movie.bin'
# ---- The whole NTFS volume from its master file table: a fresh mkntfs volume has no change journal, so
# the walk finds nothing until the journal is made active (the mft command does so unless told not to).
echo
echo "The whole of E: from its master file table, without a journal and then with one"
show --disk "$disk:EF" mft count 'E:' --no-journal
show --disk "$disk:EF" mft list 'E:\pics'
show --disk "$disk:EF" mft count 'E:'
show --disk "$disk:EF" mft count 'F:'
# ---- Volume snapshots: a file another program holds open without sharing, copied out of a shadow copy
# of its volume while it stays locked. Shadow copies need root, as they need an administrator on Windows.
echo
echo "Volume snapshots: a locked file on E: copied out of a shadow copy of the volume"
printf 'ledger: 42 entries, balanced\n' > "$work/data/ledger.txt"
show --map "D=$work/data" --disk "$disk:EF" copy 'D:\ledger.txt' 'E:\'
show --disk "$disk:EF" snapshot E: --copy 'E:\ledger.txt' "$work/ledger-copy.txt" --hold
(cmp -s "$work/data/ledger.txt" "$work/ledger-copy.txt" && echo "the copy equals the locked file") ||
  echo "(no copy: shadow copies need root)"
