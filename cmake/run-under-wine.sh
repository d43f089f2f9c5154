#!/bin/sh
# Runs a Windows program of the build under wine64, headless and quiet, in
# the Wine prefix of this build directory (bin/../wineprefix). The first
# program of a fresh build makes the prefix, under a lock since ctest runs
# programs side by side: a prefix whose Windows is Windows 7 (6.1), the
# system version the tests expect of GetVersionExW.
set -e
program=$1
shift
bin_dir=$(cd "$(dirname "$program")" && pwd)
export WINEPREFIX="${PELARIX_WINEPREFIX:-$(dirname "$bin_dir")/wineprefix}"
export WINEDEBUG=-all
# No debugger: a program that faults ends at once instead of waiting for one.
export WINEDLLOVERRIDES="mscoree,mshtml=;winemenubuilder.exe=d;winedbg.exe=d"
unset DISPLAY
wine=/usr/lib/wine/wine64

if [ ! -f "$WINEPREFIX/.pelarix-ready" ]; then
  (
    flock 9
    if [ ! -f "$WINEPREFIX/.pelarix-ready" ]; then
      rm -rf "$WINEPREFIX"
      "$wine" reg add 'HKCU\Software\Wine' /v Version /d win7 /f >/dev/null 2>&1
      touch "$WINEPREFIX/.pelarix-ready"
    fi
  ) 9>"$WINEPREFIX.lock"
fi
exec "$wine" "$program" "$@"
