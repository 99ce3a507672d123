# shellcheck shell=bash
# Sourced, after packages.sh. Debian systems in a folder: bare ones to work in, and ones for other processors, of which only
# the files are used. To let the kernel run other processors' programs: teach_processor, and forget_processors at the end.

binfmt=/proc/sys/fs/binfmt_misc

# make_root ARCHITECTURE SUITE FOLDER: with nothing but what apt-get needs. Does nothing if it is there.
make_root() {
  [[ ! -d $3 ]] || return 0
  rm -rf "$3.part"
  debootstrap --arch="$1" --variant=minbase "$2" "$3.part"
  mv "$3.part" "$3"
}

# make_foreign_root ARCHITECTURE FOLDER: the library's needs, unpacked. None of its programs is run for that.
make_foreign_root() {
  local root=$2 package
  [[ ! -d $root ]] || return 0
  rm -rf "$root.part"
  debootstrap --foreign --arch="$1" --variant=minbase \
    --include=libc6-dev,libstdc++-12-dev,libsqlite3-dev,libboost-dev,libgtest-dev,libgmock-dev,proj-data \
    bookworm "$root.part"
  # Only unpacked by a second stage, which would run there.
  for package in "$root.part"/var/cache/apt/archives/*.deb; do
    dpkg-deb --fsys-tarfile "$package" | tar -x -C "$root.part" --keep-directory-symlink
  done
  mv "$root.part" "$root"
}

# copy_sources FOLDER
copy_sources() {
  mkdir -p "$1"
  tar -c --exclude=./build --exclude=./.git . | tar -x -C "$1"
}

# run_in_root FOLDER ARCHITECTURE COMMANDS
run_in_root() {
  local as=(setarch x86_64)
  [[ $2 != i386 ]] || as=(setarch i686)
  env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin HOME=/root DEBIAN_FRONTEND=noninteractive LC_ALL=C.UTF-8 \
    ${http_proxy+http_proxy="$http_proxy"} "${as[@]}" chroot "$1" bash -euc "$3"
}

is_taught() { grep -qs "^interpreter .*[/-]$1-" "$binfmt"/qemu-* "$binfmt"/sqldb-*; }

# teach_processor NAME, as qemu-user calls it. With its registration from Debian, under a name of this script's own.
teach_processor() {
  [[ -e $binfmt/register ]] || mount -t binfmt_misc binfmt_misc "$binfmt" ||
    give_up "This kernel cannot be taught to run other processors' programs: it has no binfmt_misc."
  is_taught "$1" || sed 's/^:qemu-/:sqldb-/' "/usr/lib/binfmt.d/qemu-$1.conf" >"$binfmt/register"
}

was_mounted=
[[ ! -e $binfmt/register ]] || was_mounted=1

forget_processors() {
  local entry
  for entry in "$binfmt"/sqldb-*; do
    [[ ! -e $entry ]] || echo -1 >"$entry"
  done
  if [[ -z $was_mounted && -e $binfmt/register ]]; then umount "$binfmt" || true; fi
}
