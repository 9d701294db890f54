#!/usr/bin/env bash
# Builds the module, the host and the client; runs zolhost on the example application
# directory with a stand-in data manager playing the example meeting at twelve times real
# speed, over and over, and its administration pages on http://127.0.0.1:8080/ (when that
# port is taken, zolhost says so in one line and runs without them); lets a zolclient
# receive the whole example site once; then keeps zolhost running until Ctrl-C, the pages
# filling with live results, and a viewer that shows them to spectators in a browser on
# http://127.0.0.1:8090/.
set -euo pipefail
cd "$(dirname "$0")"

scripts/setup.sh
cmake -S . -B build -G Ninja >/dev/null
ninja -C build zolserver zolhost zolclient

echo "Starting zolhost on examples/ with the example meeting at 12x speed (Ctrl-C ends it)"
# The example race names its drivers in several scripts (accented Latin, Polish, Chinese):
# --code-page UTF-8 keeps every letter, where the default CP1252 would show "?" for some.
build/bin/zolhost --appdir examples --code-page UTF-8 --race examples/race.json --race-speed 12 --race-loop "$@" &
host=$!
viewer=
trap 'kill $host $viewer 2>/dev/null || true; wait 2>/dev/null || true' EXIT INT TERM

received=build/received
rm -rf "$received"
echo "zolclient: receiving the example site from tcp://127.0.0.1:51000 into $received"
if build/bin/zolclient tcp://127.0.0.1:51000 --out "$received" --until-complete site --timeout 90 --stats; then
  echo "The whole site arrived in $received:"
  (cd "$received" && find . -type f | sort | sed 's|^\./|  |')
else
  echo "zolclient did not receive the whole site (see above); zolhost keeps running"
fi
# The viewer: a second client that shows the pages as a live web site.
build/bin/zolclient tcp://127.0.0.1:51000 --serve 127.0.0.1:8090 &
viewer=$!
echo "The live pages for spectators, in a browser: http://127.0.0.1:8090/"
echo "  (results: http://127.0.0.1:8090/site/1/results/current.html; the client says above if port 8090 is taken)"
cat <<TEXT
zolhost keeps publishing; Ctrl-C ends it. The meeting (practice, qualifying, a race of ten
laps, about three minutes at this speed) starts again after its last run. To watch it live,
from a second shell:
  build/bin/zolclient tcp://127.0.0.1:51000 --out /tmp/live
and look at /tmp/live/results/current.zol (the results of the run on track, laps going
up), /tmp/live/results/runinformation.zol (flag, race time, time to go, leader),
/tmp/live/results/announcements.zol and /tmp/live/_site1.info (the clock of page 0).
TEXT
if grep -q -- '--no-web\|--web' <<<"$*"; then
  echo "The administration pages: see zolhost's lines above."
else
  echo "The administration pages (ports, sites, page editor) in a browser:"
  echo "  http://127.0.0.1:8080/zol/_server/index.html"
  echo "  (unless zolhost said above that port 8080 is taken; then pass --web 127.0.0.1:PORT)"
fi
wait "$host"
