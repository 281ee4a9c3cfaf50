#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Unpacks Debian's kernel for 32-bit ARM, without installing it: kernel.sh FOLDER
#
# Leaves FOLDER/vmlinuz and FOLDER/board.dtb, the device tree of the AST2600 evaluation board. An apt of its own fetches
# the package and checks it against Debian's signature; the system's apt stays as it is.
set -euo pipefail

folder=$1
[[ ! -e $folder/vmlinuz || ! -e $folder/board.dtb ]] || exit 0
mirror=$("$(dirname "${BASH_SOURCE[0]}")/../mirror.sh")

# Unpacked aside first: a run that is cut short leaves nothing that looks whole.
partial=$folder.partial.$$
trap 'rm -rf "$partial"' EXIT
mkdir -p "$partial"/{lists/partial,cache/archives/partial,root}
partial=$(cd "$partial" && pwd)
: >"$partial/status"
echo "deb [signed-by=/usr/share/keyrings/debian-archive-keyring.gpg] $mirror bookworm main" >"$partial/sources.list"
for_arm=(-q -o APT::Architecture=armhf -o APT::Architectures::=armhf -o Acquire::Retries=3 -o APT::Sandbox::User=
    -o Dir::Etc::SourceList="$partial/sources.list" -o Dir::Etc::SourceParts=/dev/null
    -o Dir::State::lists="$partial/lists" -o Dir::State::status="$partial/status" -o Dir::Cache="$partial/cache")

cd "$partial"
apt-get "${for_arm[@]}" update >&2
# The package of this name only depends on that of the current version.
version=$(apt-cache "${for_arm[@]}" depends linux-image-armmp | sed -n 's/^ *Depends: \(linux-image-[0-9].*\)$/\1/p')
[[ -n $version ]] || {
    echo "kernel.sh: linux-image-armmp depends on no kernel" >&2
    exit 1
}
echo "kernel.sh: fetching $version" >&2
apt-get "${for_arm[@]}" download "$version" >&2
dpkg-deb -x "$version"_*.deb root
mkdir kernel
cp root/boot/vmlinuz-* kernel/vmlinuz
cp root/usr/lib/linux-image-*/aspeed-ast2600-evb.dtb kernel/board.dtb
cd - >/dev/null
rm -rf "$folder"
mv "$partial/kernel" "$folder"
