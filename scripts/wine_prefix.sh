#!/bin/sh
# Creates the Wine prefix once, before the tests start, so that the first test
# does not pay for (or time out on) its creation.
set -eu
export WINEDEBUG=-all
prefix=${WINEPREFIX:-$HOME/.wine}
if [ ! -f "$prefix/system.reg" ]; then
    /usr/lib/wine/wine64 wineboot --init >/dev/null 2>&1 || true
    /usr/lib/wine/wineserver -w 2>/dev/null || true
fi
