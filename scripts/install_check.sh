#!/bin/sh
# Installs the library into a scratch prefix and builds a consumer project
# against it twice: through find_package(vq_glob) and through pkg-config.
set -eu
here=$(cd "$(dirname "$0")/.." && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

cmake -S "$here" -B "$work/build" -DBUILD_TESTING=OFF -DCMAKE_BUILD_TYPE=Release >/dev/null
cmake --build "$work/build" -j2 >/dev/null
cmake --install "$work/build" --prefix "$work/prefix" >/dev/null

mkdir -p "$work/consumer"
cat >"$work/consumer/main.c" <<'C'
#include <vq_glob.h>
#include <stdio.h>
int main(void) {
    err_set_error(ERR_GEN_GENERAL, "consumer");
    puts(err_get_error_msg());
    return err_get_stack_depth() == 1 ? 0 : 1;
}
C
cat >"$work/consumer/CMakeLists.txt" <<'CM'
cmake_minimum_required(VERSION 3.25)
project(consumer C)
find_package(vq_glob REQUIRED)
add_executable(consumer main.c)
target_link_libraries(consumer PRIVATE vq_glob::vq_glob)
CM
cmake -S "$work/consumer" -B "$work/consumer/build" -DCMAKE_PREFIX_PATH="$work/prefix" >/dev/null
cmake --build "$work/consumer/build" >/dev/null
LD_LIBRARY_PATH="$work/prefix/lib" "$work/consumer/build/consumer"

PKG_CONFIG_PATH="$work/prefix/lib/pkgconfig" cc "$work/consumer/main.c" -o "$work/consumer/pc" \
    $(PKG_CONFIG_PATH="$work/prefix/lib/pkgconfig" pkg-config --cflags --libs vq_glob)
LD_LIBRARY_PATH="$work/prefix/lib" "$work/consumer/pc"
echo "install check: find_package and pkg-config consumers build and run"
