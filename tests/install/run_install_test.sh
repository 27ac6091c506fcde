#!/bin/sh
# run_install_test.sh BUILD OUTSIDE CMAKE CC GENERATOR
#
# Installs BUILD into a temporary prefix and moves the installation somewhere
# else, as a user may, then checks it from there: its layout, that nothing
# installed names the build tree, that the installed kelcore tool runs with
# an empty environment (its libraries found relative to itself, its data in
# its own installation), and builds OUTSIDE/hello.c against the moved copy
# with pkg-config and with find_package(kelcore10) and runs both. Exits 77
# (skipped) when the install step itself cannot run, e.g. because the build
# is incomplete.
set -u
build=$(cd "$1" && pwd -P) outside=$2 cmake=$3 cc=$4 generator=$5

tmp=$(mktemp -d "${TMPDIR:-/tmp}/kelinstall.XXXXXX") || exit 77
trap 'rm -rf "$tmp"' EXIT
fail() { echo "FAIL: $*" >&2; exit 1; }

if ! "$cmake" --install "$build" --prefix "$tmp/staged" >"$tmp/install.log" 2>&1; then
  cat "$tmp/install.log" >&2
  echo "install step could not run: skipped" >&2
  exit 77
fi
prefix=$tmp/moved/prefix
mkdir -p "$tmp/moved" && mv "$tmp/staged" "$prefix" || fail "moving the installation"

# Layout. The library directory is whatever GNUInstallDirs chose.
libdir=$(dirname "$(find "$prefix" -name 'libkelcore10.so.10' | head -n 1)")
[ -n "$libdir" ] && [ "$libdir" != . ] || fail "libkelcore10.so.10 not installed"
for f in "$libdir/libkelnls10.so.10" "$libdir/libkelcore10.so" \
         "$libdir/pkgconfig/kelcore10.pc" \
         "$libdir/cmake/kelcore10/kelcore10Config.cmake" \
         "$libdir/cmake/kelcore10/kelcore10ConfigVersion.cmake" \
         "$prefix/include/kelcore10/lpm.h" "$prefix/include/kelcore10/kelapi.h" \
         "$prefix/include/kelcore10/kelmsg_kelcore_lpu.h" \
         "$prefix/share/kelcore10/kelcore/mesg/kelcore_lmm.msg" \
         "$prefix/share/kelcore10/kelcore/zoneinfo/timezlrg.dat" \
         "$prefix/bin/keltzc" "$prefix/bin/kelcore"; do
  [ -e "$f" ] || fail "missing after install: ${f#$prefix/}"
done
for lib in kelcore10 kelnls10; do
  soname=$(objdump -p "$libdir/lib$lib.so.10" 2>/dev/null | awk '$1 == "SONAME" { print $2 }')
  [ "$soname" = "lib$lib.so.10" ] || fail "lib$lib: SONAME is '$soname'"
done

# Nothing installed names the build tree (debug information aside, which
# records where the objects were compiled).
for f in $(grep -rlF "$build" "$prefix" 2>/dev/null); do
  if ! objcopy --strip-debug "$f" "$tmp/stripped" 2>/dev/null || grep -qF "$build" "$tmp/stripped"; then
    fail "${f#$prefix/} names the build tree"
  fi
done

# The tool, with nothing but its installation: no KELTAR_HOME, no library
# path, run by its path and through PATH.
home=$prefix/share/kelcore10
runpath=$(objdump -p "$prefix/bin/kelcore" | awk '$1 == "RUNPATH" || $1 == "RPATH" { print $2 }')
case $runpath in *'$ORIGIN'*) ;; *) fail "bin/kelcore: RUNPATH '$runpath' is not relative to the tool" ;; esac
bare() { env -i PATH="$prefix/bin:/usr/bin:/bin" "$@"; }
out=$(bare "$prefix/bin/kelcore" tz at Europe/Paris '2024-07-01 12:00' 2>&1) \
  || fail "installed kelcore tz: $out"
case $out in "2024-07-01 14:00:00 +02:00 CEST"*) ;; *) fail "installed kelcore tz: '$out'" ;; esac
out=$(bare kelcore --version 2>&1) || fail "kelcore --version: $out"
case $out in "kelcore 10."*) ;; *) fail "kelcore --version: '$out'" ;; esac
# Its messages come from its own installation: a text changed there shows.
sed -i 's/^16, .*/16, installed catalogue text: %s/' "$home/kelcore/mesg/kelcore_lpu.msg"
out=$(bare kelcore http get notaurl 2>&1)
case $out in *"'notaurl': installed catalogue text:"*) ;; *) fail "kelcore http get notaurl: '$out'" ;; esac

ran=0
check_run() {  # check_run NAME PROGRAM
  "$2" >"$tmp/$1.out" 2>"$tmp/$1.err"
  status=$?
  [ $status -eq 0 ] || { cat "$tmp/$1.err" >&2; fail "$1: exit status $status"; }
  if ! diff -u "$outside/hello.expected" "$tmp/$1.out" >&2; then fail "$1: unexpected output"; fi
  ran=$((ran + 1))
}

# 1. pkg-config. The program names only kelcore10; the installed library
#    finds kelnls10 next to itself.
if command -v pkg-config >/dev/null 2>&1; then
  export PKG_CONFIG_PATH=$libdir/pkgconfig
  flags=$(pkg-config --cflags --libs kelcore10) || fail "pkg-config kelcore10"
  case $flags in *kelnls10*) fail "pkg-config exposes the private kelnls10: $flags" ;; esac
  [ "$(pkg-config --variable=keltar_home kelcore10)" -ef "$home" ] || fail "keltar_home variable"
  # shellcheck disable=SC2086
  "$cc" -std=c11 -Wall -Werror -o "$tmp/hello_pc" "$outside/hello.c" $flags -Wl,-rpath,"$libdir" \
    || fail "pkg-config build"
  check_run pkgconfig "$tmp/hello_pc"
else
  echo "pkg-config not found: that half is skipped" >&2
fi

# 2. find_package(kelcore10) from a CMake project.
"$cmake" -S "$outside" -B "$tmp/cm" -G "$generator" -DCMAKE_C_COMPILER="$cc" \
  -DCMAKE_PREFIX_PATH="$prefix" -DCMAKE_BUILD_TYPE=Release >"$tmp/cm.log" 2>&1 \
  || { cat "$tmp/cm.log" >&2; fail "configuring the find_package project"; }
"$cmake" --build "$tmp/cm" >>"$tmp/cm.log" 2>&1 || { cat "$tmp/cm.log" >&2; fail "building the find_package project"; }
check_run find_package "$tmp/cm/hello"

# 3. The installed catalogues sit where KELTAR_HOME lookup expects them: a
#    text changed in the installed file shows up in the message.
sed -i 's/^33, .*/33, installed catalogue text for %s/' "$home/kelcore/mesg/kelcore_lmm.msg"
KELTAR_HOME=$home "$tmp/cm/hello" >"$tmp/home.out" 2>&1 || fail "run with KELTAR_HOME"
grep -q '^error 33: installed catalogue text for ' "$tmp/home.out" \
  || { cat "$tmp/home.out" >&2; fail "installed catalogue not read from \$KELTAR_HOME/kelcore/mesg"; }

echo "install test: $ran outside builds ran"
