#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Unpacks a tshark that dissects MCTP into a folder, without installing it: tshark.sh FOLDER
#
# Debian 12's own tshark knows no MCTP; Debian 13's does. It is unpacked together with every library
# it needs and started through that release's own loader, so that the system stays as it is.
set -euo pipefail

folder=$1
suite=trixie
wrapper=$folder/tshark

works() { [[ -x $wrapper ]] && "$wrapper" -G protocols 2>/dev/null | grep -q $'\tmctp\t'; }

if works; then
    exit 0
fi

# A tshark of the system is as good if it knows MCTP.
if command -v tshark >/dev/null && tshark -G protocols 2>/dev/null | grep -q $'\tmctp\t'; then
    mkdir -p "$folder"
    ln -sf "$(command -v tshark)" "$wrapper"
    exit 0
fi

mirror=$("$(dirname "${BASH_SOURCE[0]}")/mirror.sh")

# Unpacked aside first: a run that is cut short leaves nothing that looks whole.
partial=$folder.partial.$$
trap 'rm -rf "$partial"' EXIT
mkdir -p "$partial/home"
echo "tshark.sh: unpacking tshark of Debian $suite" >&2
mmdebstrap --variant=extract --include=tshark "$suite" "$partial/root" "$mirror" >&2 </dev/null
rm -rf "$folder"
mv "$partial" "$folder"

tree=$folder/root
loader=$(find "$tree/usr/lib" "$tree/usr/lib64" -name 'ld-linux*.so.*' 2>/dev/null | head -n 1)
libraries=$(dirname "$(find "$tree/usr/lib" -name 'libwireshark.so.*' | head -n 1)")
cat >"$wrapper" <<EOF
#!/bin/sh
# tshark from the tree beside this file, through that tree's own loader.
HOME='$folder/home' WIRESHARK_DATA_DIR='$tree/usr/share/wireshark' \\
    WIRESHARK_PLUGIN_DIR='$libraries/wireshark/plugins' \\
    exec '$loader' --library-path '$libraries' '$tree/usr/bin/tshark' "\$@"
EOF
chmod +x "$wrapper"
if ! works; then
    echo "tshark.sh: the unpacked tshark does not know MCTP or does not start" >&2
    "$wrapper" --version >&2 || true
    exit 1
fi
