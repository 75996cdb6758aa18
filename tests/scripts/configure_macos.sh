#!/bin/sh
# SPDX-License-Identifier: MIT
# CMake for macOS, configured on any machine with a stand-in for the platform's compiler, so that it does not rot.
#   tests/scripts/configure_macos.sh SOURCE_FOLDER COMPILER
set -eu
source=$1
compiler=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# What CMake asks the platform for.
mkdir "$work/bin"
printf '#!/bin/sh\necho 11.0\n' >"$work/bin/sw_vers"
chmod +x "$work/bin/sw_vers"
PATH=$work/bin:$PATH
# Programs cannot be linked for the platform here, and its tools are not here.
if ! cmake -S "$source" -B "$work/build" -G Ninja -DCMAKE_SYSTEM_NAME=Darwin -DCMAKE_OSX_SYSROOT=/ \
  -DCMAKE_CXX_COMPILER="$compiler" \
  -DCMAKE_TRY_COMPILE_TARGET_TYPE=STATIC_LIBRARY -DCMAKE_INSTALL_NAME_TOOL=/bin/true -DCMAKE_INSTALL_PREFIX=/usr/local \
  -DKMV_BUILD_TESTS=OFF >"$work/said" 2>&1; then
  cat "$work/said"
  exit 1
fi

plan=$work/build/build.ninja
expect() { # TEXT
  grep -qF -- "$1" "$plan" && return
  echo "the build for macOS has no $1"
  exit 1
}
expect 'platform/macos/NativePlatform.cpp.o'
expect 'platform/posix/FileWalk.cpp.o'
expect '-framework DiskArbitration'
expect '-framework IOKit'
expect 'KMVDriveLibrary.framework/Versions/A/KMVDriveLibrary'
expect 'Versions/A/Headers/KMVDriveLibrary.h'
expect 'Versions/A/Headers/host/'
expect 'Versions/A/Headers/bridging/CoreFoundation.h'
if grep -qF platform/linux "$plan"; then
  echo "the build for macOS has sources of Linux"
  exit 1
fi
grep -rqF '@loader_path/../Library/Frameworks' "$work/build/kmvdrive/cmake_install.cmake" "$plan" ||
  { echo "kmvdrive does not find the installed framework"; exit 1; }
grep -qF com.orvane.KMVDriveLibrary "$(find "$work/build" -name Info.plist | head -n 1)" ||
  { echo "the framework has no identifier"; exit 1; }
