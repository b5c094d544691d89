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
