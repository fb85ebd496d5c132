#!/usr/bin/env bash
# Installs, from Debian's packages, whatever the build and the tests need and the
# machine does not have yet. Safe to run again and again.
set -euo pipefail

packages=(
  g++ cmake make pkg-config
  libicu-dev nlohmann-json3-dev libcli11-dev
  libgtest-dev libgmock-dev libbenchmark-dev
  clang libclang-rt-14-dev
)
# Independent tools used by tests and benchmarks as oracles and peers.
oracles=(python3 python3-olefile tnef libemail-outlook-message-perl python3-icalendar python3-vobject)

missing=()
for p in "${packages[@]}" "${oracles[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || missing+=("$p")
done
[ ${#missing[@]} -eq 0 ] && exit 0

SUDO=""
[ "$(id -u)" -eq 0 ] || SUDO="sudo"
echo "Installing: ${missing[*]}" >&2
$SUDO apt-get update -qq
DEBIAN_FRONTEND=noninteractive $SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}" >&2
