#!/usr/bin/env bash
# The command line as its users and their scripts meet it: exit statuses, messages in words, the progress
# line, the replace questions with their answers for all, and the --json documents, on trees made here.
# Usage: commands.sh VELMORA
set -uo pipefail
velmora=$(realpath "$1")
sandbox=$(mktemp -d /tmp/velmora-commands-XXXXXX)
trap 'chmod -R u+rwx "$sandbox" 2>/dev/null; rm -rf "$sandbox"' EXIT
export ASAN_OPTIONS=${ASAN_OPTIONS:-detect_leaks=1}
out=$sandbox.out err=$sandbox.err
failures=0 checks=0
# run [INPUT] -- ARGS: velmora on the sandbox as T:, answering INPUT to its questions.
run() {
    local input=$1; shift; shift
    printf '%b' "$input" | timeout 60 "$velmora" --map "T=$sandbox" "$@" >"$out" 2>"$err"
    rc=$?
}
fail() { echo "FAIL: $1 (exit $rc)"; sed 's/^/  out: /' "$out"; sed 's/^/  err: /' "$err"; failures=$((failures + 1)); }
# check STATUS WHAT [--out TEXT] [--err TEXT] [--no-err]: the last run's status and what it printed.
check() {
    local status=$1 what=$2; shift 2
    checks=$((checks + 1))
    [ "$rc" -eq "$status" ] || { fail "$what: status"; return; }
    while [ $# -gt 0 ]; do
        case $1 in
            --out) grep -qF -- "$2" "$out" || { fail "$what: no '$2' on stdout"; return; }; shift 2 ;;
            --err) grep -qF -- "$2" "$err" || { fail "$what: no '$2' on stderr"; return; }; shift 2 ;;
            --no-err) [ ! -s "$err" ] || { fail "$what: stderr not empty"; return; }; shift ;;
        esac
    done
}
# json EXPRESSION WHAT: a Python expression over the document on stdout, d, must hold.
json() {
    checks=$((checks + 1))
    python3 -c "import json,sys; d=json.load(open(sys.argv[1])); sys.exit(0 if ($1) else 1)" "$out" 2>/dev/null || fail "$2: $1"
}

mkdir -p "$sandbox/src/sub" "$sandbox/dst"
printf 'hello\n' >"$sandbox/src/a.txt"
printf 'world\n' >"$sandbox/src/sub/b.txt"
head -c 70000 /dev/zero >"$sandbox/src/big.bin"

# ---- The program itself
run '' -- --version;                 check 0 "--version" --out "velmora 2."
run '' -- --help;                    check 0 "--help documents exit statuses" --out "exit status:" --out "2  bad usage"
run '' -- frobnicate;                check 2 "an unknown command" --err "unknown command 'frobnicate'"
run '' -- --frobnicate;              check 2 "an unknown option" --err "unknown option '--frobnicate'"
"$velmora" --map >"$out" 2>"$err"; rc=$?
check 2 "--map without its value" --err "--map needs a value"
run '' -- copy --filter;             check 2 "an option without its value" --err "--filter needs a value"

# ---- copy: progress, messages, exit statuses
run '' -- copy 'T:\src' 'T:\dst\plain'
check 0 "a direct copy" --err "copied 3/3 files"
cmp -s "$sandbox/src/big.bin" "$sandbox/dst/plain/big.bin" || fail "the direct copy's data"
! grep -q $'\r' "$err" || fail "progress redrawn with carriage returns into a file"
run '' -- copy --quiet 'T:\src' 'T:\dst\quiet';   check 0 "--quiet prints nothing" --no-err
[ ! -s "$out" ] || fail "--quiet printed on stdout"
run '' -- copy 'T:\missing' 'T:\dst';             check 1 "a missing source" --err "cannot copy T:\\missing: it was not found"
printf 'x\n' >"$sandbox/dst/file.txt"
run '' -- copy 'T:\src' 'T:\dst\file.txt';        check 1 "a file as destination" --err "it is a file, and the destination must be a folder"
run '' -- copy 'T:\src' 'T:\src\sub';             check 1 "a copy into itself" --err "inside itself"

