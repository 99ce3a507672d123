#!/usr/bin/env bash
# Takes the library into use in every way that README.md shows under "Linking it", with the lines that stand there, each in
# an empty directory: the README's program must build and print what it should. Goes on after a failure.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
# shellcheck source=scripts/lib/packages.sh
. scripts/lib/packages.sh
exec </dev/null

usage() {
  cat <<'END'
usage: scripts/test-packages.sh

Installs what is missing and makes the archive of the sources. Builds and runs a program with what that archive gives:
  an installation that was moved, shared, static and on SQLCipher, found with CMake and with pkg-config
  the Debian packages, in a bare system, which is made in build/bare and kept; only as root
  the sources, in the same bare system
  the sources, added to the program's own build, as a folder and as an archive
END
}

case ${1-} in
  "") ;;
  -h | --help)
    usage
    exit
    ;;
  *)
    usage >&2
    exit 2
    ;;
esac

install_packaging_packages
top=$PWD
work=$(mktemp -d)
# Each way runs in a process group of its own, so that an interrupt ends all of it before its files are removed.
set -m
running=
bare=
clean_up() {
  local status=$? process
  trap - EXIT INT TERM
  for process in $running $bare; do
    kill -- "-$process" 2>/dev/null || true
    wait "$process" 2>/dev/null || true
  done
  rm -rf "$work"
  exit "$status"
}
trap clean_up EXIT
trap 'exit 130' INT
trap 'exit 143' TERM
# For all that cmake builds.
CMAKE_BUILD_PARALLEL_LEVEL=$(nproc)
export CMAKE_BUILD_PARALLEL_LEVEL

