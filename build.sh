#!/usr/bin/env bash
# build.sh - the two ways into kelcore10 on a fresh Debian machine.
#
#   ./build.sh run    installs what the release build needs (compiler, CMake,
#                     Ninja, bison, Python, ICU, tzdata), builds the release
#                     preset (library, tools, data files) and runs the
#                     kelcore tool (the main job)
#   ./build.sh test   installs what the tests need, builds the debug preset
#                     (with fault-injection points) and runs the whole suite
#
# Further steps used by CI: asan, tsan, fuzz (each builds and tests that
# preset), bench (builds the bench preset: the benchmarks, beside whichever
# peer libraries are installed; bench/ratios.py runs them).
# windows: the cross build for 64-bit Windows (MinGW-w64) and its test suite
# under Wine (in a Wine prefix of the build's own, build/windows/wine).
# Optional: docs (API reference from the header comments into build/docs/html);
# coverage (the suite in the coverage preset, then line and branch coverage
# per family from gcovr).
set -euo pipefail
cd "$(dirname "$0")"

# Debian packages, by what needs them.
PKGS_BUILD="cmake ninja-build g++ python3 bison libicu-dev libssl-dev tzdata"
PKGS_TEST="libgtest-dev libgmock-dev googletest pkg-config openssl"
PKGS_BENCH="libbenchmark-dev libmimalloc-dev libjemalloc-dev libboost-dev libabsl-dev libcctz-dev libhowardhinnant-date-dev libinih-dev libcurl4-openssl-dev"
PKGS_FUZZ="clang libclang-rt-dev"
PKGS_DOCS="doxygen"
PKGS_COVERAGE="gcovr"
PKGS_WINDOWS="g++-mingw-w64-x86-64-posix wine wine64 googletest"

install_missing() {
  local missing=()
  for p in "$@"; do
    dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
  done
  [ ${#missing[@]} -eq 0 ] && return 0
  echo "build.sh: installing ${missing[*]}"
  local sudo=""
  [ "$(id -u)" -ne 0 ] && sudo="sudo"
  $sudo apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq "${missing[@]}" >/dev/null
}

preset_build_test() {
  local preset=$1
  cmake --preset "$preset" >/dev/null
  cmake --build --preset "$preset"
  ctest --preset "$preset"
}

case "${1:-}" in
  run)
    install_missing $PKGS_BUILD
    cmake --preset release >/dev/null
    cmake --build --preset release
    shift
    ./build/release/tools/kelcore/kelcore "$@"
    ;;
  test)
    install_missing $PKGS_BUILD $PKGS_TEST
    preset_build_test debug
    ;;
  asan | tsan)
    install_missing $PKGS_BUILD $PKGS_TEST
    preset_build_test "$1"
    ;;
  fuzz)
    install_missing $PKGS_BUILD $PKGS_FUZZ
    preset_build_test fuzz
    ;;
  bench)
    install_missing $PKGS_BUILD $PKGS_BENCH
    cmake --preset bench >/dev/null
    cmake --build --preset bench
    echo "build.sh: benchmarks in build/bench/bench/ (python3 bench/ratios.py runs them)"
    ;;
  coverage)
    install_missing $PKGS_BUILD $PKGS_TEST $PKGS_COVERAGE
    cmake --preset coverage >/dev/null
    # Counts of an earlier run would add up with this one's.
    find build/coverage -name '*.gcda' -delete
    cmake --build --preset coverage
    # An instrumented library names its build tree (where its counts go), so
    # the installation checks are left to the other builds.
    ctest --preset coverage -LE '^install$'
    python3 tools/coverage.py build/coverage
    ;;
  windows)
    # The cross build for 64-bit Windows (MinGW-w64); its data-making
    # programs run from a host build under build/windows/host.
    install_missing $PKGS_BUILD $PKGS_WINDOWS
    cmake --preset windows >/dev/null
    cmake --build --preset windows
    ctest --preset windows
    ;;
  docs)
    install_missing python3 $PKGS_DOCS
    mkdir -p build/docs
    doxygen docs/Doxyfile
    echo "build.sh: API reference in build/docs/html/index.html"
    ;;
  *)
    echo "usage: ./build.sh run|test   (also: asan, tsan, fuzz, bench, coverage, windows, docs)" >&2
    exit 2
    ;;
esac
