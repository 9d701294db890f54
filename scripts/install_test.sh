#!/usr/bin/env bash
# Installs a build into a temporary prefix and makes it into a Debian package, checks the
# layout of both, and runs each installed zolhost on its installed examples: it must find
# its module by itself and serve the example site to the installed zolclient.
#
#   scripts/install_test.sh BUILD_DIR
#
# The package is left in BUILD_DIR/package/. Exit status 0 when everything held.
set -euo pipefail

build=${1:?usage: scripts/install_test.sh BUILD_DIR}
tmp=$(mktemp -d)
host=
cleanup() {
  if [ -n "$host" ]; then
    kill "$host" 2>/dev/null || true
    wait "$host" 2>/dev/null || true
  fi
  rm -rf "$tmp"
}
trap cleanup EXIT

fail() {
  echo "install test: $*" >&2
  exit 1
}

# A TCP port of the loopback that no socket uses, drawn below the system's range of
# ephemeral ports (32768 and up), so that no outgoing connection takes it meanwhile.
free_port() {
  local port
  for _ in $(seq 50); do
    port=$((20000 + RANDOM % 12768))
    if [ -z "$(ss -Htan "sport = :$port")" ]; then
      echo "$port"
      return 0
    fi
  done
  fail "no free TCP port found"
}

# Checks the files of an installed tree under ROOT (its prefix) and that the unit names
# PROGRAM.
check_layout() {
  local root=$1 program=$2
  local file
  for file in bin/zolhost bin/zolclient lib/zolserver/libzolserver.so \
              share/zolserver/examples/Config/ZOLServer.ini share/zolserver/examples/race.json \
              share/zolserver/examples/site/index.zol share/man/man1/zolhost.1.gz \
              share/man/man1/zolclient.1.gz lib/systemd/system/zolhost.service \
              lib/systemd/system/zoldatamanager.service; do
    [ -f "$root/$file" ] || fail "$root/$file is missing"
  done
  # The dissector goes where Wireshark looks for it: below /usr in the folder of the
  # architecture, below another prefix in lib/wireshark/plugins.
  local dissector found=
  for dissector in "$root"/lib/wireshark/plugins/zol.lua "$root"/lib/*/wireshark/plugins/zol.lua; do
    [ -f "$dissector" ] && found=$dissector
  done
  [ -n "$found" ] || fail "the Wireshark dissector is not installed below $root/lib"
  # The module is found in its own folder, not beside the program.
  [ ! -e "$root/bin/libzolserver.so" ] || fail "$root/bin/libzolserver.so should not be installed"
  grep -qxF "ExecStart=$program --appdir /var/lib/zolserver \$ZOLHOST_OPTIONS" \
    "$root/lib/systemd/system/zolhost.service" || fail "the unit does not run $program"
  grep -qxF "LimitNOFILE=65536" "$root/lib/systemd/system/zolhost.service" ||
    fail "the unit leaves the open-files limit low for thousands of TCP clients"
  grep -qxF "ExecStart=${program%zolhost}zoldatamanager \$ZOLDATAMANAGER_OPTIONS" \
    "$root/lib/systemd/system/zoldatamanager.service" || fail "the data manager's unit does not run zoldatamanager"
  local page
  for page in zolhost zolclient; do
    zcat "$root/share/man/man1/$page.1.gz" | grep -q "^\.TH ${page^^} 1" || fail "manual page of $page unreadable"
  done
}

# Runs zolhost of ROOT on a copy of its examples, on a free port, from a folder outside
# the tree, and lets zolclient of ROOT receive pages from it; then stops zolhost.
check_serves() {
  local root=$1 name=$2
  local work=$tmp/$name
  mkdir -p "$work/received"
  cp -r "$root/share/zolserver/examples" "$work/app"
  local port
  port=$(free_port)
  sed -i "s/^port=51000\$/port=$port/" "$work/app/Config/ZOLServer.ini"
  grep -qx "port=$port" "$work/app/Config/ZOLServer.ini" || fail "cannot set the port of the examples"

  (cd "$work" && exec timeout 90 "$root/bin/zolhost" --appdir app --no-web --race app/race.json) 2>"$work/host.log" &
  host=$!
  if ! timeout 60 "$root/bin/zolclient" "tcp://127.0.0.1:$port" --out "$work/received" \
        --until-complete 3 --timeout 45 >"$work/client.log" 2>&1; then
    cat "$work/host.log" "$work/client.log" >&2
    fail "$name: zolclient received no pages from the installed zolhost"
  fi
  kill -TERM "$host"
  local status=0
  wait "$host" || status=$?
  host=
  grep -q '^zolhost: module "' "$work/host.log" || { cat "$work/host.log" >&2; fail "$name: no module line"; }
  [ "$status" -eq 0 ] || { cat "$work/host.log" >&2; fail "$name: zolhost ended with status $status"; }
  grep -q 'stopped after' "$work/host.log" || { cat "$work/host.log" >&2; fail "$name: zolhost did not stop"; }
  echo "install test: $name: zolhost served $(grep -c '^site ' "$work/client.log") page versions on port $port"
}

# cmake --install into a temporary prefix.
prefix=$tmp/prefix
timeout 120 cmake --install "$build" --prefix "$prefix" >"$tmp/install.log" || { cat "$tmp/install.log" >&2; fail "cmake --install failed"; }
check_layout "$prefix" "$prefix/bin/zolhost"
"$prefix/bin/zolhost" --help | grep -q -- '--appdir' || fail "installed zolhost --help"
check_serves "$prefix" "installed"

# The Debian package, unpacked without installing it.
rm -rf "$build/package"
timeout 300 cpack --config "$build/CPackConfig.cmake" -B "$build/package" >"$tmp/cpack.log" 2>&1 ||
  { cat "$tmp/cpack.log" >&2; fail "cpack failed"; }
deb=$(find "$build/package" -maxdepth 1 -name 'zolserver_*.deb' | head -n 1)
[ -n "$deb" ] || fail "cpack made no .deb"
depends=$(dpkg-deb -f "$deb" Depends)
for library in libc6 libstdc++6 zlib1g; do
  [[ $depends == *"$library"* ]] || fail "$deb does not depend on $library (Depends: $depends)"
done
dpkg-deb -x "$deb" "$tmp/deb"
check_layout "$tmp/deb/usr" "/usr/bin/zolhost"
check_serves "$tmp/deb/usr" "package"
echo "install test: $(basename "$deb") depends on $depends"
