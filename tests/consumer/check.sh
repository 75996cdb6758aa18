#!/bin/sh
# SPDX-License-Identifier: MIT
# Uses the library as its hosts do: installed as a package, and as a folder of their own project. Also looks at what the
# installed shared library exports.
#   tests/consumer/check.sh BUILD    BUILD: a build folder of this project, built
set -eu
build=$(CDPATH='' cd -- "$1" && pwd)
here=$(CDPATH='' cd -- "$(dirname -- "$0")" && pwd)
root=$(CDPATH='' cd -- "$here/../.." && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
trap 'exit 1' HUP INT TERM

use() { # NAME ARGUMENT...
  name=$1
  shift
  echo "--- $name"
  cmake -S "$here" -B "$work/$name" -G Ninja -DCMAKE_CXX_FLAGS='-Wall -Wextra -Werror' "$@" >"$work/log" 2>&1 ||
    { cat "$work/log"; exit 1; }
  cmake --build "$work/$name"
  ctest --test-dir "$work/$name" --output-on-failure --no-tests=error
}

cmake --install "$build" --prefix "$work/installed" >"$work/log" || { cat "$work/log"; exit 1; }
use installed_package -DCMAKE_PREFIX_PATH="$work/installed"
use own_folder -DKMV_SOURCE_DIR="$root"

# A header that is not installed, or a private one that is, would only be noticed by a host. The bridge is macOS's.
bridge='./KMVDriveLibrary/bridging/*'
[ "$(uname)" != Darwin ] || bridge=''
(cd "$root/KMVDriveLibrary/include" && find . -name '*.h' ! -path "$bridge" | LC_ALL=C sort) >"$work/written"
(cd "$work/installed/include" && find . -type f | LC_ALL=C sort) >"$work/found"
diff "$work/written" "$work/found"

"$here/check_exports.sh" "$(find "$work/installed" -name 'libKMVDriveLibrary.so.1')"
