#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Builds Debian packages of the tree and tries them.
#
# usage: package.sh library FOLDER LIBSIDEBAND-SIM   the library's packages; an example against them, unpacked; the
#                                                    same packages for 32-bit ARM, by the cross compiler of this machine
#        package.sh all FOLDER CHROOT                every package; their tests in a chroot of Debian, where they are
#                                                    installed; then those of the library for 32-bit ARM
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
what=$1 folder=$2 third=$3
library_only=pkg.sideband.libraryonly
jobs=$(nproc)
export DEB_BUILD_OPTIONS="nocheck parallel=$jobs"

say() { printf 'package.sh: %s\n' "$*" >&2; }
die() {
    say "$*"
    exit 1
}

# copy_tree FOLDER: the tree as git has it, with the packaging where Debian's tools look for it.
copy_tree() {
    rm -rf "$1"
    mkdir -p "$1"
    git -C "$root" ls-files -co --exclude-standard -z |
        tar -C "$root" -c --null --ignore-failed-read -T - | tar -C "$1" -x
    cp -r "$root/packaging/debian" "$1/debian"
}

check_version() {
    local packaged project
    packaged=$(dpkg-parsechangelog -l "$root/packaging/debian/changelog" -S Version)
    project=$(sed -n "s/^  version: '\(.*\)',$/\1/p" "$root/meson.build" | head -n 1)
    [[ ${packaged%-*} == "$project" ]] || die "debian/changelog has version $packaged, meson.build $project"
}

# build FOLDER BUILDPACKAGE-ARGUMENT...
build() {
    copy_tree "$1/source"
    if ! (cd "$1/source" && dpkg-buildpackage -us -uc -b "${@:2}") >"$1/log" 2>&1; then
        tail -n 40 "$1/log" >&2
        die "dpkg-buildpackage failed"
    fi
    python3 "$root/tests/checks/flags.py" --build "$(echo "$1"/source/obj-*)"
    lint "$1"
}

# lint FOLDER: nobody has asked for these packages in a bug report of Debian's, which lintian wants of new ones.
lint() {
    lintian --allow-root --fail-on error,warning --suppress-tags initial-upload-closes-no-bugs "$1"/*.changes
    say "lintian has nothing to say about $(find "$1" -name '*.deb' | wc -l) packages"
}

# try_unpacked FOLDER: compiles against the unpacked packages and runs with the simulated board of this tree.
try_unpacked() {
    local unpacked=$1/unpacked package multiarch
    multiarch=$(dpkg-architecture -qDEB_HOST_MULTIARCH)
    rm -rf "$unpacked"
    for package in "$1"/*.deb; do
        dpkg-deb -x "$package" "$unpacked"
    done
    local examples=$unpacked/usr/share/doc/libsideband-dev/examples
    local flags libraries=$unpacked/usr/lib/$multiarch
    flags=$(PKG_CONFIG_LIBDIR=$libraries/pkgconfig PKG_CONFIG_SYSROOT_DIR=$unpacked \
        pkg-config --define-variable=libdir="$libraries" --cflags --libs sideband)
    # shellcheck disable=SC2086 # one flag a word
    cc "$examples/read_sensor.c" -I"$root/platform/sim" $flags "$third" -o "$1/read_sensor"
    LD_LIBRARY_PATH=$libraries:$(dirname "$third") "$1/read_sensor" | grep '^EID 29: 69.000 degC$'
}

# ---- In a chroot ---------------------------------------------------------------------------------

# inside COMMAND: runs a shell command in the chroot.
inside() { chroot "$third" /usr/bin/env DEBIAN_FRONTEND=noninteractive DEB_BUILD_OPTIONS="$DEB_BUILD_OPTIONS" sh -ec "$1"; }

make_chroot() {
    [[ ! -e $third/.complete ]] || return 0
    say "making a chroot of Debian 12"
    rm -rf "$third"
    mkdir -p "$(dirname "$third")"
    mmdebstrap --variant=buildd --architectures="$(dpkg --print-architecture),armhf" \
        --include=cmake,crossbuild-essential-armhf,debhelper,libc6-dev:armhf,libstdc++-12-dev:armhf,pkgconf \
        bookworm "$third" "$("$root/scripts/mirror.sh")" \
        >"$folder/chroot.log" 2>&1 || die "mmdebstrap failed: $folder/chroot.log"
    touch "$third/.complete"
}

# try_installed FOLDER: installs the packages by apt, with what they depend on, and runs every test of debian/tests.
try_installed() {
    local name
    rm -rf "$third/packages"
    mkdir -p "$third/packages"
    cp "$1"/*.deb "$third/packages"
    cp -r "$1/source/debian/tests" "$third/packages/tests"
    inside 'apt-get -q update && apt-get -q install -y --reinstall --no-install-recommends /packages/*.deb' \
        >"$1/install.log" 2>&1 || die "the packages cannot be installed: $1/install.log"
    while read -r name; do
        inside "/packages/tests/$name" </dev/null || die "debian/tests/$name failed"
        say "debian/tests/$name passed"
    done < <(sed -n 's/^Tests: //p' "$root/packaging/debian/tests/control")
}

# build_for_arm FOLDER: the library's packages for armhf, in the chroot, which has that architecture's libc.
build_for_arm() {
    copy_tree "$third/build/source"
    inside "cd /build/source && apt-get -q update &&
        apt-get -q build-dep -y --no-install-recommends --host-architecture armhf -P $library_only ./" \
        >"$1/build-dep.log" 2>&1 || die "no dependencies of the build for armhf: $1/build-dep.log"
    inside "cd /build/source && dpkg-buildpackage -us -uc -b -aarmhf -P$library_only" >"$1/log" 2>&1 ||
        die "dpkg-buildpackage for armhf failed: $1/log"
    cp "$third"/build/*armhf* "$1"
    lint "$1"
}

check_version
rm -rf "$folder"
mkdir -p "$folder/native" "$folder/armhf"
case $what in
library)
    build "$folder/native" "-P$library_only"
    try_unpacked "$folder/native"
    # Without a chroot nothing of that architecture is installed (-d), and its libc is the cross compiler's.
    LD_LIBRARY_PATH=/usr/arm-linux-gnueabihf/lib build "$folder/armhf" "-P$library_only" -aarmhf -d
    ;;
all)
    [[ $(id -u) -eq 0 ]] || die "a chroot needs root"
    build "$folder/native"
    make_chroot
    try_installed "$folder/native"
    build_for_arm "$folder/armhf"
    find "$folder" -name '*.deb' ! -name '*-dbgsym_*' | sort
    ;;
esac
