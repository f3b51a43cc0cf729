#!/bin/sh
# Installs every Debian package the project needs to build, test, fuzz and
# benchmark on both platforms (libxml2-utils: xmllint checks the XML output in
# a test; rsync: the peer of the deployment benchmark; openssl: the demo's
# certificates). Idempotent: when everything is present it only runs
# dpkg-query and exits.
set -eu

PACKAGES="
cmake make g++ clang libclang-rt-14-dev lld
libgtest-dev libgmock-dev googletest libbenchmark-dev
libssl-dev libpam0g-dev zlib1g-dev pkg-config libmsgpack-dev
libglib2.0-dev libinih-dev libxml2-utils rsync openssl
g++-mingw-w64-x86-64 g++-mingw-w64-i686 mingw-w64-tools
wine64 binutils-mingw-w64-x86-64 binutils-mingw-w64-i686
"

missing=""
for p in $PACKAGES; do
    if ! dpkg-query -W -f='${Status}\n' "$p" 2>/dev/null | grep -q '^install ok installed$'; then
        missing="$missing $p"
    fi
done

if [ -z "$missing" ]; then
    exit 0
fi

echo "setup: installing:$missing"
SUDO=""
if [ "$(id -u)" -ne 0 ]; then
    SUDO="sudo"
fi
export DEBIAN_FRONTEND=noninteractive
$SUDO apt-get update -q
# shellcheck disable=SC2086
$SUDO apt-get install -y -q --no-install-recommends $missing
