#!/usr/bin/env bash
# Puts the result store through what a machine does to it: runs killed (kill -9) at random
# moments, a disk that fills (a small tmpfs where this may mount one, else a file-size limit)
# and two writers at once. After each, the next command on the project must find P.GAR either
# the previous complete store or the new complete one (never missing, empty or partial), and
# no temporary file, backup or marker may be left behind.
#
#   scripts/store-stress.sh [KILLS] [SLABADAPT]   (KILLS: 60; SLABADAPT: build/release/cli/slabadapt)
#
# Prints one line per scenario and a summary; exits 1 on the first broken promise.
set -euo pipefail
cd "$(dirname "$0")/.."
kills=${1:-60}
slabadapt=$(realpath "${2:-build/release/cli/slabadapt}")
[ -x "$slabadapt" ] || { echo "store-stress: no program at $slabadapt (build it first)" >&2; exit 2; }

work=$(mktemp -d /tmp/slabadapt-stress.XXXXXX)
mounted=""
cleanup() {
    [ -z "$mounted" ] || umount "$mounted" 2>/dev/null || true
    rm -rf "$work"
}
trap cleanup EXIT

copy_example() { # folder -> project path
    mkdir -p "$1"
    cp examples/floor/floor.{msh,toml,STRINTG0001,STRINTG0002} "$1"/
    echo "$1/floor"
}
run() { "$slabadapt" run "$1" --target 0.05 --load-case "$2" >/dev/null 2>&1; }
# What the store holds, as `results` prints it (the reader puts back what a killed run set
# aside before it reads): one hash, "missing" or "unreadable".
store_state() {
    local out
    if [ ! -e "$1.GAR" ] && ! ls "$(dirname "$1")"/backup_floor.GAR >/dev/null 2>&1 \
        && [ ! -e "$1.run-pending" ]; then
        echo missing; return
    fi
    if out=$("$slabadapt" results "$1" --format csv 2>/dev/null); then
        echo "$out" | sha256sum | cut -c1-16
    else
        [ -e "$1.GAR" ] && echo unreadable || echo missing
    fi
}
leftovers() { # the files a writer must not leave
    find "$(dirname "$1")" -maxdepth 1 \( -name '*.tmp-*' -o -name 'backup_*' \
        -o -name '*.backup' -o -name '*.run-pending' -o -name '*-journal' \) -printf '%f '
}
fail() { echo "store-stress: FAILED: $*" >&2; exit 1; }

# The two complete stores: load case 101's and 102's.
ref=$(copy_example "$work/ref")
run "$ref" 101; state101=$(store_state "$ref")
run "$ref" 102; state102=$(store_state "$ref")
[ "$state101" != "$state102" ] || fail "the two load cases give the same store"
echo "stores: 101 -> $state101, 102 -> $state102"

# ---- kills at random moments
project=$(copy_example "$work/kill")
run "$project" 101
current=$state101
old=0 new=0 none=0
# The kill comes at a random moment within the time a whole run takes (at most 1 s).
start=$(date +%s%N)
run "$ref" 101
window_ms=$(( ($(date +%s%N) - start) / 1000000 + 1 ))
[ "$window_ms" -le 999 ] || window_ms=999
for ((i = 1; i <= kills; i++)); do
    if [ $((i % 2)) -eq 0 ]; then case=101; next=$state101; else case=102; next=$state102; fi
    # First runs too: now and then the project starts without any store.
    if [ $((i % 10)) -eq 5 ]; then rm -f "$project.GAR" "$project.refine.pos"; current=missing; fi
    "$slabadapt" run "$project" --target 0.05 --load-case "$case" >/dev/null 2>&1 &
    pid=$!
    sleep "$(printf '0.%03d' $((RANDOM % window_ms)))"
    kill -9 "$pid" 2>/dev/null || true
    wait "$pid" 2>/dev/null || true
    state=$(store_state "$project")
    left=$(leftovers "$project")
    [ -z "$left" ] || fail "kill $i: left behind: $left"
    if [ "$state" = "$current" ]; then old=$((old + 1))
    elif [ "$state" = "$next" ]; then new=$((new + 1))
    else fail "kill $i (load case $case): the store is $state, neither the previous ($current) nor the new ($next)"
    fi
    [ "$state" != missing ] || none=$((none + 1))
    current=$state
