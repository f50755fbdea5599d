#!/bin/sh
# Installs the built tree into a temporary prefix, moves the prefix (an installed tree must
# work from wherever it lies), checks what was installed, and builds and runs the outside
# host against it twice: as a CMake project with find_package, and with pkg-config and a
# plain compiler command line.
#
# Usage: install_consume.sh BUILD_DIR WORK_DIR SOURCE_DIR CXX VERSION
set -eu
build=$1 work=$2 source=$3 cxx=$4 version=$5

rm -rf "$work/staged" "$work/prefix"
mkdir -p "$work"
cmake --install "$build" --prefix "$work/staged" >"$work/install.log"
mv "$work/staged" "$work/prefix"
prefix=$work/prefix

fail() {
    echo "FAIL $*" >&2
    exit 1
}

# Exactly the library, its data archive, headers, CMake package, pkg-config file and tool.
unexpected=$(cd "$prefix" && find . -type f -o -type l | sed 's|^\./||' | grep -Ev \
    '^(bin/tessel|include/tessel_link/.+\.h|lib(/[^/]+)?/(libtessel_link(_net)?\.so(\.[0-9]+)*|libtessel_link\.dat|cmake/TesselLink/TesselLink(Config|ConfigVersion|Targets|Targets-[a-z]+)\.cmake|pkgconfig/tessel_link\.pc))$' \
    || true)
[ -z "$unexpected" ] || fail "installed but not part of the package: $unexpected"
for f in bin/tessel include/tessel_link/version.h include/tessel_link/tessel_link.h \
         include/tessel_link/xidl/records.h include/tessel_link/components/test_management.h; do
    [ -e "$prefix/$f" ] || fail "not installed: $f"
done
libdir=$(dirname "$(find "$prefix" -name libtessel_link.dat)")
for f in libtessel_link.so libtessel_link.so.0 "libtessel_link.so.$version" \
         pkgconfig/tessel_link.pc cmake/TesselLink/TesselLinkConfigVersion.cmake; do
    [ -e "$libdir/$f" ] || fail "not installed: $libdir/$f"
done
echo "ok   installed tree"

got=$("$prefix/bin/tessel" --version)
[ "$got" = "tessel $version" ] || fail "tessel --version says '$got'"
echo "ok   tessel --version"

launcher=
if command -v ccache >/dev/null 2>&1; then
    launcher=ccache
fi
expected="GetData: 4096 bytes for backup-01.example"

# find_package, from the moved prefix.
cmake -S "$source/examples/outside_host" -B "$work/cmake_host" -G Ninja \
    -DCMAKE_BUILD_TYPE=Release -DCMAKE_CXX_COMPILER="$cxx" \
    -DCMAKE_CXX_COMPILER_LAUNCHER="$launcher" -DCMAKE_PREFIX_PATH="$prefix" >"$work/cmake_host.log"
cmake --build "$work/cmake_host" >>"$work/cmake_host.log"
out=$("$work/cmake_host/outside_host")
echo "$out" | grep -qx "$expected" || fail "find_package host printed: $out"
echo "$out" | grep -qx "tessel_link $version" || fail "find_package host printed: $out"
echo "ok   find_package host"

# pkg-config and one compiler command.
flags=$(PKG_CONFIG_PATH="$libdir/pkgconfig" pkg-config --cflags --libs tessel_link)
# shellcheck disable=SC2086  # the flags are words
$launcher "$cxx" -std=c++20 -O1 "$source/examples/outside_host/main.cpp" $flags \
    -o "$work/pkgconfig_host"
out=$(LD_LIBRARY_PATH="$libdir" "$work/pkgconfig_host")
echo "$out" | grep -qx "$expected" || fail "pkg-config host printed: $out"
echo "ok   pkg-config host ($flags)"
