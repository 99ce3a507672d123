#!/usr/bin/env bash
# Builds the library and runs its tests on other processors, systems, compilers and versions of SQLite than the machine's
# own. Goes on after a failure, and ends with a table.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
# shellcheck source=scripts/lib/packages.sh
. scripts/lib/packages.sh
# shellcheck source=scripts/lib/debian_roots.sh
. scripts/lib/debian_roots.sh
# shellcheck source=scripts/lib/sqlite_sources.sh
. scripts/lib/sqlite_sources.sh
exec </dev/null

all=(i386 arm64 armhf s390x windows webassembly libcxx trixie-gcc trixie-clang cxx20 cxx20-clang cxx23 cxx23-clang
  newest-sqlite oldest-sqlite oldest-core)

usage() {
  cat <<'END'
usage: scripts/test-platforms.sh [--keep] [NAME...]

Installs what is missing, then builds the library and runs its tests on each NAME of
  i386           a Debian root, run by this processor
  arm64 armhf s390x
                 GCC for them, with a Debian root, run by qemu-user; the last one is big-endian
  windows        mingw-w64, run by Wine
  webassembly    Emscripten, run by Node.js
  libcxx         Clang with libc++
  trixie-gcc trixie-clang
                 GCC 14 and Clang 19 in a bare Debian 13, which scripts/test.sh sets up
  cxx20 cxx20-clang cxx23 cxx23-clang
                 the later language versions with this machine's GCC and Clang
  newest-sqlite  the newest SQLite that the npm package better-sqlite3 brings
  oldest-sqlite  SQLite 3.15, the oldest that the kit can be built on
  oldest-core    SQLite 3.7.17, the oldest that the core alone was tried with
Without NAME: all, and if all pass, the table in docs/platforms.md is renewed.

Needs Debian 12 and root. What each of them printed stays in build/platforms/NAME.log; the roots and builds are removed,
unless --keep leaves them for the next run.
END
}

keep=
names=()
for argument in "$@"; do
  case $argument in
    -h | --help)
      usage
      exit
      ;;
    --keep) keep=1 ;;
    *)
      [[ " ${all[*]} " == *" $argument "* ]] || {
        usage >&2
        exit 2
      }
      names+=("$argument")
      ;;
  esac
