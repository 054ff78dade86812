#!/usr/bin/env bash
# Configures without tests, installs into a stage, moves the stage, and builds and runs programs
# against it through pkg-config and through find_package.
#
# usage: install_test.sh SOURCE_DIR CC CXX
set -euo pipefail
source=$1 cc=$2 cxx=$3
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

cmake -G Ninja -S "$source" -B "$work/build" -DBUILD_TESTING=OFF -DCMAKE_BUILD_TYPE=Release \
  -DCMAKE_C_COMPILER="$cc" -DCMAKE_CXX_COMPILER="$cxx" -DCMAKE_INSTALL_PREFIX=/usr \
  -DCMAKE_INSTALL_LIBDIR=lib/x86_64-linux-gnu >"$work/log" || { cat "$work/log"; exit 1; }
cmake --build "$work/build" -j2 >"$work/log" 2>&1 || { cat "$work/log"; exit 1; }
DESTDIR=$work/stage cmake --install "$work/build" >/dev/null
mv "$work/stage/usr" "$work/usr"

expected="include/plintor.h
include/vestan.h
lib/x86_64-linux-gnu/cmake/plintor/plintorConfig.cmake
lib/x86_64-linux-gnu/cmake/plintor/plintorConfigVersion.cmake
lib/x86_64-linux-gnu/cmake/plintor/plintorTargets-release.cmake
lib/x86_64-linux-gnu/cmake/plintor/plintorTargets.cmake
lib/x86_64-linux-gnu/cmake/vestan/vestanConfig.cmake
lib/x86_64-linux-gnu/cmake/vestan/vestanConfigVersion.cmake
lib/x86_64-linux-gnu/cmake/vestan/vestanTargets-release.cmake
lib/x86_64-linux-gnu/cmake/vestan/vestanTargets.cmake
lib/x86_64-linux-gnu/libplintor.so
lib/x86_64-linux-gnu/libplintor.so.3
lib/x86_64-linux-gnu/libplintor.so.3.0.0
lib/x86_64-linux-gnu/libvestan.so
lib/x86_64-linux-gnu/libvestan.so.3
lib/x86_64-linux-gnu/libvestan.so.3.0.0
lib/x86_64-linux-gnu/pkgconfig/plintor.pc
lib/x86_64-linux-gnu/pkgconfig/vestan.pc"
diff <(echo "$expected") <(cd "$work/usr" && find . -type f -o -type l | sed 's,^./,,' | LC_ALL=C sort)

cat >"$work/program.c" <<'C'
#include <plintor.h>
#include <stdio.h>
#include <vestan.h>
int main(void) {
  char bytes[] = {1, 2, (char)0xff, (char)0xfe}, *cursor = bytes;
  int ints[2];
  const int inexact = ms2hi(&cursor, ints, 2);
  Tbl *t = newtbl(0);
  pushtbl(t, ints);
  printf("%d %d %d %d %ld\n", inexact, ints[0], ints[1], (int)(cursor - bytes), lentbl(t));
  freetbl(t, NULL);
  return 0;
}
C
cp "$work/program.c" "$work/program.cpp"
export PKG_CONFIG_PATH=$work/usr/lib/x86_64-linux-gnu/pkgconfig
export LD_LIBRARY_PATH=$work/usr/lib/x86_64-linux-gnu
answer="0 258 -2 4 1"

read -ra flags <<<"$(pkg-config --cflags --libs plintor)"
"$cc" -std=c99 -Wall -Wextra -Wpedantic -Werror "$work/program.c" -o "$work/by_pkgconfig" "${flags[@]}"
[ "$("$work/by_pkgconfig")" = "$answer" ]
"$cxx" -std=c++11 -Wall -Wextra -Wpedantic -Werror "$work/program.cpp" -o "$work/by_pkgconfig_cpp" \
  "${flags[@]}"
[ "$("$work/by_pkgconfig_cpp")" = "$answer" ]
[ "$(pkg-config --modversion plintor vestan | sort -u)" = 3.0.0 ]

mkdir "$work/consumer"
cat >"$work/consumer/CMakeLists.txt" <<'CMAKE'
cmake_minimum_required(VERSION 3.13)
project(consumer C)
find_package(plintor 3 REQUIRED)
add_executable(program ../program.c)
target_link_libraries(program PRIVATE plintor::plintor)
CMAKE
cmake -G Ninja -S "$work/consumer" -B "$work/consumer/build" -DCMAKE_C_COMPILER="$cc" \
  -DCMAKE_PREFIX_PATH="$work/usr" >"$work/log" || { cat "$work/log"; exit 1; }
cmake --build "$work/consumer/build" >"$work/log" 2>&1 || { cat "$work/log"; exit 1; }
[ "$("$work/consumer/build/program")" = "$answer" ]

# A program's own error log takes the place of the base library's.
cat >"$work/own_log.c" <<'C'
#include <plintor.h>
#include <stdio.h>
void elog_log(int syserr, const char *format, ...) { printf("%d %s\n", syserr, format); }
int main(void) { return UNIMPLEMENTED("x", 0); }
C
"$cc" "$work/own_log.c" -o "$work/own_log" "${flags[@]}"
[ "$("$work/own_log")" = "0 %s is unimplemented on this platform" ]
echo "installed, moved, and used through pkg-config and find_package"
