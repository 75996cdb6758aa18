#!/bin/sh
# SPDX-License-Identifier: MIT
# The shared library exports what hosts may use, and nothing that is only ours or another library's.
#   tests/consumer/check_exports.sh LIBRARY
# Templates of the standard library come out as weak symbols wherever they are instantiated; compilers share them between
# libraries on purpose, so they are let through, weak ones only.
set -eu
library=$1
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

if [ "$(uname)" = Darwin ]; then
  nm -gU "$library" | c++filt >"$work/symbols"
else
  nm -D --defined-only -C "$library" >"$work/symbols"
fi
grep -q ' T KMVDiskArbiter::startArbiter()$' "$work/symbols" || { echo "no KMVDiskArbiter::startArbiter in $library"; exit 1; }

awk '
  {
    kind = $2
    name = $0
    sub(/^[^ ]* +[^ ]+ /, "", name)
    isTypeName = name ~ /^typeinfo/
    sub(/^(vtable|typeinfo|typeinfo name|guard variable|VTT) for /, "", name)
    sub(/^(non-virtual|virtual) thunk to /, "", name)
    weak = kind ~ /^[VWu]$/
  }
  name ~ /kmv::Linux|kmv::macos|kmv::simulated|\(anonymous namespace\)|nlohmann/ { print "  " kind " " name; next }
  name ~ /^(kmv::|KMV|k[A-Z]|OrvaneLog|CrossAppFileManager|Codex(VirtualFileSystemWrapper|ExtendedAttributes)|VirtualFileSystemWrapper|virtualFileSystemWrapperHasUpdated$|ExtendedAttributesError|StreamFileReader|ApplicationIOTrackingDelegate|IOActivityUpdate|URLActivityUpdate|DeviceIOStatistics|NewDiskAppeared$|DiskDisappeared$|DiskDescriptionChanged$|DiskUnmountCallback$|DiskRenameCallback$)/ { next }
  weak && name ~ /(^|[ (<])(std|__gnu_cxx|kmv)::/ { next }
  weak && isTypeName { next } # of function types, for std::function
  weak && name ~ /^operator (new|delete)/ { next }
  { print "  " kind " " name }
' "$work/symbols" >"$work/foreign"

if [ -s "$work/foreign" ]; then
  echo "$library exports what it should hide:"
  cat "$work/foreign"
  exit 1
fi
echo "$(wc -l <"$work/symbols") exported symbols, all of them for hosts"