# The shell's replace question: each answer, and the answers for all. Several sources go into the
# destination with a folder's contents, so both files meet one there already.
for answer in 'n\nn\nn\n' 's\n'; do
    rm -rf "$sandbox/dst/shell" && mkdir -p "$sandbox/dst/shell"
    printf 'old\n' >"$sandbox/dst/shell/a.txt"
    printf 'old\n' >"$sandbox/dst/shell/b.txt"
    run "$answer" -- copy 'T:\src\a.txt' 'T:\src\sub' 'T:\dst\shell'
    check 0 "keeping files at the shell's question ($answer)" --out "kept 2 existing files"
    [ "$(cat "$sandbox/dst/shell/a.txt")$(cat "$sandbox/dst/shell/b.txt")" = oldold ] || fail "a kept file was replaced ($answer)"
done
printf 'old\n' >"$sandbox/dst/shell/a.txt"; printf 'old\n' >"$sandbox/dst/shell/b.txt"
run 'a\n' -- copy 'T:\src\a.txt' 'T:\src\sub' 'T:\dst\shell'
check 0 "yes to all replaces every file after one answer" --err "yes to [a]ll"
[ "$(grep -c 'Replace it' "$err")" -eq 1 ] || fail "yes to all asked again"
[ "$(cat "$sandbox/dst/shell/b.txt")" = world ] || fail "yes to all left a file"
run 'c\n' -- copy 'T:\src\a.txt' 'T:\src\sub' 'T:\dst\shell'
check 1 "cancel at the shell's question" --err "cancelled"
! grep -q "detail code\|error [0-9]" "$err" || fail "a cancel told by number"
# The library's own replace-or-skip question on the direct way of a small file: skipping is no error.
run 's\n' -- copy --shell --direct-limit 1000 'T:\src\a.txt' 'T:\dst\shell'
check 0 "skip at the library's question" --out "kept the existing copy of T:\\src\\a.txt"
run 'c\n' -- copy --shell --direct-limit 1000 'T:\src\a.txt' 'T:\dst\shell'
check 1 "cancel at the library's question" --err "cancelled"

# ---- mkdir
printf 'x\n' >"$sandbox/afile"
run '' -- mkdir 'T:\afile';           check 1 "mkdir onto a file" --err "a file of that name is in the way"
if [ "$(id -u)" -ne 0 ]; then
    mkdir "$sandbox/locked" && chmod 555 "$sandbox/locked"
    run '' -- mkdir 'T:\locked\new';  check 1 "mkdir where it may not write" --err "access is denied"
fi

# ---- count, with --json and the list report's columns
mkdir -p "$sandbox/tree/日本語フォルダ"
printf '12345\n' >"$sandbox/tree/日本語フォルダ/報告書.txt"
printf 'abc\n' >"$sandbox/tree/plain.txt"
run '' -- count --quiet 'T:\tree';    check 0 "count" --out "files    2" --no-err
run '' -- count --json 'T:\tree'
check 0 "count --json"
json 'd["files"] == 2 and d["folders"] == 1 and d["bytes"] == 10 and d["complete"] and d["failures"] == []' "count --json facts"
run '' -- count --list --json --from 2000-01-01 'T:\tree'
json 'sorted(r["size"] for r in d["list"]) == [4, 6] and any("報告書" in r["path"] for r in d["list"])' "the list report in JSON"
run '' -- count --list --from 2000-01-01 'T:\tree'
checks=$((checks + 1))
# On every row the size ends and the path starts in the same column, wide characters counted as two.
python3 - "$out" <<'PY' || fail "the table's columns do not line up"
import sys, unicodedata
rows = [l.rstrip("\n") for l in open(sys.argv[1], encoding="utf-8")]
rows = rows[:rows.index("")]
width = lambda s: sum(2 if unicodedata.east_asian_width(c) in "WF" else 1 for c in s)
paths = [rows[0].index("パス"), rows[1].rindex(" ") + 1] + [r.index("T:\\") for r in rows[2:]]
starts = {width(r[:at]) for r, at in zip(rows, paths)}
ends = {width(r[:at].rstrip()) for r, at in zip(rows, paths)}
sys.exit(0 if len(rows) == 4 and len(starts) == 1 and len(ends) == 1 else 1)
PY
# A list long enough to be printed in parts while the walk goes on: every file once, in one document.
mkdir -p "$sandbox/many"
(cd "$sandbox/many" && touch $(seq -f 'file%04g.txt' 1 1500))
run '' -- count --list --json --quiet 'T:\many'
json 'd["files"] == 1500 and len(d["list"]) == 1500 and len({r["path"] for r in d["list"]}) == 1500 and d["list"][0]["size"] == 0' \
    "the list report in JSON, printed in parts"
