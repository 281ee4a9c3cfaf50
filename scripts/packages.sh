# SPDX-License-Identifier: Apache-2.0
# shellcheck shell=bash
# Which Debian packages a chore needs, and how they get installed; read by ./dev.

# Per group: package=probe, the probe being a command or a file for systems without dpkg.
declare -A package_groups=(
    [git]='git=git'
    # dpkg-dev tells meson Debian's folder for libraries. Without it they go to lib64, where nothing looks for them.
    [build]='g++=g++ meson=meson ninja-build=ninja binutils=readelf python3=python3 dpkg-dev=dpkg-architecture'
    [tools]='libcli11-dev=/usr/include/CLI/CLI.hpp
        libfmt-dev=/usr/include/fmt/format.h
        nlohmann-json3-dev=/usr/include/nlohmann/json.hpp
        pkgconf=pkg-config'
    [tests]='googletest=/usr/src/googletest/googletest/src/gtest-all.cc
        nlohmann-json3-dev=/usr/include/nlohmann/json.hpp
        pkgconf=pkg-config
        cmake=cmake make=make groff-base=groff'
    [arm]='g++-arm-linux-gnueabihf=arm-linux-gnueabihf-g++'
    [armel]='g++-arm-linux-gnueabi=arm-linux-gnueabi-g++'
    [arm64]='g++-aarch64-linux-gnu=aarch64-linux-gnu-g++'
    [s390x]='g++-s390x-linux-gnu=s390x-linux-gnu-g++'
    [emulator]='qemu-user=qemu-arm'
    [ast2600]='qemu-system-arm=qemu-system-arm cpio=cpio
        debian-archive-keyring=/usr/share/keyrings/debian-archive-keyring.gpg'
    [bench]='libbenchmark-dev=/usr/include/benchmark/benchmark.h pkgconf=pkg-config'
    [instructions]='valgrind=valgrind'
    [coverage]='gcovr=gcovr'
    [format]='clang-format-14=clang-format-14'
    [clang]='clang-14=clang++-14'
    [lint]='clang-14=clang++-14 clang-tidy-14=clang-tidy-14'
    [analyze]='clang-14=clang++-14 g++-12=g++-12'
    [sanitizers]='clang-14=clang++-14 libclang-rt-14-dev=/usr/lib/llvm-14/lib/clang'
    [fuzz]='clang-14=clang++-14 libclang-rt-14-dev=/usr/lib/llvm-14/lib/clang'
    [fuzz_coverage]='llvm-14=llvm-cov-14'
    [docs]='python3=python3 doxygen=doxygen man-db=man groff-base=groff mandoc=mandoc'
    [kernel]='linux-source-6.1=/usr/src/linux-source-6.1.tar.xz
        xz-utils=xz make=make gcc=gcc flex=flex bison=bison bc=bc'
    [abi]='abigail-tools=abidiff'
    [package]='debhelper=dh lintian=lintian dpkg-dev=dpkg-buildpackage pkgconf=pkg-config'
    [chroot]='mmdebstrap=mmdebstrap debian-archive-keyring=/usr/share/keyrings/debian-archive-keyring.gpg'
    [clients]='nvme-cli=nvme libnvme-dev=/usr/include/libnvme-mi.h i2c-tools=i2ctransfer'
    [counterparts]='prometheus=prometheus zsh=zsh fish=fish'
    [tshark]='mmdebstrap=mmdebstrap debian-archive-keyring=/usr/share/keyrings/debian-archive-keyring.gpg'
)

package_present() { # PACKAGE PROBE
    if command -v dpkg-query >/dev/null; then
        [[ $(dpkg-query -W -f='${db:Status-Status}' "$1" 2>/dev/null) == installed ]]
    elif [[ $2 == /* ]]; then
        [[ -e $2 ]]
    else
        command -v "$2" >/dev/null
    fi
}

# need GROUP...: installs what is missing of the groups, or says what to install.
need() {
    local group entry missing=()
    for group in "$@"; do
        for entry in ${package_groups[$group]}; do
            package_present "${entry%%=*}" "${entry#*=}" || missing+=("${entry%%=*}")
        done
    done
    [[ ${#missing[@]} -eq 0 ]] || install_packages "${missing[@]}"
}

install_packages() {
    local as_root=()
    if ! command -v apt-get >/dev/null; then
        die "please install what Debian calls: $*"
    elif [[ $(id -u) -ne 0 ]]; then
        command -v sudo >/dev/null || die "please install (as root): apt-get install $*"
        as_root=(sudo)
    fi
    say "installing $*"
    local apt=("${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get -q -o Acquire::Retries=3)
    mkdir -p "$builds"
    (
        # One chore at a time, if several run beside one another.
        flock 9
        # Index files may be missing altogether or name versions that the mirror no longer has.
        "${apt[@]}" update >&2 </dev/null
        "${apt[@]}" install -y --no-install-recommends "$@" >&2 </dev/null
    ) 9>"$builds/.installing"
}