done
chosen=("${names[@]}")
((${#chosen[@]} > 0)) || chosen=("${all[@]}")

release=$(. /etc/os-release && printf '%s' "$VERSION_CODENAME")
[[ $release == bookworm ]] || give_up "This needs Debian 12 (bookworm), whose compilers and emulators it knows."
((EUID == 0)) || give_up "This needs root, to make Debian roots and to run other processors' programs."

# npm packages with SQLite's sources: the latest, whatever Node.js it wants for itself, and ones that bring 3.15.0 and
# 3.7.17.
newest_sqlite=better-sqlite3@latest
oldest_sqlite=sqlite3@3.1.8
oldest_core=sqlite3@2.1.19

top=$PWD
logs=$top/build/platforms
work=$logs/work
jobs=$(nproc)
mkdir -p "$work"

# Each platform runs in a process group of its own, so that an interrupt ends all of it before its files are removed.
set -m
running=
clean_up() {
  local status=$?
  trap - EXIT INT TERM
  if [[ -n $running ]]; then
    kill -- "-$running" 2>/dev/null || true
    wait "$running" 2>/dev/null || true
  fi
  forget_processors
  [[ -n $keep ]] || rm -rf "$work"
  exit "$status"
}
trap clean_up EXIT
trap 'exit 130' INT
trap 'exit 143' TERM

say() { printf '%s\n' "$*"; }

# left_out NAME: the tests that cannot pass there, one a line.
left_out() { awk -v name="$1" '!/^#/ && NF == 2 && ("," $1 ",") ~ ("," name ",") { print $2 }' tests/platforms/left-out.txt; }

# regex: matches just the names that come in, one a line.
regex() { sed 's/[.+]/\\&/g; s/.*/^&$/' | paste -s -d '|'; }

# build_and_test NAME [OPTION...]: the options are CMake's.
build_and_test() {
  local name=$1 build=$work/$1/build tests
  shift
  say "== $name: configure"
  # So that it says again what it finds.
  cmake --fresh -S "$top" -B "$build" -DCMAKE_BUILD_TYPE=Release "$@"
  say "== $name: build"
  cmake --build "$build" --parallel "$jobs" -- --keep-going
  say "== $name: test"
  tests=$(left_out "$name")
  GTEST_FILTER=-$(paste -s -d : <<<"$tests") \
    ctest --test-dir "$build" --parallel "$((jobs + 1))" --no-tests=error --output-on-failure --timeout 600 \
    --exclude-regex "$(regex <<<"${tests:-none}")"
}

# --- What runs on another processor -----------------------------------------------------------------------------------

# A program for i386 needs no emulator, so all is done in the root.
run_i386() { test_in_root i386 i386 bookworm release; }

run_arm64() { cross arm64 aarch64-linux-gnu aarch64; }
run_armhf() { cross armhf arm-linux-gnueabihf arm; }
run_s390x() { cross s390x s390x-linux-gnu s390x; }

# cross NAME TRIPLET PROCESSOR: compiled here, since the emulator takes its time; a root has the libraries.
cross() {
  local name=$1 triplet=$2 processor=$3 root=$work/$1/root
  install_missing debootstrap qemu-user-static "g++-$triplet"
  make_foreign_root "$name" "$root"
  teach_processor "$processor"
  cat >"$work/$name/toolchain.cmake" <<END
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR $processor)
set(CMAKE_CXX_COMPILER $triplet-g++)
set(CMAKE_SYSROOT $root)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
END
  QEMU_LD_PREFIX=$root build_and_test "$name" -DCMAKE_TOOLCHAIN_FILE="$work/$name/toolchain.cmake"
}

# --- What is no Linux -------------------------------------------------------------------------------------------------

# build_static_needs FOLDER CC AR CMAKE_OPTION...: SQLite, GoogleTest and the Boost headers for a toolchain that has none,
# in FOLDER. The tests link them and the library as static libraries, so that they can record the calls of SQLite.
build_static_needs() {
  local folder=$1 cc=$2 ar=$3
  shift 3
  install_missing googletest
  mkdir -p "$folder/boost"
  # Not the folder that it is in, which has the headers of this machine's own system.
  ln -sfn /usr/include/boost "$folder/boost/boost"
  get_sqlite "$newest_sqlite" "$folder/sqlite"
  "$cc" -O2 "${sqlite_options[@]}" -c "$folder/sqlite/sqlite3.c" -o "$folder/sqlite/sqlite3.o"
  "$ar" rcs "$folder/sqlite/libsqlite3.a" "$folder/sqlite/sqlite3.o"
  build_googletest "$folder" "$@"
}

# build_googletest FOLDER CMAKE_OPTION...: from Debian's sources, into FOLDER/googletest.
build_googletest() {
  cmake -S /usr/src/googletest -B "$1/googletest-build" -DCMAKE_BUILD_TYPE=Release \
    -DCMAKE_INSTALL_PREFIX="$1/googletest" -DCMAKE_INSTALL_LIBDIR=lib "${@:2}"
  cmake --build "$1/googletest-build" --parallel "$jobs"
  cmake --install "$1/googletest-build" >/dev/null
}

# test_static NAME FOLDER [OPTION...]
test_static() {
  local name=$1 needs=$2
  shift 2
  build_and_test "$name" -DBUILD_SHARED_LIBS=OFF -DSQLite3_INCLUDE_DIR="$needs/sqlite" \
    -DSQLite3_LIBRARY="$needs/sqlite/libsqlite3.a" -DBoost_INCLUDE_DIR="$needs/boost" \
    -DGTest_DIR="$needs/googletest/lib/cmake/GTest" "$@"
}

run_windows() {
  local folder=$work/windows
  local toolchain=$folder/toolchain.cmake
  install_missing g++-mingw-w64-x86-64-posix wine
  cat >"$toolchain" <<'END'
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)
set(CMAKE_C_COMPILER x86_64-w64-mingw32-gcc-posix)
set(CMAKE_CXX_COMPILER x86_64-w64-mingw32-g++-posix)
set(CMAKE_EXE_LINKER_FLAGS_INIT -static)
set(CMAKE_FIND_ROOT_PATH /usr/x86_64-w64-mingw32)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_CROSSCOMPILING_EMULATOR wine)
END
  build_static_needs "$folder" x86_64-w64-mingw32-gcc-posix x86_64-w64-mingw32-ar -DCMAKE_TOOLCHAIN_FILE="$toolchain"
  # No menus, browsers and other languages' run times, which Wine offers to install.
  export WINEPREFIX=$folder/wine WINEDEBUG=-all WINEDLLOVERRIDES="winemenubuilder.exe=;mscoree=;mshtml="
  wine wineboot --init
  test_static windows "$folder" -DCMAKE_TOOLCHAIN_FILE="$toolchain"
  wineserver --wait || true
}

