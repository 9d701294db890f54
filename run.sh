#!/usr/bin/env bash
# Builds the module, the host and the client; runs zolhost on the example application
# directory with a stand-in data manager playing the example race; lets a zolclient
# receive the whole example site once; then keeps zolhost running until Ctrl-C.
set -euo pipefail
cd "$(dirname "$0")"

scripts/setup.sh
cmake -S . -B build -G Ninja >/dev/null
ninja -C build zolserver zolhost zolclient

echo "Starting zolhost on examples/ (Ctrl-C ends it)"
build/bin/zolhost --appdir examples --race examples/race.json "$@" &
host=$!
trap 'kill "$host" 2>/dev/null || true; wait "$host" 2>/dev/null || true' EXIT INT TERM

received=build/received
rm -rf "$received"
echo "zolclient: receiving the example site from tcp://127.0.0.1:51000 into $received"
if build/bin/zolclient tcp://127.0.0.1:51000 --out "$received" --until-complete site --timeout 90 --stats; then
  echo "The whole site arrived in $received:"
  (cd "$received" && find . -type f | sort | sed 's|^\./|  |')
else
  echo "zolclient did not receive the whole site (see above); zolhost keeps running"
fi
echo "zolhost keeps publishing; Ctrl-C ends it"
wait "$host"
