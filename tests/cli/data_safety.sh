#!/usr/bin/env bash
# The command line on hostile trees: copies into their own source refused before anything is written,
# pipes and devices reported by name and passed over without blocking, folders too deep to list named,
# and every incomplete run ending with a non-zero status. Usage: data_safety.sh VELMORA
set -uo pipefail
velmora=$1
sandbox=$(mktemp -d /tmp/velmora-cli-XXXXXX)
trap 'chmod -R u+rwx "$sandbox" 2>/dev/null; rm -rf "$sandbox"' EXIT
export ASAN_OPTIONS=${ASAN_OPTIONS:-detect_leaks=1}
failures=0
checks=0
run() { timeout 60 "$velmora" --map "T=$sandbox" "$@" >"$sandbox.out" 2>"$sandbox.err"; }
expect() {  # expect STATUS TEXT-IN-STDERR DESCRIPTION -- runs the command before it
    local status=$1 text=$2 what=$3
    checks=$((checks + 1))
    if [ "$rc" -ne "$status" ] || ! grep -qF -- "$text" "$sandbox.err"; then
        echo "FAIL: $what (exit $rc)"; cat "$sandbox.err"; failures=$((failures + 1))
    fi
}
snapshot() { (cd "$sandbox" && find . | sort); }

mkdir -p "$sandbox/a/sub" && echo one >"$sandbox/a/f.txt"
before=$(snapshot)
for args in 'copy T:\a T:\a\sub' 'copy T:\a T:\a' 'copy --shell T:\a T:\a\sub\x' 'copy T:\ T:\out' 'copy T:\a T:\a\sub\link\new'; do
    ln -sfn "$sandbox/a" "$sandbox/a/sub/link"
    before=$(snapshot)
    # shellcheck disable=SC2086
    run $args; rc=$?
    expect 1 "inside itself" "$args is refused"
    [ "$before" = "$(snapshot)" ] || { echo "FAIL: $args wrote something"; failures=$((failures + 1)); }
done
rm "$sandbox/a/sub/link"

mkfifo "$sandbox/a/pipe" && ln -s /dev/zero "$sandbox/a/zero"
run copy 'T:\a' 'T:\b'; rc=$?
expect 1 'cannot copy T:\a\pipe to T:\b\pipe: it is no file that can be read' "a pipe is named by the direct copy"
expect 1 'cannot copy T:\a\zero' "a device is named by the direct copy"
[ "$(cat "$sandbox/b/f.txt")" = one ] || { echo "FAIL: the rest was not copied"; failures=$((failures + 1)); }
run copy --shell --silent 'T:\a' 'T:\c'; rc=$?
expect 1 'it is no file that can be read' "the shell copy stops at a pipe"
run hash 'T:\a\pipe' 'T:\a\zero' 'T:\a\f.txt'; rc=$?
expect 1 'cannot hash T:\a\zero: it is no file that can be read' "hashing a device fails at once"
grep -q 'f.txt' "$sandbox.out" || { echo "FAIL: hashing did not go on"; failures=$((failures + 1)); }
mkfifo "$sandbox/b/pipe"
run compare --hash 'T:\a' 'T:\b'; rc=$?
expect 1 'cannot read T:\a\pipe' "comparing names a pipe it cannot hash"

deep="$sandbox/deep"
levels=$(printf 'd/%.0s' $(seq 300))
mkdir -p "$deep/$levels" && echo x >"$deep/$levels/deep.txt"
run count 'T:\deep'; rc=$?
expect 1 'the path is too long' "count names the folder it cannot list"
run copy --shell --silent 'T:\deep' 'T:\deepcopy'; rc=$?
expect 1 'the path is too long' "the shell copy fails where it cannot list"

if [ "$(id -u)" -ne 0 ]; then
    mkdir -p "$sandbox/locked/in" && echo s >"$sandbox/locked/secret.txt" && echo ok >"$sandbox/locked/ok.txt"
    chmod 000 "$sandbox/locked/secret.txt" "$sandbox/locked/in"
    run copy 'T:\locked' 'T:\lockedcopy'; rc=$?
    expect 1 'cannot copy T:\locked\secret.txt to T:\lockedcopy\secret.txt: access is denied' "an unreadable file is named"
    expect 1 'cannot list T:\locked\in\: access is denied' "an unreadable folder is named"
fi

echo "$((checks - failures)) passed, $failures failed"
[ "$failures" -eq 0 ]
