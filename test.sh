#!/usr/bin/env bash
# Builds everything and runs the whole test suite: a release build, the same suite under
# AddressSanitizer with UndefinedBehaviorSanitizer, the threaded parts under
# ThreadSanitizer, and the fuzz targets for a short fixed time, each starting from the
# corpus kept in testing/fuzz-corpus. Ends with the time each stage took.
set -euo pipefail
cd "$(dirname "$0")"

# Stage timing: `stage NAME` ends the stage before and starts NAME; the table follows
# "== done".
stage_names=()
stage_seconds=()
stage_started=$SECONDS
stage() {
  if [ ${#stage_names[@]} -gt 0 ]; then
    stage_seconds+=($((SECONDS - stage_started)))
  fi
  stage_names+=("$1")
  stage_started=$SECONDS
}
stage_table() {
  stage_seconds+=($((SECONDS - stage_started)))
  local i
  printf '%-40s %8s\n' stage 'm:ss'
  for i in "${!stage_names[@]}"; do
    printf '%-40s %5d:%02d\n' "${stage_names[i]}" $((stage_seconds[i] / 60)) $((stage_seconds[i] % 60))
  done
  printf '%-40s %5d:%02d\n' total $((SECONDS / 60)) $((SECONDS % 60))
}

stage setup
scripts/setup.sh

passed=0
failed=0
log=$(mktemp)
trap 'rm -f "$log"' EXIT

# Minutes and seconds since the start, for the progress lines.
elapsed() { printf '%d:%02d' $((SECONDS / 60)) $((SECONDS % 60)); }

# Runs ctest in a build folder and adds its counts to the totals.
run_ctest() {
  local folder=$1
  shift
  stage "tests in $folder"
  echo "== tests in $folder (at $(elapsed))"
  local status=0
  ctest --test-dir "$folder" --output-on-failure --timeout 600 -j2 "$@" | tee "$log" || status=$?
  local line
  line=$(grep -E 'tests passed, [0-9]+ tests? failed out of [0-9]+' "$log" | tail -n 1 || true)
  if [[ $line =~ ([0-9]+)\ tests?\ failed\ out\ of\ ([0-9]+) ]]; then
    failed=$((failed + BASH_REMATCH[1]))
    passed=$((passed + BASH_REMATCH[2] - BASH_REMATCH[1]))
  fi
  return $status
}

build() {
  local folder=$1
  shift
  stage "build $folder"
  echo "== building $folder (at $(elapsed))"
  cmake -S . -B "$folder" -G Ninja "$@" >/dev/null
  ninja -C "$folder"
}

status=0

# The plain build is the release build, so that what ships is built warning-clean too.
build build -DCMAKE_BUILD_TYPE=Release
run_ctest build || status=1

# Installing and packaging: the plain build installed into a temporary prefix and made
# into a Debian package (left in build/package/), each run on its installed examples.
stage "install and package"
echo "== install and package (at $(elapsed))"
if timeout 600 scripts/install_test.sh build; then
  passed=$((passed + 1))
else
  failed=$((failed + 1))
  status=1
fi

build build-asan -DZOL_SANITIZE=address -DZOL_BUILD_BENCH=OFF

# The fuzz targets build in the background while the sanitizer tests run: most of those
# tests wait on sockets and processes and leave the cores idle.
fuzz_sources=$(find frame distribution site data views web host client -name '*_fuzz.cpp' 2>/dev/null | sort)
fuzz_build_log=$(mktemp)
fuzz_build_pid=
if [ -n "$fuzz_sources" ]; then
  echo "== building fuzz targets in the background (at $(elapsed))"
  (CC=clang CXX=clang++ cmake -S . -B build-fuzz -G Ninja -DZOL_FUZZ=ON -DZOL_SANITIZE=address \
     -DZOL_BUILD_TESTS=OFF -DZOL_BUILD_BENCH=OFF >/dev/null && nice ninja -C build-fuzz) >"$fuzz_build_log" 2>&1 &
  fuzz_build_pid=$!
fi

ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
  run_ctest build-asan || status=1

# The threaded parts: only the test files that hold them are built for ThreadSanitizer.
threaded='Thread|Port|Tcp|Multicast|Serial|Zolhost|Zolclient|EndToEnd|ViewerServing|ViewerPages|Mqtt'
build build-tsan -DZOL_SANITIZE=thread -DZOL_BUILD_BENCH=OFF "-DZOL_TEST_MATCHING=$threaded"
# The late-client test waits a minute for the site's longest repeat; its threads are the
# same as those of the other process tests, so the plain and ASan runs are enough for it.
TSAN_OPTIONS=halt_on_error=1:second_deadlock_stack=1:suppressions=$PWD/testing/tsan-suppressions.txt \
  run_ctest build-tsan -R "$threaded" -E 'SiteEndToEnd.LateClient' || status=1

# Seconds each fuzz target runs; scripts/fuzz.sh runs one longer. One input that takes
# longer than fuzz_input_seconds is a hang, and fails the run at once.
fuzz_seconds=15
fuzz_input_seconds=10
if [ -n "$fuzz_build_pid" ]; then
  stage "finish build-fuzz"
  echo "== waiting for the fuzz targets' build (at $(elapsed))"
  if ! wait "$fuzz_build_pid"; then
    tail -n 40 "$fuzz_build_log"
    echo "== the fuzz targets did not build"
    rm -f "$fuzz_build_log"
    stage_table
    echo "$passed passed, $((failed + 1)) failed"
    exit 1
  fi
  tail -n 1 "$fuzz_build_log"
  rm -f "$fuzz_build_log"
  for source in $fuzz_sources; do
    name=$(basename "$source" .cpp)
    stage "fuzz $name"
    corpus=$(mktemp -d)
    # Targets that can write seeds of valid messages start from them, and every target
    # from the corpus kept for it (read only: new finds go to the scratch folder).
    if grep -q -- '--write-seeds=' "$source"; then
      "build-fuzz/bin/$name" "--write-seeds=$corpus" >/dev/null
    fi
    kept=()
    kept_count=0
    if [ -d "testing/fuzz-corpus/$name" ]; then
      kept=("testing/fuzz-corpus/$name")
      kept_count=$(ls "testing/fuzz-corpus/$name" | wc -l)
    fi
    echo "== fuzzing $name for $fuzz_seconds seconds ($(ls "$corpus" | wc -l) seeds, $kept_count kept inputs)"
    if ASAN_OPTIONS=detect_leaks=1 "build-fuzz/bin/$name" -max_total_time=$fuzz_seconds -timeout=$fuzz_input_seconds -rss_limit_mb=2048 \
        -print_final_stats=0 "$corpus" "${kept[@]}" >"$log" 2>&1; then
      passed=$((passed + 1))
      tail -n 2 "$log"
    else
      failed=$((failed + 1))
      status=1
      tail -n 40 "$log"
    fi
    rm -rf "$corpus"
  done
fi

echo
echo "== done (at $(elapsed))"
stage_table
echo "$passed passed, $failed failed"
exit $status
