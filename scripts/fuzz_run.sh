#!/bin/sh
# Runs every libFuzzer target of a fuzz build over its corpus for a while and
# fails when any target makes a finding: a crash, a sanitizer report, a leak,
# an input that runs longer than 10 s or takes more than 2 GiB.
# Usage: fuzz_run.sh BUILD_DIR [SECONDS] [--merge]
#   SECONDS  per target (default 20); two targets run at a time
#   --merge  afterwards adds the inputs that reached new code to the target's
#            corpus, for committing
# The target <name>_fuzz runs over a scratch copy of its corpus fuzz/corpus/<name>
# in BUILD_DIR/fuzz-run/, so without --merge the source tree stays as it was.
# A finding is kept in BUILD_DIR/fuzz-findings/<target>/; running the target
# on that file alone reproduces it.
set -eu
here=$(cd "$(dirname "$0")/.." && pwd)

# One target: run_one BUILD_DIR SECONDS MERGE TARGET. Its output goes to a
# log beside the scratch corpus; the status file says how it ended.
run_one() {
    build=$1 seconds=$2 merge=$3 target=$4
    corpus=$here/fuzz/corpus/${target%_fuzz}
    scratch=$build/fuzz-run/$target
    findings=$build/fuzz-findings/$target
    rm -rf "$scratch" "$findings"
    mkdir -p "$scratch/corpus" "$findings"
    if [ -d "$corpus" ]; then
        cp -R "$corpus/." "$scratch/corpus/"
    fi
    # The scratch directory is the working directory: whatever a target
    # writes beside itself stays out of the source tree.
    cd "$scratch"
    status=0
    "$build/bin/$target" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 \
        -artifact_prefix="$findings/" -print_final_stats=1 corpus >log 2>&1 || status=$?
    if [ "$status" -eq 0 ] && [ "$merge" = 1 ]; then
        mkdir -p "$corpus"
        "$build/bin/$target" -merge=1 "$corpus" corpus >>log 2>&1 || status=$?
    fi
    echo "$status" >status
    return "$status"
}

if [ "${1:-}" = "--one" ]; then
    shift
    run_one "$@"
    exit
fi

[ $# -ge 1 ] || { echo "usage: fuzz_run.sh BUILD_DIR [SECONDS] [--merge]" >&2; exit 2; }
build=$(cd "$1" && pwd)
seconds=20
merge=0
shift
for arg in "$@"; do
    case "$arg" in
    --merge) merge=1 ;;
    *[!0-9]* | "") echo "fuzz_run.sh: not a number of seconds: $arg" >&2; exit 2 ;;
    *) seconds=$arg ;;
    esac
done

targets=$(cd "$here/fuzz" && ls -- *_fuzz.cpp | sed 's/\.cpp$//')
for target in $targets; do
    [ -x "$build/bin/$target" ] || { echo "fuzz_run.sh: $build/bin/$target is not built" >&2; exit 1; }
done

# A UBSan report stops the run (as a crash libFuzzer records) rather than
# scrolling past; leaks count as findings.
export ASAN_OPTIONS="${ASAN_OPTIONS:-detect_leaks=1}"
export UBSAN_OPTIONS="${UBSAN_OPTIONS:-halt_on_error=1:print_stacktrace=1}"

echo "fuzzing $(echo $targets | wc -w) targets for ${seconds}s each"
printf '%s\n' $targets | xargs -P 2 -I '{}' "$0" --one "$build" "$seconds" "$merge" '{}' || true

failed=0
for target in $targets; do
    scratch=$build/fuzz-run/$target
    status=$(cat "$scratch/status" 2>/dev/null || echo "did not finish")
    runs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$scratch/log" | tail -n 1)
    if [ "$status" = 0 ]; then
        echo "  $target: ${runs:-?} runs, corpus $(ls "$scratch/corpus" | wc -l) inputs, no finding"
    else
        failed=1
        echo "  $target: FINDING (exit $status), input kept in $build/fuzz-findings/$target/"
        ls "$build/fuzz-findings/$target" | sed 's/^/    /'
        sed 's/^/    | /' "$scratch/log" | tail -n 60
    fi
done
exit "$failed"
