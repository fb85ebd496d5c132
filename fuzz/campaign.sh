#!/usr/bin/env bash
# One round of a fuzzing campaign that accumulates:
#
#   fuzz/campaign.sh TARGET MINUTES [JOBS]
#
#  1. builds fuzz_TARGET in build-fuzz (clang, libFuzzer, AddressSanitizer and
#     UndefinedBehaviorSanitizer), configuring it first if needed;
#  2. runs it niced for MINUTES on JOBS processes (-fork, default 1), with the
#     target's dictionary (fuzz/TARGET.dict), a length cap per target, the
#     seeds of fuzz/corpus/TARGET, tests/regress/TARGET and the matching files
#     of the shared corpus of real messages;
#  3. merges what it found into fuzz/corpus/TARGET with -merge=1 (only inputs
#     that add coverage, so the corpus stays small);
#  4. copies every crash, leak, timeout and out-of-memory input to
#     tests/regress/TARGET/ as <kind>-<hash>.<ext>: rename it after what it
#     breaks once you looked at it (tnef-attachment-count-overflow.tnef), fix
#     it, and the replay test keeps it fixed;
#  5. appends one line to fuzz/CAMPAIGN.md: date, target, CPU seconds of the
#     fuzzing processes (user + system, children included), executions,
#     coverage (cov/ft), findings, and the machine's load before and after.
#
# Environment: QH_FUZZ_BUILD (default build-fuzz), QH_FUZZ_NICE (default 19).
set -euo pipefail

usage() {
    echo "usage: $0 TARGET MINUTES [JOBS]" >&2
    echo "targets: compound msg eml tnef rtf_decompress rtf_reader preview util_decoders" >&2
    exit 2
}
[[ $# -ge 2 && $# -le 3 ]] || usage
target=$1
minutes=$2
jobs=${3:-1}
[[ $minutes =~ ^[0-9]+$ && $minutes -gt 0 ]] || usage
[[ $jobs =~ ^[0-9]+$ && $jobs -gt 0 ]] || usage

root=$(cd "$(dirname "$0")/.." && pwd)
[[ -f $root/fuzz/$target.cpp ]] || { echo "no fuzz target '$target'" >&2; usage; }
build=${QH_FUZZ_BUILD:-$root/build-fuzz}
niceness=${QH_FUZZ_NICE:-19}
export CCACHE_BASEDIR=${CCACHE_BASEDIR:-/work}

# Per target: the longest input worth mutating, the file extension of its
# inputs, and the subfolder of the shared corpus that seeds it.
case $target in
    compound | msg | preview) max_len=131072 ext=msg shared=msg ;;
    eml) max_len=65536 ext=eml shared=eml ;;
    tnef) max_len=65536 ext=tnef shared=tnef ;;
    rtf_decompress) max_len=32768 ext=lzfu shared=rtf ;;
    rtf_reader) max_len=65536 ext=rtf shared=rtf ;;
    *) max_len=16384 ext=bin shared= ;;
esac

# 1. The build (ccache makes an unchanged rebuild cheap), at the priority of
# any other build: niced on a busy machine it would not finish.
if [[ ! -f $build/CMakeCache.txt ]]; then
    cmake -S "$root" -B "$build" -DCMAKE_CXX_COMPILER=clang++ -DQH_BUILD_FUZZ=ON \
        -DQH_BUILD_BENCH=OFF -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
fi
cmake --build "$build" --target "fuzz_$target" -j"$jobs" >/dev/null
fuzzer=$build/fuzz/fuzz_$target

# 2. The run, in a work folder of its own.
stamp=$(date -u +%Y%m%dT%H%M%SZ)
work=$build/campaign/$target-$stamp
mkdir -p "$work/new" "$work/artifacts" "$work/seeds" "$root/fuzz/corpus/$target"
if [[ -n $shared && -d $root/../shared/corpus/$shared ]]; then
    # Real messages, linked by extension (the folder also holds expected outputs).
    find "$root/../shared/corpus/$shared" -maxdepth 1 -type f \
        \( -name '*.msg' -o -name '*.eml' -o -name '*.tnef' -o -name '*.dat' -o -name '*.lzfu' \
           -o -name '*.rtf' -o -name '*.bin' \) -exec ln -s {} "$work/seeds/" \; 2>/dev/null || true
fi
seed_dirs=("$root/fuzz/corpus/$target" "$work/seeds")
[[ -d $root/tests/regress/$target ]] && seed_dirs+=("$root/tests/regress/$target")
# What earlier runs here found and the repository does not keep (over 16 KiB).
for earlier in "$build"/campaign/"$target"-*/new; do
    [[ -d $earlier && $earlier != "$work/new" ]] && seed_dirs+=("$earlier")
