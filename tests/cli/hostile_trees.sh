#!/usr/bin/env bash
# Every command over a folder of hostile trees: names Windows cannot hold, names that look like paths
# out of their folder, bytes that are not UTF-8, pipes, sockets, device links, links to folders outside,
# links that loop, unreadable entries and a deep tree. Whatever each command answers, it must end (no
# command may block or read without end), must not trip the sanitizers, and must leave everything
# outside the sandbox exactly as it was: a digest of the sandbox's parent (names, kinds, modes, sizes,
# times and contents, the sandbox left out) is taken before the run and compared after every command.
# Usage: hostile_trees.sh VELMORA
set -uo pipefail
velmora=$1
parent=$(mktemp -d /tmp/velmora-hostile-XXXXXX)
trap 'chmod -R u+rwx "$parent" 2>/dev/null; rm -rf "$parent"' EXIT
sandbox="$parent/sandbox"
export ASAN_OPTIONS=${ASAN_OPTIONS:-detect_leaks=1}
failures=0
runs=0

# ---- What lies outside: the things a wrong join, a followed link or a wrong root would reach.
mkdir -p "$parent/victim/inner" "$sandbox"
echo "keep me" >"$parent/victim/file.txt"
echo "and me" >"$parent/victim/inner/deep.txt"
echo "sibling" >"$parent/sibling.txt"
chmod 644 "$parent/victim/file.txt"

# ---- The hostile trees, all inside the sandbox.
tree="$sandbox/tree"
mkdir -p "$tree/del" "$tree/odd" "$tree/links" "$tree/plain/sub"
echo data >"$tree/plain/a.txt"
echo more >"$tree/plain/sub/b.txt"
# Names that read as a way out of their folder once taken for Windows paths.
mkdir -p "$tree/del/..\\victim" && echo x >"$tree/del/..\\victim/x.txt"
echo y >"$tree/del/..\\..\\sibling.txt"
echo z >"$tree/del/C:\\victim"
# Names Windows cannot hold: reserved characters, a control character, trailing dot and space, devices.
for name in 'a:b' 'q?' 'star*' 'lt<gt>' 'pipe|bar' 'quote"d' 'dot.' 'space ' 'CON' 'nul.txt' 'LPT1.log' $'tab\there'; do
    echo "$name" >"$tree/odd/$name"
done
mkdir "$tree/odd/folder." "$tree/odd/AUX"
echo inside >"$tree/odd/folder./in.txt"
# Bytes that are not UTF-8, and a name already in the private-use area the mapping uses.
echo bad >"$tree/odd/$(printf 'bad\xff\xfename')"
echo pua >"$tree/odd/$(printf '\xef\x80\xbcpua')"
# Entries that are no files: a pipe, a socket, device links.
mkfifo "$tree/odd/fifo"
python3 -c 'import socket, sys; s = socket.socket(socket.AF_UNIX); s.bind(sys.argv[1])' "$tree/odd/socket"
ln -s /dev/zero "$tree/odd/zero"
ln -s /dev/random "$tree/odd/random"
# Links: to a folder and a file outside, dangling, looping, and back into the tree.
ln -s "$parent/victim" "$tree/links/outside"
ln -s "$parent/victim/file.txt" "$tree/links/outside-file.txt"
ln -s ../../../victim "$tree/links/relative-outside"
ln -s "$tree/links/nowhere-else" "$tree/links/dangling"
ln -s loop-b "$tree/links/loop-a" && ln -s loop-a "$tree/links/loop-b"
ln -s "$tree" "$tree/links/back"
# A tree deeper than a Windows path may be, and unreadable entries.
deep=$(printf 'level/%.0s' $(seq 200))
mkdir -p "$tree/deep/$deep" && echo bottom >"$tree/deep/$deep/bottom.txt"
mkdir -p "$tree/locked/in" && echo s >"$tree/locked/secret.txt"
chmod 000 "$tree/locked/secret.txt" "$tree/locked/in"