run_webassembly() {
  local folder=$work/webassembly
  local toolchain=$folder/toolchain.cmake
  install_missing emscripten nodejs
  cat >"$toolchain" <<'END'
include(/usr/share/emscripten/cmake/Modules/Platform/Emscripten.cmake)
set(CMAKE_CXX_FLAGS_INIT -fexceptions)
set(CMAKE_EXE_LINKER_FLAGS_INIT "-fexceptions -sNODERAWFS=1 -sALLOW_MEMORY_GROWTH=1 -sEXIT_RUNTIME=1 -O1")
set(CMAKE_CROSSCOMPILING_EMULATOR ${CMAKE_CURRENT_LIST_DIR}/run)
END
  # What an Emscripten of this age makes takes a Node.js that can fetch for a browser, and does not see the environment.
  cat >"$folder/run" <<'END'
#!/bin/sh
case "$*" in *--gtest*) set -- "$@" "--gtest_filter=$GTEST_FILTER" ;; esac
exec node --no-experimental-fetch "$@"
END
  chmod +x "$folder/run"
  # Where Debian's Emscripten has its tools, which a Node.js from elsewhere does not know.
  export NODE_PATH=/usr/share/nodejs
  # CMake does not ask this compiler who it is.
  em++ --version
  build_static_needs "$folder" emcc emar -DCMAKE_TOOLCHAIN_FILE="$toolchain" -Dgtest_disable_pthreads=ON
  test_static webassembly "$folder" -DCMAKE_TOOLCHAIN_FILE="$toolchain"
}

# --- Another standard library -----------------------------------------------------------------------------------------

# Debian's libc++ is built for its own Clang.
run_libcxx() {
  local folder=$work/libcxx version flags=(-DCMAKE_CXX_COMPILER=clang++ -DCMAKE_CXX_FLAGS=-stdlib=libc++)
  install_clang
  version=$(clang_version)
  install_missing googletest "libc++-$version-dev" "libc++abi-$version-dev"
  build_googletest "$folder" "${flags[@]}" -DCMAKE_C_COMPILER=clang
  build_and_test libcxx "${flags[@]}" -DGTest_DIR="$folder/googletest/lib/cmake/GTest"
}

# --- What another release of Debian has -------------------------------------------------------------------------------

# test_in_root NAME ARCHITECTURE SUITE PRESET: scripts/test.sh installs what it needs in a bare system, as README.md says.
test_in_root() {
  local name=$1 root=$work/$3-$2 status=0
  install_missing debootstrap
  make_root "$2" "$3" "$root"
  # Where others than root may run what is built.
  copy_sources "$root/srv/$name"
  run_in_root "$root" "$2" "cd /srv/$name && scripts/test.sh $4" || status=$?
  cp "$root/srv/$name/build/$4/Testing/Temporary/LastTest.log" "$work/$name" || true
  [[ -n $keep ]] || rm -rf "$root/srv/$name"
  return "$status"
}