done
dict_args=()
[[ -f $root/fuzz/$target.dict ]] && dict_args=(-dict="$root/fuzz/$target.dict")

load_before=$(cut -d' ' -f1 /proc/loadavg)
cpu_before=$(awk '{print $14 + $15 + $16 + $17}' /proc/$$/stat)  # our and our waited children's ticks
set +e
(
    cd "$work"
    exec nice -n "$niceness" "$fuzzer" -fork="$jobs" -ignore_crashes=1 -ignore_timeouts=1 -ignore_ooms=1 \
        -max_total_time=$((minutes * 60)) -max_len="$max_len" -timeout=20 -rss_limit_mb=2048 \
        -artifact_prefix="$work/artifacts/" -print_final_stats=1 "${dict_args[@]}" \
        "$work/new" "${seed_dirs[@]}"
) >"$work/fuzz.log" 2>&1
status=$?
set -e
cpu_after=$(awk '{print $14 + $15 + $16 + $17}' /proc/$$/stat)
load_after=$(cut -d' ' -f1 /proc/loadavg)
ticks=$(getconf CLK_TCK)
cpu_seconds=$(((cpu_after - cpu_before) / ticks))

# Executions and coverage from the last status line ("#123456: cov: 1234 ft: 5678 ..."
# in fork mode, "#123456 ... cov: 1234 ft: 5678" in a single process).
last=$(grep -E '^#[0-9]+.*cov: [0-9]+ ft: [0-9]+' "$work/fuzz.log" | tail -n 1 || true)
executions=$(sed -E 's/^#([0-9]+).*/\1/' <<<"$last")
cov=$(sed -E 's/.*cov: ([0-9]+).*/\1/' <<<"$last")
ft=$(sed -E 's/.*ft: ([0-9]+).*/\1/' <<<"$last")

# 3. What is new goes into the kept corpus, only where it adds coverage to
# what is replayed already (the kept corpus, the regression inputs and the
# shared corpus): the merge starts from copies of those, and what it adds
# there is what the kept corpus gains.
mkdir -p "$work/known"
for dir in "${seed_dirs[@]}"; do
    find -L "$dir" -maxdepth 1 -type f -exec cp -L -t "$work/known" {} + 2>/dev/null || true
done
ls "$work/known" | sort >"$work/known.list"
nice -n "$niceness" "$fuzzer" -merge=1 -max_len="$max_len" -timeout=20 -rss_limit_mb=2048 \
    "$work/known" "$work/new" >"$work/merge.log" 2>&1 || echo "merge failed: see $work/merge.log" >&2
# Only inputs up to 16 KiB are kept in the repository (every build replays
# them); bigger ones stay in the run's folder, which later runs on this
# machine read as seeds.
added=0 left=0
while read -r name; do
    if [[ $(stat -c %s "$work/known/$name") -le 16384 ]]; then
        cp "$work/known/$name" "$root/fuzz/corpus/$target/$name"
        added=$((added + 1))
    else
        left=$((left + 1))
    fi
done < <(ls "$work/known" | sort | comm -13 "$work/known.list" -)

# 4. Findings become regression inputs.
findings=()
mkdir -p "$root/tests/regress/$target"
known=$(find "$root/tests/regress/$target" -type f -exec sha1sum {} + | cut -c1-40)
for artifact in "$work"/artifacts/*; do
    [[ -f $artifact ]] || continue
    base=$(basename "$artifact")
    kind=${base%%-*}
    case $kind in crash | leak | timeout | oom) ;; *) continue ;; esac
    hash=$(sha1sum "$artifact" | cut -c1-40)
    # An input already kept (under whatever name it got) is not a new finding.
    grep -qx "$hash" <<<"$known" && continue
    known+=$'\n'$hash
    cp "$artifact" "$root/tests/regress/$target/$kind-${hash:0:12}.$ext"
    findings+=("$kind-${hash:0:12}")
done

if [[ ${#findings[@]} -eq 0 ]]; then
    found="findings: none"
else
    found="findings: ${#findings[@]} new under tests/regress/$target (${findings[*]}), to triage"
fi
[[ $status -eq 0 ]] || found="$found; fuzzer exit status $status, log $work/fuzz.log"

# 5. The log line. The CPU figure is the only number followed by "s" on it.
line="- $(date -u '+%Y-%m-%d %H:%M') UTC | $target | $cpu_seconds CPU s | executions ${executions:-0} | cov ${cov:-0} ft ${ft:-0} | corpus +$added (+$left over 16 KiB kept locally) | jobs $jobs, nice $niceness, load $load_before to $load_after | $found"
echo "$line" >>"$root/fuzz/CAMPAIGN.md"
echo "$line"