digest() {
    # Everything under the parent but the sandbox: what each entry is, and each file's bytes.
    (cd "$parent" && find . -path ./sandbox -prune -o -printf '%p %y %m %s %T@ %l\n' | sort &&
        find . -path ./sandbox -prune -o -type f -exec md5sum {} + | sort)
}
before=$(digest)

# Runs one command; judges that it ended, did not trip a sanitizer, and left the outside alone.
check() {
    runs=$((runs + 1))
    local started=$SECONDS
    timeout 120 "$velmora" --map "T=$sandbox" --map "V=$parent" "$@" >"$parent.out" 2>"$parent.err" </dev/null
    local rc=$?
    [ -z "${VELMORA_TIMES:-}" ] || echo "$((SECONDS - started)) s: $*"
    if [ "$rc" -eq 124 ] || [ "$rc" -ge 128 ]; then
        echo "FAIL: velmora $* did not end cleanly (exit $rc)"; failures=$((failures + 1))
    fi
    if grep -q 'Sanitizer' "$parent.err"; then
        echo "FAIL: velmora $* tripped a sanitizer"; head -20 "$parent.err"; failures=$((failures + 1))
    fi
    if [ "$before" != "$(digest)" ]; then
        echo "FAIL: velmora $* changed something outside the sandbox"
        diff <(echo "$before") <(digest) | head -20
        failures=$((failures + 1))
        before=$(digest)
    fi
}

# Reading commands, over every tree and the odd entries one by one.
for folder in 'T:\tree' 'T:\tree\del' 'T:\tree\odd' 'T:\tree\links' 'T:\tree\deep' 'T:\tree\locked'; do
    check count "$folder"
    check count "$folder" --list
    check isempty "$folder"
    check stat "$folder"
done
for entry in 'T:\tree\odd\fifo' 'T:\tree\odd\socket' 'T:\tree\odd\zero' 'T:\tree\odd\random' 'T:\tree\links\outside' \
    'T:\tree\links\loop-a' 'T:\tree\links\dangling' 'T:\tree\locked\secret.txt' 'T:\tree\odd\*'; do
    check stat "$entry"
    check hash "$entry"
    check attrib "$entry"
done
check compare 'T:\tree' 'T:\tree\plain'
check compare --hash 'T:\tree\odd' 'T:\tree\links'
check zip 'T:\tree' 'T:\out\tree.zip'
check unzip 'T:\out\tree.zip' 'T:\out\unzipped'
check wim capture 'T:\tree' 'T:\out\tree.wim'
check wim apply 'T:\out\tree.wim' 1 'T:\out\applied'

# Changing commands: each into a fresh place inside the sandbox, then changes made to the trees themselves.
check copy 'T:\tree' 'T:\copies\direct'
check copy --shell --silent 'T:\tree' 'T:\copies\shell'
check copy 'T:\tree\links' 'T:\copies\links'
check copy 'T:\tree\odd\zero' 'T:\copies\zero'
check mkdir 'T:\tree\del\..\victim\made'
for entry in 'T:\tree\links\outside' 'T:\tree\links\outside-file.txt' 'T:\tree\links\relative-outside'; do
    check attrib "$entry" +R +H
    check attrib "$entry" -R -H
done
check acl copy 'T:\tree\plain\a.txt' 'T:\tree\links\outside-file.txt' --dacl
check rmdir --silent 'T:\tree\links'
check rmdir --silent 'T:\tree\del'
check rmdir --silent 'T:\tree\odd'
check rmdir --silent 'T:\tree\deep'
check rmdir --silent 'T:\tree'
check rmdir --silent 'T:\'
check rmdir --silent 'T:'
check rmdir --silent 'T:\..'
check rmdir --silent 'V:\sandbox\..'

echo "$runs commands run, $failures failures"
[ "$failures" -eq 0 ]
