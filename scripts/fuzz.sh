#!/usr/bin/env bash
# Builds the libFuzzer targets (CMake preset `fuzz`: clang, AddressSanitizer and
# UndefinedBehaviorSanitizer) and runs each for SECONDS (30 unless given), as many at once as
# the machine has cores. Each target's corpus grows in build/fuzz/corpus/<target>, started from
# fuzz/seeds/<target>; an input that crashes, hangs (10 s) or takes more than 2 GB is written to
# build/fuzz/findings/<target>/ and makes the script fail. A summary line per target (runs,
# coverage, corpus, findings) goes to standard output and build/fuzz/summary.txt.
#
#   scripts/fuzz.sh            # 30 s each: what the test command runs
#   scripts/fuzz.sh 600        # a campaign of ten minutes each
#   scripts/fuzz.sh 60 msh gar # some targets only
#
# A finding becomes a regression test: copy it into fuzz/regressions/<target>/, fix the reader,
# and the test suite replays it in every build (ctest -R fuzz.replay).
set -euo pipefail
cd "$(dirname "$0")/.."
seconds=${1:-30}
shift || true
targets=("$@")
[ ${#targets[@]} -gt 0 ] || targets=(strintg msh toml dat archive gar)

cmake --preset fuzz -G Ninja >/dev/null
cmake --build --preset fuzz -j "$(nproc)" >/dev/null

out=build/fuzz
mkdir -p "$out/logs"
run_one() {
    local target=$1
    local corpus=$out/corpus/$target findings=$out/findings/$target
    mkdir -p "$corpus" "$findings"
    cp -n fuzz/seeds/"$target"/* "$corpus"/ 2>/dev/null || true
    "$out/fuzz/fuzz_$target" "$corpus" -max_total_time="$seconds" -timeout=10 \
        -rss_limit_mb=2048 -malloc_limit_mb=2048 -max_len=65536 -print_final_stats=1 \
        -artifact_prefix="$findings/" >"$out/logs/$target.log" 2>&1
}
summary() {
    local target=$1 code=$2 log=$out/logs/$1.log
    local runs cov corpus found
    runs=$(grep -o 'stat::number_of_executed_units: *[0-9]*' "$log" | grep -o '[0-9]*$' || true)
    cov=$(grep -o 'cov: [0-9]*' "$log" | tail -1 | grep -o '[0-9]*' || true)
    corpus=$(find "$out/corpus/$target" -type f | wc -l)
    found=$(find "$out/findings/$target" -type f | wc -l)
    printf '%-8s %4ss  runs %10s  coverage %6s  corpus %5s  findings %s  exit %s\n' \
        "$target" "$seconds" "${runs:-?}" "${cov:-?}" "$corpus" "$found" "$code"
}

jobs=${FUZZ_JOBS:-$(nproc)}
declare -A codes
pids=()
for target in "${targets[@]}"; do
    while [ "$(jobs -rp | wc -l)" -ge "$jobs" ]; do sleep 1; done
    ( run_one "$target"; ) &
    pids+=("$!:$target")
done
failed=0
for entry in "${pids[@]}"; do
    pid=${entry%%:*} target=${entry#*:}
    if wait "$pid"; then codes[$target]=0; else codes[$target]=$?; failed=1; fi
done
{
    echo "# $(date -u +%Y-%m-%d) $(uname -m), $(nproc) cores: scripts/fuzz.sh $seconds"
    for target in "${targets[@]}"; do summary "$target" "${codes[$target]}"; done
} | tee "$out/summary.txt"
if [ "$failed" -ne 0 ]; then
    for target in "${targets[@]}"; do
        [ "${codes[$target]}" -eq 0 ] || { echo "=== $target"; tail -40 "$out/logs/$target.log"; }
    done
    echo "fuzz: findings above (inputs in $out/findings/)" >&2
    exit 1
fi
