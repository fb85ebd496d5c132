#!/usr/bin/env bash
# Installs, from Debian's packages, what the tests, the fuzzers and the
# benchmarks need beyond building: test frameworks, clang, the Python
# package's build and test tools, and the independent tools used as oracles
# and peers (a real browser and mail client among them). Safe to run again.
set -euo pipefail
here="$(dirname "$0")"
"$here/install-deps.sh"
source "$here/apt-install.sh"
apt_install \
  libgtest-dev libgmock-dev libbenchmark-dev \
  clang libclang-rt-14-dev ccache \
  pybind11-dev python3-dev python3-pytest python3-dask python3-distributed \
  python3 python3-olefile tnef libemail-outlook-message-perl libemail-address-perl \
  python3-icalendar python3-vobject \
  media-types chromium neomutt tmux help2man linux-perf ltrace strace time valgrind