run_trixie_gcc() { test_in_root trixie-gcc amd64 trixie release; }
run_trixie_clang() { test_in_root trixie-clang amd64 trixie clang; }

# --- Later language versions ------------------------------------------------------------------------------------------

run_cxx20() { build_and_test cxx20 -DCMAKE_CXX_COMPILER=g++ -DCMAKE_CXX_STANDARD=20; }
run_cxx23() { build_and_test cxx23 -DCMAKE_CXX_COMPILER=g++ -DCMAKE_CXX_STANDARD=23; }
run_cxx20_clang() {
  install_clang
  build_and_test cxx20-clang -DCMAKE_CXX_COMPILER=clang++ -DCMAKE_CXX_STANDARD=20
}
run_cxx23_clang() {
  install_clang
  build_and_test cxx23-clang -DCMAKE_CXX_COMPILER=clang++ -DCMAKE_CXX_STANDARD=23
}

# --- Other versions of SQLite -----------------------------------------------------------------------------------------

# on_sqlite NAME PACKAGE [OPTION...]: on a shared library made of the sources in the npm package.
on_sqlite() {
  local name=$1 sqlite=$work/$1/sqlite
  get_sqlite "$2" "$sqlite"
  gcc -O2 -fPIC -shared "${sqlite_options[@]}" -Wl,-soname,libsqlite3.so.0 -o "$sqlite/libsqlite3.so.0" "$sqlite/sqlite3.c" \
    -lm -ldl -lpthread
  ln -sf libsqlite3.so.0 "$sqlite/libsqlite3.so"
  build_and_test "$name" -DSQLite3_INCLUDE_DIR="$sqlite" -DSQLite3_LIBRARY="$sqlite/libsqlite3.so" "${@:3}"
}

run_newest_sqlite() { on_sqlite newest-sqlite "$newest_sqlite"; }
run_oldest_sqlite() { on_sqlite oldest-sqlite "$oldest_sqlite"; }
run_oldest_core() { on_sqlite oldest-core "$oldest_core"; }

# ----------------------------------------------------------------------------------------------------------------------

install_test_packages
install_missing python3

failed=()
for name in "${chosen[@]}"; do
  start=$SECONDS
  [[ -n $keep ]] || rm -rf "${work:?}/$name"
  mkdir -p "$work/$name"
  # What an earlier run has kept says nothing of this one.
  find "$work/$name" -name LastTest.log -delete
  printf '%s ... ' "$name"
  # Not called in a condition, where its errors would not end it.
  ("run_${name//-/_}") >"$logs/$name.log" 2>&1 &
  running=$!
  result="passed"
  if ! wait "$running"; then
    result="FAILED"
    failed+=("$name")
  fi
  running=
  printf '%s, %d s\n' "$result" "$((SECONDS - start))"
  left_out "$name" >"$work/$name/left-out"
  python3 scripts/lib/platform_row.py "$name" "$logs/$name.log" "$work/$name" "$((SECONDS - start))" >"$logs/$name.row"
  [[ -n $keep ]] || rm -rf "${work:?}/$name"
done

{
  printf '| platform | compiler | SQLite | passed | failed | left out | seconds |\n|---|---|---|---|---|---|---|\n'
  for name in "${chosen[@]}"; do
    cat "$logs/$name.row"
  done
} >"$logs/table.md"
printf '\n'
cat "$logs/table.md"

if ((${#failed[@]} > 0)); then
  printf '\nFAILED: %s, see build/platforms/*.log\n' "${failed[*]}" >&2
  exit 1
fi
((${#names[@]} > 0)) || python3 scripts/lib/platform_table.py "$logs/table.md" docs/platforms.md
printf '\nAll platforms passed (%d s).\n' "$SECONDS"
