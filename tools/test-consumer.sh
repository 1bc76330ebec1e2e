#!/usr/bin/env bash
# The library as another project uses it: installs the built tree (BUILD_DIR,
# default build) into a scratch prefix, builds examples/consumer against the
# installed package (find_package), against the source tree (add_subdirectory)
# and with pkg-config's flags alone, and runs each build. One line per check;
# exits non-zero when any fails.
set -uo pipefail
cd "$(dirname "$0")/.."
src="$PWD"
build="$(cd "${BUILD_DIR:-build}" 2>/dev/null && pwd)" || {
   echo "test-consumer.sh: no build directory ${BUILD_DIR:-build} (build the tree first)" >&2
   exit 1
}
# Inside the build directory, so that the compiler cache sees the same
# relative paths on every run.
work="$build/consumer-test"
rm -rf "$work"
mkdir -p "$work"
log="$work/log"
prefix="$work/prefix"

failed=0
# check NAME COMMAND...: runs the command with its output in the log.
check() {
   local name="$1"
   shift
   if "$@" >>"$log" 2>&1; then
      echo "ok   $name"
   else
      echo "FAIL $name (log: $log)"
      failed=1
   fi
}

# The consumer's output: one line per member, each programmed, and the group.
expect_programmed() {
   local out
   out="$("$@")" || return 1
   echo "$out"
   [ "$(grep -c '^member [0-9]*: next hop [0-9][0-9]*, success$' <<<"$out")" -eq 2 ] &&
      grep -qx 'group: success' <<<"$out"
}

check "install into a scratch prefix" cmake --install "$build" --prefix "$prefix"
check "headers, CMake package and pkg-config file installed" test -f \
   "$prefix/include/MeridL3Tunnel/L3TunnelOverlayEcmpProgrammer.h" -a \
   -f "$prefix/include/MeridL3Tunnel/Platform/Orb/Trace.h" -a \
   -f "$prefix/include/AsicSim/Chip.h" -a \
   -n "$(find "$prefix" -name MeridL3TunnelConfigVersion.cmake)" -a \
   -n "$(find "$prefix" -name meridl3tunnel.pc)"
# SONAME libMeridL3Tunnel.so.MAJOR.MINOR, the name a link records.
versioned_soname() {
   local lib
   lib="$(find "$prefix" -name libMeridL3Tunnel.so | head -n 1)"
   [ -n "$lib" ] && readelf -d "$lib" | grep -E 'SONAME.*\[libMeridL3Tunnel\.so\.[0-9]+\.[0-9]+\]'
}
check "libMeridL3Tunnel.so has a versioned SONAME" versioned_soname

# find_package against the prefix; the program opens the installed library.
check "consumer configured with find_package(MeridL3Tunnel 0.2)" \
   cmake -S examples/consumer -B "$work/package" -DCMAKE_BUILD_TYPE=Release \
   -DCMAKE_PREFIX_PATH="$prefix"
check "consumer built against the installed package" cmake --build "$work/package" -j2
check "consumer against the installed package programs its group" \
   expect_programmed "$work/package/consumer"
opens_installed() {
   grep -rho 'MERIDL3TUNNEL_LIBRARY=[^ ]*' --include=build.ninja --include=flags.make \
      "$work/package" | grep "$prefix/"
}
check "the installed package's consumer opens the installed library" opens_installed

# The version file: 0.2 accepts this 0.2.x, an older or a newer minor version
# is refused (before 1.0 a minor version may break the ABI).
version_refused() {
   local dir="$work/version-$1"
   mkdir -p "$dir"
   printf 'cmake_minimum_required(VERSION 3.25)\nproject(v NONE)\nfind_package(MeridL3Tunnel %s REQUIRED)\n' \
      "$1" >"$dir/CMakeLists.txt"
   local out
   if out="$(cmake -S "$dir" -B "$dir/build" -DCMAKE_PREFIX_PATH="$prefix" 2>&1)"; then
      return 1
   fi
   echo "$out"
   # Found and refused for its version, not missing.
   grep -q 'considered but not accepted' <<<"$out"
}
check "find_package(MeridL3Tunnel 0.1) refused" version_refused 0.1
check "find_package(MeridL3Tunnel 0.3) refused" version_refused 0.3

# add_subdirectory of the source tree: only the libraries are built.
check "consumer configured with add_subdirectory of the source tree" \
   cmake -S examples/consumer -B "$work/subdir" -DCMAKE_BUILD_TYPE=Release \
   -DMERIDL3TUNNEL_SOURCE_DIR="$src" \
   -DL3TUNNEL_TESTS=OFF -DL3TUNNEL_BENCH=OFF
check "consumer built with the library's sources" cmake --build "$work/subdir" -j2
check "add_subdirectory builds the libraries only (no tools, no tests)" \
   test ! -e "$work/subdir/meridl3tunnel/tools" -a ! -e "$work/subdir/meridl3tunnel/tests"
check "consumer with add_subdirectory programs its group" expect_programmed "$work/subdir/consumer"

# pkg-config's flags alone compile and link the example.
pcfile="$(find "$prefix" -name meridl3tunnel.pc | head -n 1)"
export PKG_CONFIG_PATH="${pcfile%/*}"
version="$(sed -n 's/^set(PACKAGE_VERSION "\(.*\)")$/\1/p' \
   "$(find "$prefix" -name MeridL3TunnelConfigVersion.cmake | head -n 1)" 2>/dev/null)"
# The flags name the scratch prefix: the file took the prefix it was installed to.
pkg_config_flags() {
   local flags
   flags="$(pkg-config --cflags --libs meridl3tunnel)" || return 1
   echo "$flags"
   grep -q -- "-I$prefix/include " <<<"$flags " && grep -q -- "-L$prefix/" <<<"$flags"
}
check "pkg-config --cflags --libs meridl3tunnel" pkg_config_flags
check "pkg-config version is the package's ($version)" \
   test -n "$version" -a "$(pkg-config --modversion meridl3tunnel 2>/dev/null)" = "$version"
libdir="$(pkg-config --variable=libdir meridl3tunnel 2>/dev/null)"
# shellcheck disable=SC2046
check "consumer built with pkg-config's flags" \
   g++ -std=c++20 -Wall -Wextra -Werror $(pkg-config --cflags meridl3tunnel 2>/dev/null) \
   -DMERIDL3TUNNEL_LIBRARY="\"$libdir/libMeridL3Tunnel.so\"" examples/consumer/consumer.cpp \
   -o "$work/consumer-pc" -lMeridL3TunnelAsicSim $(pkg-config --libs meridl3tunnel 2>/dev/null) -ldl \
   -Wl,-rpath,"$libdir"
check "consumer built with pkg-config programs its group" expect_programmed "$work/consumer-pc"

if [ "$failed" -ne 0 ]; then
   echo "test-consumer.sh: failed (log: $log)"
   exit 1
fi
rm -rf "$work"
echo "test-consumer.sh: all checks passed"
