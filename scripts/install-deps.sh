#!/usr/bin/env bash
# Installs, from Debian's packages, what building and running the command need
# and the machine does not have yet. Safe to run again and again. The test
# tools, oracles and benchmarks' peers come with scripts/install-test-deps.sh.
set -euo pipefail
source "$(dirname "$0")/apt-install.sh"
# media-types: /etc/mime.types, the media types of attachments the MIME writer names by extension.
apt_install g++ cmake make pkg-config libicu-dev nlohmann-json3-dev libcli11-dev media-types
