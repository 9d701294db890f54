#!/usr/bin/env bash
# Builds the module and the host, then runs zolhost on the example application directory
# until Ctrl-C, with a stand-in data manager playing the example race.
set -euo pipefail
cd "$(dirname "$0")"

scripts/setup.sh
cmake -S . -B build -G Ninja >/dev/null
ninja -C build zolserver zolhost
echo "Starting zolhost on examples/ (Ctrl-C ends it)"
exec build/bin/zolhost --appdir examples --race examples/race.json "$@"
