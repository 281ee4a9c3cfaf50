#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Builds user-mode Linux with MCTP from Debian's kernel source: build.sh FOLDER [JOBS]
#
# Leaves FOLDER/linux and FOLDER/stamp, which says how it was built; where that has not changed, nothing is
# built. "build.sh FOLDER --built" only says by its exit status whether that is so.
set -euo pipefail

folder=$1
jobs=${2:-$(nproc)}
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
source=/usr/src/linux-source-6.1.tar.xz

stamp=$(cat "$here/config" "$here/build.sh" | sha256sum)
if [[ -x $folder/linux && -f $folder/stamp && $(<"$folder/stamp") == "$stamp" ]]; then
    exit 0
elif [[ $jobs == --built ]]; then
    exit 1
fi

# Built aside first: a run that is cut short leaves nothing that looks whole.
partial=$folder.partial.$$
trap 'rm -rf "$partial"' EXIT
mkdir -p "$partial"
echo "build.sh: unpacking $source" >&2
# The sources of other machines' processors and graphics are most of the archive, and nothing here reads them.
tar -xf "$source" -C "$partial" --strip-components=1 --wildcards \
    --exclude='*/drivers/gpu/*.[ch]' --exclude='*/arch/arm*/*.dts*' --exclude='*/tools/perf' \
    --exclude='*/tools/testing' --exclude='*/sound/*.[ch]'

cd "$partial"
# Processors with AMX have more floating-point state than this kernel expects: room for all of it, and for
# a stack that it lies on.
sed -i 's/(HOST_FP_SIZE, 2696)/(HOST_FP_SIZE, 11520)/' arch/x86/um/user-offsets.c
grep -qF '(HOST_FP_SIZE, 11520)' arch/x86/um/user-offsets.c || {
    echo "build.sh: arch/x86/um/user-offsets.c does not look as expected" >&2
    exit 1
}
{
    cat "$here/config"
    echo CONFIG_KERNEL_STACK_ORDER=3
} >wanted

make=(make -s ARCH=um -j "$jobs")
"${make[@]}" KCONFIG_ALLCONFIG=wanted allnoconfig >&2
while read -r option; do
    grep -qxF "$option" .config || {
        echo "build.sh: the kernel refused $option" >&2
        exit 1
    }
done < <(grep '^CONFIG_' wanted)
echo "build.sh: compiling the kernel" >&2
"${make[@]}" linux >&2

mkdir -p "$folder"
strip -o "$folder/linux.new" linux
mv "$folder/linux.new" "$folder/linux"
printf '%s\n' "$stamp" >"$folder/stamp"
