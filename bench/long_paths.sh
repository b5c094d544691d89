#!/bin/sh
# Time of CreateFolders (through `velmora mkdir`) for \\?\ paths of growing length, made of names of a
# given length, each into a fresh folder mapped as T:. Building a path should cost time in proportion to
# its length; the figures show whether it does.
#
#     bench/long_paths.sh [VELMORA] [NAME_LENGTHS] [TOTAL_UNITS]
#
# Wall time and processor time (user and system) are both shown: on a shared machine the wall time is
# mostly waiting for a processor. VELMORA defaults to build/release/velmora; NAME_LENGTHS to "8 100";
# TOTAL_UNITS to "1000 2000 4000 16000 32767 40000". Windows takes at most 32,767 units after the prefix:
# for 40,000 the levels up to that limit are made and `velmora mkdir` exits 1. One-unit names (1 in
# NAME_LENGTHS) make the most levels per unit and take minutes at 32,767.
set -eu
velmora=${1:-build/release/velmora}
name_lengths=${2:-8 100}
totals=${3:-1000 2000 4000 16000 32767 40000}
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

printf '%-12s %-10s %-8s %-10s %-10s %s\n' "name units" "path units" "levels" "wall s" "cpu s" "exit"
for length in $name_lengths; do
  for total in $totals; do
    levels=$(( (total - 6) / (length + 1) ))
    path=$(python3 -c 'import sys; n, l = int(sys.argv[1]), int(sys.argv[2]); print("\\\\?\\T:" + ("\\" + "x" * l) * n)' "$levels" "$length")
    mkdir "$work/t"
    status=0
    /usr/bin/time -f '%e %U %S' -o "$work/time" "$velmora" --map "T=$work/t" mkdir "$path" >/dev/null 2>&1 || status=$?
    # The last line: /usr/bin/time puts a line about the exit status before it when that is not 0.
    set -- $(tail -n 1 "$work/time")
    wall=$1 user=$2 system=$3
    printf '%-12s %-10s %-8s %-10s %-10s %s\n' "$length" "${#path}" "$levels" "$wall" "$(echo "$user + $system" | bc)" "$status"
    rm -rf "$work/t"
  done
done
