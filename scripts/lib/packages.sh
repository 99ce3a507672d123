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
    libgtest-dev) has_header gtest/gtest.h ;;
    libgmock-dev) has_header gmock/gmock.h ;;
    clang) command -v clang++ >/dev/null ;;
    libclang-rt-*) has_clang_runtime ;;
    llvm-*) has_llvm ;;
    *) command -v "$1" >/dev/null ;;
  esac
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
  install_build_packages libgtest-dev libgmock-dev pkg-config sqlite3
}

install_clang() {
  install_missing clang
  has_clang_runtime || install_missing "libclang-rt-$(clang_version)-dev"
}

# The tools that read Clang's coverage. After install_clang.
install_llvm() { install_missing "llvm-$(clang_version)"; }