# block TEXT: the first block in README.md after the line that begins with TEXT.
block() {
  awk -v text="$1" '
    index($0, text) == 1 { on = 1 }
    on && /^```/ { if (inside) exit; inside = 1; next }
    inside { print; some = 1 }
    END { exit !some }' "$top/README.md"
}

failed=()
# try WAY FUNCTION [ARGUMENT...]: calls the function in a new directory and prints one line; its output only if it fails.
try() {
  local way=$1 start=$SECONDS result="ok"
  mkdir "$work/way"
  # Not called in a condition, where its errors would not end it.
  (cd "$work/way" && "${@:2}") >"$work/log" 2>&1 &
  running=$!
  if ! wait "$running"; then
    result="FAILED"
    failed+=("$way")
    cat "$work/log" >&2
  fi
  running=
  printf '%-6s %3d s  %s\n' "$result" "$((SECONDS - start))" "$way"
  rm -rf "$work/way"
}

expect_bolt() {
  local output
  output=$("$@")
  [[ $output == bolt ]] || give_up "The program prints '$output'."
}

# For what is built more than once: as few large files, which takes half the time.
together=-DCMAKE_UNITY_BUILD=ON

# What a user writes: a program, and for CMake the lines of README.md that begin with TEXT.
write_program() { block '# sqldb' >program.cpp; }
write_project() {
  write_program
  printf '%s\n' 'cmake_minimum_required(VERSION 3.22)' 'project(your_program LANGUAGES CXX)' \
    'add_executable(your_program program.cpp)' "$(block "$1")" >CMakeLists.txt
}

build_project() {
  cmake -S . -B build "$@"
  cmake --build build
  expect_bolt build/your_program
}

make_archive() {
  cmake -S "$top" -B build -DSQLDB_BUILD_TESTS=OFF -DSQLDB_BUILD_EXAMPLES=OFF
  cmake --build build --target package_source
  mv build/sqldb-*.tar.gz "$work/sqldb.tar.gz"
  tar -tzf "$work/sqldb.tar.gz" >files
  if grep -E '^[^/]*/(build|\.git)(/|$)' files; then give_up "The archive holds what is not source."; fi
  mkdir "$work/sqldb"
  tar -xzf "$work/sqldb.tar.gz" -C "$work/sqldb" --strip-components=1
}

# make_installation NAME [OPTION...]
make_installation() {
  local commands
  cp -r "$work/sqldb" .
  commands=$(block '**An installation**')
  commands=${commands/-S sqldb/-S sqldb ${*:2}}
  bash -euc "${commands//\/opt\/sqldb/$PWD/made}"
  # Nothing may lead back to where it was made.
  rm -r sqldb build
  mv made "$work/$1"
}

# use_find_package NAME [OPTION...]
use_find_package() {
  write_project '**find_package**'
  build_project -DCMAKE_PREFIX_PATH="$work/$1" "${@:2}"
}

# The kit then finds the core by itself, since the program, which calls the kit alone, has nothing of it.
use_as_needed() {
  use_find_package "$1" -DCMAKE_EXE_LINKER_FLAGS=-Wl,--as-needed
  readelf --dynamic build/your_program >needed
  grep 'libsqldb_kit\.so' needed
  if grep 'libsqldb\.so' needed; then give_up "The program needs the core, and so tells nothing of the kit."; fi
}

# The core alone, with CMake and with pkg-config, brings nothing of the kit.
use_core_alone() {
  cat >program.cpp <<'END'
#include <sqldb/sqldb.h>

#include <iostream>

int main() {
  sqldb::SQLDatabase database(":memory:", false);
  database.Open();
  std::cout << (database.fIsOpen ? "bolt" : "nothing") << "\n";
}
END
  printf '%s\n' 'cmake_minimum_required(VERSION 3.22)' 'project(your_program LANGUAGES CXX)' \
    'add_executable(your_program program.cpp)' 'find_package(sqldb REQUIRED COMPONENTS sqldb)' \
    'target_link_libraries(your_program PRIVATE sqldb::sqldb)' >CMakeLists.txt
  build_project -DCMAKE_PREFIX_PATH="$work/$1"
  export PKG_CONFIG_PATH=$work/$1/lib/pkgconfig LD_LIBRARY_PATH=$work/$1/lib
  # shellcheck disable=SC2046
  g++ -std=c++17 program.cpp $(pkg-config --cflags --libs sqldb) -o program
  expect_bolt ./program
  readelf --dynamic program build/your_program >needed
  if grep sqldb_kit needed; then give_up "The core brings the kit."; fi
}

use_components() {
  write_project '**find_package**'
  sed -i 's/REQUIRED/REQUIRED COMPONENTS sqldb kit OPTIONAL_COMPONENTS nothing/' CMakeLists.txt
  cat >>CMakeLists.txt <<'END'
if(NOT sqldb_sqldb_FOUND OR NOT sqldb_kit_FOUND OR sqldb_nothing_FOUND)
  message(FATAL_ERROR "Other components are found than there are.")
endif()
END
  build_project -DCMAKE_PREFIX_PATH="$work/$1"
}

refuse_components() {
  write_project '**find_package**'
  sed -i 's/REQUIRED/REQUIRED COMPONENTS nothing/' CMakeLists.txt
  ! cmake -S . -B build -DCMAKE_PREFIX_PATH="$work/$1" >log 2>&1 || give_up "A component that does not exist is found."
  tr -s '[:space:]' ' ' <log | grep 'sqldb has no component nothing; it has sqldb and kit\.'
}

# SQLite's target as CMake calls it from 4.3 on.
use_renamed_target() {
  write_project '**find_package**'
  mkdir modules
  cat >modules/FindSQLite3.cmake <<'END'
add_library(SQLite3::SQLite3 INTERFACE IMPORTED)
target_link_libraries(SQLite3::SQLite3 INTERFACE sqlite3)
set(SQLite3_FOUND TRUE)
END
  build_project -DCMAKE_PREFIX_PATH="$work/$1" -DCMAKE_MODULE_PATH="$PWD/modules"
}

# Not SQLite as well, whose functions have the same names.
use_sqlcipher() {
  use_find_package sqlcipher
  ldd build/your_program >libraries
  grep libsqlcipher libraries
  if grep libsqlite3 libraries; then give_up "The program has two engines."; fi
}

# use_pkg_config NAME [OPTION...]
use_pkg_config() {
  local command
  write_program
  command=$(block '**pkg-config**')
  command=${command/pkg-config/pkg-config ${*:2}}
  expect_bolt bash -euc "${command//\/opt\/sqldb/$work/$1}
    ./program"
}

use_add_subdirectory() {
  write_project '**add_subdirectory**'
  cp -r "$work/sqldb" .
  build_project "$together"
}

use_fetch_content() {
  write_project '**FetchContent**'
  cp "$work/sqldb.tar.gz" .
  build_project "$together"
}

make_debian_packages() {
  cp -r "$work/sqldb" .
  bash -euc "$(block '**Debian packages**' | grep -v apt-get)"
  mkdir "$work/debian"
  mv sqldb/build/package/*.deb "$work/debian"
  lintian --allow-root --fail-on error,warning "$work"/debian/*.deb
  # What the tools do not find out by themselves, since neither package is installed where the other is made.
  [[ $(dpkg-deb --field "$work"/debian/libsqldb-kit0_*.deb Depends) == *'libsqldb0 (= '* ]]
  [[ $(dpkg-deb --field "$work"/debian/libsqldb-dev_*.deb Depends) == *'libsqldb0 (= '*'libsqldb-kit0 (= '* ]]
}

# The release of Debian or Ubuntu that runs here, with a compiler, CMake, pkg-config and nothing else.
make_bare_system() {
  local release
  release=$(. /etc/os-release && printf '%s' "$VERSION_CODENAME")
  rm -rf "$top/build/bare.part"
  mkdir -p "$top/build"
  debootstrap --variant=minbase --include=g++,make,cmake,pkg-config "$release" "$top/build/bare.part"
  mv "$top/build/bare.part" "$top/build/bare"
}

# in_root FOLDER COMMANDS
in_root() {
  env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin DEBIAN_FRONTEND=noninteractive LC_ALL=C.UTF-8 \
    ${http_proxy+http_proxy="$http_proxy"} \
    chroot "$1" bash -euo pipefail -c "$2"
}

# Whoever has just what the library needs gets it, and a line for each tool of the tests that is missing.
build_plainly() {
  local root=$PWD/root
  cp -a "$top/build/bare" "$root"
  cp -r "$work/sqldb" "$root/root"
  in_root "$root" "cd /root
    apt-get -q update
    apt-get -q -y --no-install-recommends -o DPkg::Options::=--force-unsafe-io install libsqlite3-dev libboost-dev
    cmake -S sqldb -B build $together | tee configured
    cmake --build build --target sqldb catalog bare readme_1
    build/tests/readme/readme_1 >printed"
  [[ $(<"$root/root/printed") == bolt ]]
  [[ $(grep -c '^-- Tests left out: .*: install ' "$root/root/configured") == 3 ]]
}

use_debian_packages() {
  local root=$PWD/root commands
  cp -a "$top/build/bare" "$root"
  mkdir -p "$root/root/sqldb/build/package" "$root/root/project"
  cp "$work"/debian/*.deb "$root/root/sqldb/build/package"
  (cd "$root/root/project" && write_project '**find_package**')
  commands=$(block '**Debian packages**' | grep apt-get)
  commands=${commands/sudo apt-get/apt-get -q -y --no-install-recommends -o DPkg::Options::=--force-unsafe-io}
  in_root "$root" "cd /root
    apt-get -q update
    $commands
    cd project
    cmake -S . -B build
    cmake --build build
    build/your_program >printed
    $(block '**pkg-config**')
    ./program >>printed"
  [[ $(<"$root/root/project/printed") == $'bolt\nbolt' ]]
}

# The system is fetched, most of the time, while the others are tried.
if ((EUID == 0)) && [[ ! -d build/bare ]]; then
  make_bare_system >"$work/bare.log" 2>&1 &
  bare=$!
fi
try "the archive of the sources" make_archive
[[ -d $work/sqldb ]] || exit 1
try "an installation, made and moved" make_installation shared
try "find_package" use_find_package shared
try "find_package, linked only as needed" use_as_needed shared
try "pkg-config" use_pkg_config shared
try "find_package and pkg-config, the core alone" use_core_alone shared
try "a static installation, made and moved" make_installation static -DBUILD_SHARED_LIBS=OFF "$together"
try "find_package, of components" use_components shared
try "find_package, of a component that does not exist" refuse_components shared
try "find_package, with a newer CMake's name for SQLite" use_renamed_target shared
try "find_package, static" use_find_package static
try "pkg-config, static" use_pkg_config static --static
try "an installation on SQLCipher, made and moved" make_installation sqlcipher -DSQLDB_ENGINE=sqlcipher "$together"
try "find_package, on SQLCipher" use_sqlcipher
try "pkg-config, on SQLCipher" use_pkg_config sqlcipher
try "add_subdirectory" use_add_subdirectory
try "FetchContent" use_fetch_content
try "the Debian packages, as lintian wants them" make_debian_packages
if ((EUID != 0)); then
  printf 'SKIPPED       the sources and the Debian packages in a bare system: only root can make one\n'
else
  if [[ -n $bare ]] && ! wait "$bare"; then
    cat "$work/bare.log" >&2
    failed+=("a bare system")
  fi
  bare=
  try "the sources in a bare system, without the tools of the tests" build_plainly
  try "the Debian packages in a bare system" use_debian_packages
fi

if ((${#failed[@]} > 0)); then
  printf '\nFAILED: %s\n' "${failed[@]}" >&2
  exit 1
fi
printf '\nThe library can be used in all these ways (%d s).\n' "$SECONDS"
