# shellcheck shell=bash
# Sourced. Installs what a script needs and the machine lacks; see install_missing.

# The tools are looked for by what they can do, not by package, so that a compiler or a library from elsewhere counts.
has_header() {
  local directory
  for directory in /usr/include /usr/local/include; do
    [[ -e $directory/$1 ]] && return 0
  done
  command -v c++ >/dev/null && c++ -E -x c++ -include "$1" /dev/null >/dev/null 2>&1
}

# Whether Clang finds libc++, headers and library.
has_libcxx() {
  clang++ -stdlib=libc++ -x c++ -o /dev/null - >/dev/null 2>&1 <<<$'#include <string>\nint main(int n, char**) { return std::to_string(n).empty(); }'
}

# Whether Clang finds the runtime of the sanitizers, which Debian packages separately.
has_clang_runtime() {
  clang++ -fsanitize=address,undefined -x c++ -o /dev/null - >/dev/null 2>&1 <<<'int main() {}'
}

clang_version() { clang++ -dumpversion | cut -d. -f1; }

# llvm_tool NAME: the tool llvm-NAME that reads what Clang writes.
llvm_tool() {
  local versioned
  versioned=llvm-$1-$(clang_version)
  command -v "$versioned" || command -v "llvm-$1"
}

has_llvm() { llvm_tool cov >/dev/null && llvm_tool profdata >/dev/null; }

# Whether the machine has what the package $1 of Debian and Ubuntu gives.
has() {
  case $1 in
    g++) command -v c++ >/dev/null ;;
    libsqlite3-dev) has_header sqlite3.h ;;
    libboost-dev) has_header boost/shared_ptr.hpp ;;
    proj-data) [[ -e /usr/share/proj/proj.db ]] ;;
    libgtest-dev) has_header gtest/gtest.h ;;
    libgmock-dev) has_header gmock/gmock.h ;;
    googletest) [[ -e /usr/src/googletest/CMakeLists.txt ]] ;;
    libc++-* | libc++abi-*) has_libcxx ;;
    qemu-user-static) command -v qemu-s390x-static >/dev/null ;;
    g++-mingw-w64-x86-64-posix) command -v x86_64-w64-mingw32-g++-posix >/dev/null ;;
    g++-*-linux-gnu*) command -v "${1#g++-}-g++" >/dev/null ;;
    emscripten) command -v emcc >/dev/null ;;
    nodejs) command -v node >/dev/null ;;
    libbenchmark-dev) has_header benchmark/benchmark.h ;;
    libsqlitecpp-dev) has_header SQLiteCpp/SQLiteCpp.h ;;
    libsoci-dev) has_header soci/soci.h ;;
    libpoco-dev) has_header Poco/Data/Data.h ;;
    qt6-base-dev) pkg-config --exists Qt6Sql ;;
    libqt6sql6-sqlite) has_qt_driver ;;
    libglib2.0-dev) pkg-config --exists glib-2.0 ;;
    libsodium-dev) pkg-config --exists libsodium ;;
    libssl-dev) pkg-config --exists libcrypto ;;
    ceph-common) command -v ceph >/dev/null && command -v rados >/dev/null ;;
    libsqlite3-mod-ceph) [[ -n $(ceph_module) ]] ;;
    libsqlcipher-dev) pkg-config --exists sqlcipher ;;
    zlib1g-dev) pkg-config --exists zlib ;;
    dpkg-dev) command -v dpkg-shlibdeps >/dev/null ;;
    gnuplot-nox) command -v gnuplot >/dev/null ;;
    graphviz) command -v dot >/dev/null ;;
    clang) command -v clang++ >/dev/null ;;
    libclang-rt-*) has_clang_runtime ;;
    llvm-*) has_llvm ;;
    *) command -v "$1" >/dev/null ;;
  esac
}

# Qt's driver for SQLite is loaded while the program runs.
has_qt_driver() {
  [[ -e "$(pkg-config --variable=libdir Qt6Core 2>/dev/null)/qt6/plugins/sqldrivers/libqsqlite.so" ]]
}

# The module that lets SQLite keep databases in a Ceph cluster; empty if there is none.
ceph_module() {
  local candidate
  for candidate in /usr/lib/*/libcephsqlite.so /usr/lib{64,}/libcephsqlite.so /usr/local/lib/libcephsqlite.so; do
    [[ ! -e $candidate ]] || { printf '%s' "$candidate" && return; }
  done
}

give_up() {
  printf '%s\n' "$1" >&2
  exit 1
}

install_with_apt_get() {
  local as_root=(env DEBIAN_FRONTEND=noninteractive)
  if ((EUID != 0)); then
    command -v sudo >/dev/null || give_up "Not root, and there is no sudo. Please install: $*"
    sudo -n true 2>/dev/null || give_up "sudo asks for a password. Please run first: sudo apt-get install $*"
    as_root=(sudo -n "${as_root[@]}")
  fi
  as_root+=(apt-get -q -y -o DPkg::Lock::Timeout=120)

  printf 'Installing with apt-get: %s\n' "$*"
  # A source of packages that cannot be reached may be one that is not needed: the installation decides.
  "${as_root[@]}" update >/dev/null 2>&1 </dev/null || true
  local output reason
  output=$("${as_root[@]}" install --no-install-recommends "$@" 2>&1 </dev/null) && return
  reason=$(grep -m 1 '^E: ' <<<"$output") || reason="E: no reason given"
  give_up "apt-get failed: ${reason#E: }. Please install: $*"
}

# install_missing PACKAGE...: installs those that the machine lacks, by their names in Debian and Ubuntu. Does nothing
# if none is missing, asks nothing, and ends the script with one line if it cannot help.
install_missing() {
  local package missing=()
  for package in "$@"; do
    has "$package" || missing+=("$package")
  done
  ((${#missing[@]} == 0)) && return
  command -v apt-get >/dev/null || give_up "No apt-get here. Please install: ${missing[*]}"
  install_with_apt_get "${missing[@]}"
}

# CMake 3.22 is the first that has what the presets and the build use.
require_cmake() {
  local version
  version=$(cmake --version | sed -n '1s/.* //p')
  printf '3.22\n%s\n' "$version" | sort -V -C || give_up "CMake 3.22 or newer is needed; this is $version."
}

# What builds the library and the examples, and the packages given.
install_build_packages() {
  install_missing g++ make cmake libsqlite3-dev libboost-dev "$@"
  require_cmake
}

install_test_packages() {
  install_build_packages libgtest-dev libgmock-dev pkg-config sqlite3 proj-data
}

install_clang() {
  install_missing clang
  has_clang_runtime || install_missing "libclang-rt-$(clang_version)-dev"
}

# The layers and encoders that sqldb is measured beside, and what measures them. After install_build_packages.
install_benchmark_packages() {
  install_missing pkg-config libbenchmark-dev libsqlitecpp-dev libsoci-dev libpoco-dev qt6-base-dev libqt6sql6-sqlite \
    libglib2.0-dev libsodium-dev libssl-dev valgrind
}

# The tools that read Clang's coverage. After install_clang.
install_llvm() { install_missing "llvm-$(clang_version)"; }

# What makes and tries the packages. SQLite's own pkg-config file names zlib for static programs.
install_packaging_packages() {
  install_build_packages pkg-config libsqlcipher-dev zlib1g-dev dpkg-dev file lintian
  ((EUID != 0)) || install_missing debootstrap
}