done
echo "kills: $kills runs killed between 0 and $window_ms ms: previous store $old, new store $new (of which no store before and after: $none)"

# ---- a disk that fills
disk=$work/disk
mkdir -p "$disk"
inputs=$(du -ck examples/floor/floor.{msh,toml,STRINTG0001,STRINTG0002} | tail -1 | cut -f1)
garsize=$(( $(stat -c %s "$ref.GAR") / 1024 ))
possize=$(( $(stat -c %s "$ref.refine.pos") / 1024 ))
size=$((inputs + garsize + possize + garsize / 2 + 64))
if [ "$(id -u)" -eq 0 ] && mount -t tmpfs -o size=${size}k tmpfs "$disk" 2>/dev/null; then
    mounted=$disk
    project=$(copy_example "$disk/p")
    # The first run fits; the second finds no room for the backup beside the new store.
    run "$project" 101 || fail "full disk: the first run did not fit"
    "$slabadapt" run "$project" --target 0.05 --load-case 102 >/dev/null 2>"$work/full.err" && code=0 || code=$?
    state=$(store_state "$project")
    [ "$state" = "$state101" ] || fail "full disk: the store is $state after exit $code: $(cat "$work/full.err")"
    [ -z "$(leftovers "$project")" ] || fail "full disk: left $(leftovers "$project")"
    echo "full disk (tmpfs of $size kB): exit $code, previous store kept: $(head -1 "$work/full.err")"
    umount "$disk"; mounted=""
else
    echo "full disk: no tmpfs may be mounted here; a file-size limit instead"
fi
for limit in 64 512; do
    for signal in default ignored; do
        project=$(copy_example "$work/ulimit-$limit-$signal")
        run "$project" 101
        if [ $signal = ignored ]; then
            ( trap '' XFSZ; ulimit -f $limit; exec "$slabadapt" run "$project" --target 0.05 --load-case 102 ) >/dev/null 2>"$work/ulimit.err" && code=0 || code=$?
        else
            ( ulimit -f $limit; exec "$slabadapt" run "$project" --target 0.05 --load-case 102 ) >/dev/null 2>"$work/ulimit.err" && code=0 || code=$?
        fi
        state=$(store_state "$project")
        [ "$state" = "$state101" ] || fail "ulimit -f $limit (SIGXFSZ $signal): the store is $state after exit $code"
        [ -z "$(leftovers "$project")" ] || fail "ulimit -f $limit: left $(leftovers "$project")"
        echo "file-size limit ${limit} kB, SIGXFSZ $signal: exit $code, previous store kept"
    done
done

# ---- two writers at once
project=$(copy_example "$work/two")
for ((i = 1; i <= 5; i++)); do
    "$slabadapt" run "$project" --target 0.05 --load-case 101 >/dev/null 2>&1 & a=$!
    "$slabadapt" run "$project" --target 0.05 --load-case 102 >/dev/null 2>&1 & b=$!
    wait $a && ca=0 || ca=$?
    wait $b && cb=0 || cb=$?
    [ $ca -eq 0 ] && [ $cb -eq 0 ] || fail "two writers: exits $ca and $cb"
    state=$(store_state "$project")
    [ "$state" = "$state101" ] || [ "$state" = "$state102" ] || fail "two writers: the store is $state"
    [ -z "$(leftovers "$project")" ] || fail "two writers: left $(leftovers "$project")"
done
"$slabadapt" run "$project" --target 0.05 --load-case 101 >/dev/null 2>&1 & a=$!
sleep 0.05
"$slabadapt" run "$project" --target 0.05 --load-case 102 --no-wait >/dev/null 2>&1 && cb=0 || cb=$?
wait $a
[ $cb -eq 75 ] || [ $cb -eq 0 ] || fail "two writers with --no-wait: exit $cb"
echo "two writers: 5 times both ended with success and a whole store; --no-wait gave exit $cb"
echo "store-stress: all promises kept"
