#!/usr/bin/env bash
# Plays a large race through zolhost and the example site and tells whether the message
# thread keeps up: by default 2,000 competitors in one 30-minute race at 60 times real
# speed. zolhost's stand-in plays the race; a zolclient on the TCP port reads the race
# time from the information page once a second. At the end it prints the race time
# played over the wall time it took (the speed reached) and the largest lag of zolhost's
# timer, which drives the sites' one-second tick. The thread keeps up while that lag
# stays under one second.
#
# Usage: bench/race_load.sh [--build DIR] [--competitors N] [--minutes M] [--speed X]
set -euo pipefail
cd "$(dirname "$0")/.."

build=build
competitors=2000
minutes=30
speed=60
while [ $# -gt 0 ]; do
  case "$1" in
    --build) build=$2; shift 2 ;;
    --competitors) competitors=$2; shift 2 ;;
    --minutes) minutes=$2; shift 2 ;;
    --speed) speed=$2; shift 2 ;;
    -h|--help) sed -n '2,10p' "$0" | sed 's/^# \{0,1\}//'; exit 0 ;;
    *) echo "race_load.sh: unknown option '$1' (see --help)" >&2; exit 2 ;;
  esac
done
for program in zolhost zolclient libzolserver.so; do
  if [ ! -e "$build/bin/$program" ]; then
    echo "race_load.sh: $build/bin/$program is missing; build first (ninja -C $build)" >&2
    exit 2
  fi
done

work=$(mktemp -d)
host_pid=
client_pid=
cleanup() {
  [ -n "$client_pid" ] && kill "$client_pid" 2>/dev/null || true
  [ -n "$host_pid" ] && kill "$host_pid" 2>/dev/null || true
  wait 2>/dev/null || true
  rm -rf "$work"
}
trap cleanup EXIT

# The race: one race over the minutes, the competitors with their seeded default pace.
python3 - "$competitors" "$minutes" > "$work/race.json" <<'PY'
import json, sys
count, minutes = int(sys.argv[1]), int(sys.argv[2])
print(json.dumps({
    "track": {"name": "Load Ring", "length": 4.259,
              "timelines": [{"id": 0, "name": "Finish", "position": 0.0},
                            {"id": 1, "name": "Split 1", "position": 1.412},
                            {"id": 2, "name": "Split 2", "position": 2.980}]},
    "events": [{"id": 1, "name": "Load Meeting"}],
    "meeting": {"break": 10},
    "runs": [{"id": 1, "event": 1, "name": "Endurance", "type": 2, "minutes": minutes}],
    "competitors": [{"id": i, "number": str(i), "first": "Driver", "last": "No %d" % i,
                     "class": "Pro" if i % 3 else "Am", "transponders": [4400000 + i]}
                    for i in range(1, count + 1)],
}))
PY

# The example application directory on a free port.
port=$(python3 -c 'import socket; s=socket.socket(); s.bind(("127.0.0.1", 0)); print(s.getsockname()[1]); s.close()')
cp -r examples/Config examples/site "$work/"
sed -i "s/^port=51000\$/port=$port/" "$work/Config/ZOLServer.ini"

"$build/bin/zolhost" --appdir "$work" --no-web --race "$work/race.json" --race-speed "$speed" --seed 1 \
  2> "$work/host.log" &
host_pid=$!
race_seconds=$((minutes * 60))
wall_limit=$((race_seconds * 2 / ${speed%.*} + 60))
"$build/bin/zolclient" "tcp://127.0.0.1:$port" --out "$work/received" --timeout "$wall_limit" \
  > /dev/null 2> "$work/client.log" &
client_pid=$!

# Race time of the information page, in seconds ("H:MM:SS"), or nothing.
race_time() {
  local value
  value=$(sed -n 's/^clock\.racetime=//p' "$work/received/_site1.info" 2>/dev/null || true)
  [[ $value =~ ^([0-9]+):([0-9]{2}):([0-9]{2}) ]] || return 0
  echo $((10#${BASH_REMATCH[1]} * 3600 + 10#${BASH_REMATCH[2]} * 60 + 10#${BASH_REMATCH[3]}))
}

echo "race_load: $competitors competitors, a $minutes-minute race at speed $speed, zolhost on port $port"
first_race= first_wall= last_race= last_wall=
started=$SECONDS
while [ $((SECONDS - started)) -lt "$wall_limit" ]; do
  sleep 1
  if ! kill -0 "$host_pid" 2>/dev/null; then
    echo "race_load: zolhost ended early:" >&2
    cat "$work/host.log" >&2
    exit 1
  fi
  now=$(race_time)
  [ -z "$now" ] && continue
  wall=$(date +%s.%N)
  if [ -z "$first_race" ] && [ "$now" -gt 0 ]; then first_race=$now; first_wall=$wall; fi
  if [ -n "$first_race" ]; then last_race=$now; last_wall=$wall; fi
  printf '\r  wall %4ds  race time %5ds of %ds' $((SECONDS - started)) "$now" "$race_seconds"
  [ "$now" -ge "$race_seconds" ] && break
done
echo
kill -TERM "$host_pid"
wait "$host_pid" || true
host_pid=
lag=$(sed -n 's/.*largest timer lag \([0-9.]*\) ms.*/\1/p' "$work/host.log" | tail -n 1)
if [ -z "$first_race" ] || [ -z "$lag" ]; then
  echo "race_load: no race time on the information page or no timer report from zolhost" >&2
  tail -n 5 "$work/host.log" >&2
  exit 1
fi
python3 - "$first_race" "$first_wall" "$last_race" "$last_wall" "$speed" "$lag" <<'PY'
import sys
first_race, first_wall, last_race, last_wall = (float(v) for v in sys.argv[1:5])
speed, lag = float(sys.argv[5]), float(sys.argv[6])
ratio = (last_race - first_race) / max(last_wall - first_wall, 1e-9)
print("race time over wall time: %.1f (asked for %.0f; ratio %.2f)" % (ratio, speed, ratio / speed))
print("largest lag of the timer tick: %.1f ms (%s)" % (lag, "keeps up" if lag < 1000 else "falls behind"))
PY
