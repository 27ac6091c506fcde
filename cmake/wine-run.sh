#!/bin/sh
# wine-run.sh PREFIX PROGRAM [ARGS...] - runs a Windows program of the cross
# build under Wine, in the build's own Wine prefix PREFIX (the emulator of
# the test programs; see tests/CMakeLists.txt). The prefix is made once, by
# whichever run comes first (the others wait on the lock): a cold wineboot
# takes several seconds, far too long to pay per test.
set -e
prefix=$1
shift
# The build's DLLs (kelcore10.dll, kelnls10.dll) are found in the build
# folder, where the prefix lives, for the programs elsewhere (the tools).
export WINEPREFIX="$prefix" WINEDEBUG=-all WINEDLLOVERRIDES="mscoree,mshtml=" WINEPATH="${prefix%/*}"
if [ ! -f "$prefix/.kel-ready" ]; then
  mkdir -p "$prefix"
  (
    flock 9
    if [ ! -f "$prefix/.kel-ready" ]; then
      wineboot -i >/dev/null 2>&1
      wineserver -w
      touch "$prefix/.kel-ready"
    fi
  ) 9>"$prefix.lock"
fi
exec wine "$@"
