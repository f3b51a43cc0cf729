#!/bin/sh
# Installs the library into a scratch prefix and builds C programs against it
# as its users do: through find_package(vq_glob) and through pkg-config, each
# against the shared and against the static library (a C-only project, so
# nothing but the package supplies the C++ runtime). Then the README's first
# program is built from the installed package and run, and the installed
# vqglob tool runs from bin/ without any library path set. Last, the Debian
# package cpack makes is installed into a scratch root and its tool run.
# Usage: install_check.sh [BUILD_DIR]   install a tree already built there
#        (default: a fresh Release build of the library and the tool)
set -eu
here=$(cd "$(dirname "$0")/.." && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

fail() {
    echo "install check: $*" >&2
    exit 1
}

build=${1:-}
if [ -z "$build" ]; then
    build=$work/build
    cmake -S "$here" -B "$build" -DBUILD_TESTING=OFF -DCMAKE_BUILD_TYPE=Release >/dev/null
    cmake --build "$build" -j2 --target vq_glob vq_glob_static vqglob >/dev/null
fi
prefix=$work/prefix
cmake --install "$build" --prefix "$prefix" >/dev/null
pc=$(find "$prefix" -name vq_glob.pc)
[ -n "$pc" ] || fail "no vq_glob.pc installed"
libdir=$(dirname "$(dirname "$pc")")
export PKG_CONFIG_PATH="$(dirname "$pc")"

# The README's program is the file in examples/, word for word.
sed -n '/^```c$/,/^```$/p' "$here/README.md" | sed '1d;$d' >"$work/readme_program.c"
cmp -s "$work/readme_program.c" "$here/examples/first_program.c" ||
    fail "the README's first program differs from examples/first_program.c"

consumer=$work/consumer
mkdir -p "$consumer"
cp "$here/examples/first_program.c" "$consumer/"
cat >"$consumer/main.c" <<'C'
#include <vq_glob.h>
#include <stdio.h>
int main(void) {
    /* A call that reaches the C++ inside: the parser's error path. */
    if (cli_dcl_parse("")) {
        return 1;
    }
    err_set_error(ERR_GEN_GENERAL, "consumer");
    puts(err_get_error_msg());
    return err_get_stack_depth() == 1 ? 0 : 1;
}
C
cat >"$consumer/CMakeLists.txt" <<'CM'
cmake_minimum_required(VERSION 3.25)
project(consumer C)
find_package(vq_glob REQUIRED)
add_executable(consumer_shared main.c)
target_link_libraries(consumer_shared PRIVATE vq_glob::vq_glob)
add_executable(consumer_static main.c)
target_link_libraries(consumer_static PRIVATE vq_glob::vq_glob_static)
add_executable(first_program first_program.c)
target_link_libraries(first_program PRIVATE vq_glob::vq_glob)
CM
cmake -S "$consumer" -B "$consumer/build" -DCMAKE_PREFIX_PATH="$prefix" >/dev/null
cmake --build "$consumer/build" >/dev/null || fail "the find_package consumers do not build"
# CMake gives its build-tree programs a run path to the library.
"$consumer/build/consumer_shared" >/dev/null || fail "find_package shared consumer failed"
"$consumer/build/consumer_static" >/dev/null || fail "find_package static consumer failed"

# pkg-config: the shared library needs a library path at run time; the static
# one is linked from a prefix that holds only the archive, as a static-only
# installation does, so -lvq_glob cannot pick the shared library.
cc "$consumer/main.c" -o "$consumer/pc_shared" $(pkg-config --cflags --libs vq_glob)
LD_LIBRARY_PATH="$libdir" "$consumer/pc_shared" >/dev/null || fail "pkg-config shared consumer failed"
cp -R "$prefix" "$work/static_prefix"
rm -f "$work/static_prefix/${libdir#"$prefix"/}"/libvq_glob.so*
cc "$consumer/main.c" -o "$consumer/pc_static" \
    $(PKG_CONFIG_PATH="$work/static_prefix/${PKG_CONFIG_PATH#"$prefix"/}" pkg-config --static --cflags --libs vq_glob) ||
    fail "pkg-config --static consumer does not link"
"$consumer/pc_static" >/dev/null || fail "pkg-config static consumer failed"

# The first program: a field read, and a failure shown as the error stack.
printf '[Settings]\nRetries=5\n[Network]\nPort=1200\n' >"$work/first.cfg"
out=$("$consumer/build/first_program" "$work/first.cfg" -field=Port -section=Network)
[ "$out" = 1200 ] || fail "first program printed '$out', not 1200"
if out=$("$consumer/build/first_program" "$work/missing.cfg" -field=Retries 2>&1); then
    fail "first program succeeded on a missing file"
fi
case "$out" in
*"CNF-F-FILE, error opening configuration file <$work/missing.cfg>"*"No such file or directory"*) ;;
*) fail "first program's error stack for a missing file: $out" ;;
esac

# The tool finds the installed library through its run path alone.
env -u LD_LIBRARY_PATH "$prefix/bin/vqglob" conf get "$work/first.cfg" Settings Retries >"$work/tool.out" ||
    fail "the installed vqglob does not run"
[ "$(cat "$work/tool.out")" = 5 ] || fail "installed vqglob printed '$(cat "$work/tool.out")', not 5"
# The Debian package: built by cpack, installed into a scratch dpkg database
# (its scripts run without a chroot), the tool run from where it landed and
# the service unit pointing at it and at /etc.
if command -v dpkg-deb >/dev/null 2>&1; then
    cpack -G DEB --config "$build/CPackConfig.cmake" -B "$work/package" >/dev/null 2>&1 || fail "cpack -G DEB failed"
    deb=$(find "$work/package" -maxdepth 1 -name '*.deb')
    [ -n "$deb" ] || fail "cpack made no .deb"
    root=$work/deb_root
    mkdir -p "$root/var/lib/dpkg/info" "$root/var/lib/dpkg/updates"
    : >"$root/var/lib/dpkg/status"
    dpkg --instdir="$root" --admindir="$root/var/lib/dpkg" --force-script-chrootless --force-depends \
        --no-triggers -i "$deb" >/dev/null 2>&1 || fail "the package does not install"
    env -u LD_LIBRARY_PATH "$root/usr/bin/vqglob" conf get "$work/first.cfg" Settings Retries >"$work/deb_tool.out" ||
        fail "the packaged vqglob does not run"
    [ "$(cat "$work/deb_tool.out")" = 5 ] || fail "packaged vqglob printed '$(cat "$work/deb_tool.out")', not 5"
    grep -qx 'ExecStart=/usr/bin/vqglob serve -config=/etc/vqglob/serve.conf' \
        "$root/usr/lib/systemd/system/vqglob.service" || fail "the packaged service unit does not start /usr/bin/vqglob"
fi
echo "install check: shared and static consumers (find_package, pkg-config), the first program, the tool and the Debian package run"
