#!/bin/sh
# Runs a Windows program of the build under wine64, headless and quiet, in
# the Wine prefix of this build (PELARIX_WINEPREFIX, made by the test run's
# first step). Outside ctest the prefix defaults to the one beside the
# program's bin directory.
set -e
program=$1
shift
bin_dir=$(cd "$(dirname "$program")" && pwd)
export WINEPREFIX=${PELARIX_WINEPREFIX:-$(dirname "$bin_dir")/wineprefix}
export WINEDEBUG=-all
export WINEDLLOVERRIDES="mscoree,mshtml=;winemenubuilder.exe=d"
unset DISPLAY
exec wine64 "$program" "$@"
