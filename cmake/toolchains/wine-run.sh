#!/bin/sh
# Runs a Windows program of the cross build under Wine: headless, in a
# prefix of the build folder's own (made on first use, under a lock, with
# the machine-wide settings an installation would have written), so that
# no user's Wine setup is read or changed.
# Usage: wine-run.sh PREFIX DATA-DIR PROGRAM [ARGUMENTS...]
prefix=$1
data=$2
shift 2
export WINEPREFIX="$prefix" WINEDEBUG=-all WINEDLLOVERRIDES="mscoree,mshtml=" DISPLAY=
wine=${VQUTIL_WINE:-wine}
mkdir -p "$prefix"
if [ ! -f "$prefix/.vqutil-ready" ]; then
  (
    flock 9
    if [ ! -f "$prefix/.vqutil-ready" ]; then
      "$wine" wineboot -i >/dev/null 2>&1
      "$wine" reg add 'HKLM\SOFTWARE\Quandrel\NXC' /v VQHOME /t REG_SZ /d "$data" /f >/dev/null 2>&1 &&
        "$wine" reg add 'HKLM\SOFTWARE\Quandrel\NXC' /v VQARCH /t REG_SZ /d win64 /f >/dev/null 2>&1 &&
        touch "$prefix/.vqutil-ready"
    fi
  ) 9>"$prefix.lock"
fi
exec "$wine" "$@"