run '' -- count --list --quiet 'T:\many'
check 0 "count --list of many files" --out "files    1500"
[ "$(grep -c 'T:\\many\\file' "$out")" -eq 1500 ] || fail "the table does not hold every file once"
# The rows' texts: the day and minute in UTC, bytes under 1 KB and whole KB from there on, in columns.
mkdir -p "$sandbox/sizes"
head -c 1023 /dev/zero >"$sandbox/sizes/a.bin"
head -c 2047 /dev/zero >"$sandbox/sizes/b.bin"
touch -d '2024-02-29 23:59:59 UTC' "$sandbox/sizes/a.bin" "$sandbox/sizes/b.bin"
run '' -- count --list --quiet 'T:\sizes'
check 0 "count --list of two sizes"
checks=$((checks + 1))
printf '%s\n' '2024/02/29 23:59     1023 バイト  T:\sizes\a.bin' '2024/02/29 23:59            1 KB  T:\sizes\b.bin' |
    diff - <(sed -n '3,4p' "$out") >/dev/null || fail "the rows' texts"
run '' -- count --list --json --quiet --max-size 1500 'T:\sizes'
json '[r["size"] for r in d["list"]] == [1023] and d["bytes"] == 3070' "the exact size of a row, with a file left out by size after it"
run '' -- count --list --json --quiet 'T:\sizes'
json '[(r["size"], r["size_text"]) for r in d["list"]] == [(1023, "1023 バイト"), (2047, "1 KB")]' "the exact sizes beside the rounded ones"

# ---- hash
run '' -- hash --json 'T:\src\a.txt' 'T:\missing.txt'
check 1 "hash --json with a missing file" --err "cannot hash T:\\missing.txt: it was not found"
json 'd["files"][0]["md5"] == "b1946ac92492d2347c6235b4d2611184" and d["failures"][0]["code"] == 2' "hash --json facts"
# Host paths as given, so that md5sum can check the lines where they were made.
(cd "$sandbox" && "$velmora" hash src/a.txt src/sub/b.txt >"$out" 2>"$err"); rc=$?
check 0 "hash" --out "b1946ac92492d2347c6235b4d2611184  src/a.txt"
(cd "$sandbox" && md5sum -c --quiet "$out") || fail "md5sum cannot check hash's lines"

# ---- compare
touch -r "$sandbox/src/sub" "$sandbox/dst/plain/sub"  # a folder made by the copy is newer than its source
run '' -- compare --json 'T:\src' 'T:\dst\plain';  check 0 "compare of equal trees"
json 'd["same"] and d["differences"] == []' "compare --json of equal trees"
printf 'changed!\n' >"$sandbox/dst/plain/a.txt"
touch -r "$sandbox/src/a.txt" "$sandbox/dst/plain/a.txt"  # the same time: only the size differs
rm "$sandbox/dst/plain/big.bin"
run '' -- compare --json 'T:\src' 'T:\dst\plain'; check 1 "compare of different trees"
json 'sorted((x["path"].split("\\")[-1], x["differs"]) for x in d["differences"]) == [("a.txt", ["size-differs"]), ("big.bin", ["only-in-A"])] and not d["same"]' \
    "compare --json differences"
run '' -- compare 'T:\src' 'T:\dst\plain'
check 1 "compare's lines" --out "size-differs  \\a.txt" --out "only-in-A     \\big.bin"

# ---- stat: every name of a file, nearest first
mkdir -p "$sandbox/links/near" "$sandbox/links/far/away"
printf 'x\n' >"$sandbox/links/near/one.txt"
ln "$sandbox/links/near/one.txt" "$sandbox/links/far/away/three.txt"
ln "$sandbox/links/near/one.txt" "$sandbox/links/near/two.txt"
run '' -- stat --json 'T:\links\near\one.txt'
check 0 "stat --json"
json 'd["kind"] == "file" and d["links"] == 3 and [n.split("\\")[-1] for n in d["names"]] == ["one.txt", "two.txt", "three.txt"]' \
    "stat --json names, nearest first"
json 'd["size"] == 2 and d["written"]["seconds"] > 0' "stat --json size and times"
run '' -- stat 'T:\nothing';          check 1 "stat of nothing" --err "no such file or folder"

echo "$((checks - failures)) of $checks checks passed"
[ "$failures" -eq 0 ]
