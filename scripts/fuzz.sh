#!/usr/bin/env bash
# Fuzzes one target for a while and grows its kept corpus in testing/fuzz-corpus/TARGET:
# the run starts from the kept inputs and the seeds the target writes, and at the end
# everything is merged back into the kept folder, minimised (only inputs that add
# coverage stay, the smallest first).
#
#   scripts/fuzz.sh TARGET [MINUTES]     e.g. scripts/fuzz.sh xmlparse_fuzz 20
#
# TARGET is the name of a */*_fuzz.cpp file. MINUTES defaults to 10. The targets are
# built with clang in build-fuzz, as ./test.sh builds them (ZOL_FUZZ_BUILD=DIR for
# another folder). Inputs that crash are kept in the build folder as TARGET-crash-*.
set -euo pipefail
cd "$(dirname "$0")/.."

usage="usage: scripts/fuzz.sh TARGET [MINUTES]"
target=${1:?$usage}
minutes=${2:-10}
folder=${ZOL_FUZZ_BUILD:-build-fuzz}
if ! [[ $minutes =~ ^[0-9]+$ ]] || [ "$minutes" -eq 0 ]; then
  echo "$usage (MINUTES a whole number above 0)" >&2
  exit 2
fi

source=$(find frame distribution site data views web host client -name "$target.cpp" 2>/dev/null | head -n 1)
if [[ $target != *_fuzz || -z $source ]]; then
  echo "no fuzz target $target; there are:" >&2
  find frame distribution site data views web host client -name '*_fuzz.cpp' 2>/dev/null |
    xargs -n 1 basename | sed 's/\.cpp$//' | sort | sed 's/^/  /' >&2
  exit 2
fi

echo "== building $target in $folder"
CC=clang CXX=clang++ cmake -S . -B "$folder" -G Ninja -DZOL_FUZZ=ON -DZOL_SANITIZE=address \
  -DZOL_BUILD_TESTS=OFF -DZOL_BUILD_BENCH=OFF >/dev/null
ninja -C "$folder" "$target"
program=$folder/bin/$target

kept=testing/fuzz-corpus/$target
mkdir -p "$kept"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
mkdir "$work/found" "$work/merged"
if grep -q -- '--write-seeds=' "$source"; then
  "$program" "--write-seeds=$work/found" >/dev/null
fi

before=$(ls "$kept" | wc -l)
echo "== fuzzing $target for $minutes minute(s) from $before kept input(s) and $(ls "$work/found" | wc -l) seed(s)"
status=0
ASAN_OPTIONS=detect_leaks=1 "$program" -max_total_time=$((minutes * 60)) -timeout=10 -rss_limit_mb=2048 \
  -print_final_stats=1 "-artifact_prefix=$folder/$target-" "$work/found" "$kept" || status=$?

# What was found is merged in even after a crash; the crashing input itself stays out.
echo "== minimising into $kept"
"$program" -merge=1 -timeout=10 -rss_limit_mb=2048 "$work/merged" "$kept" "$work/found" >"$work/merge.log" 2>&1 || {
  tail -n 20 "$work/merge.log" >&2
  exit 1
}
find "$kept" -maxdepth 1 -type f -delete
cp "$work/merged"/. "$kept"/ -r
echo "$kept: $before -> $(ls "$kept" | wc -l) input(s), $(cat "$kept"/* | wc -c) bytes"
if [ "$status" -ne 0 ]; then
  echo "$target failed (exit $status); the input is in $folder/$target-*" >&2
fi
exit "$status"
