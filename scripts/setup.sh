#!/usr/bin/env bash
# Installs the Debian packages that building, testing and running need, when missing.
set -euo pipefail

packages=(
  g++ cmake ninja-build pkg-config
  zlib1g-dev libgtest-dev libgmock-dev libbenchmark-dev
  nlohmann-json3-dev libexpat1-dev
  clang libclang-rt-14-dev
  iproute2 procps
  dpkg-dev
  libcpp-httplib-dev libmicrohttpd-dev curl openssl
  libmosquitto-dev mosquitto
  chromium chromium-driver python3-selenium
  tshark
)

missing=()
for package in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q 'install ok installed'; then
    missing+=("$package")
  fi
done

if [ ${#missing[@]} -eq 0 ]; then
  echo "setup: all packages present"
  exit 0
fi

if [ "$(id -u)" -ne 0 ]; then
  echo "setup: missing packages (${missing[*]}); run this script as root to install them" >&2
  exit 1
fi

echo "setup: installing ${missing[*]}"
export DEBIAN_FRONTEND=noninteractive
# tshark's package asks whether users other than root may capture: no, and without asking.
echo "wireshark-common wireshark-common/install-setuid boolean false" | debconf-set-selections
apt-get update -q
apt-get install -y -q --no-install-recommends "${missing[@]}"
