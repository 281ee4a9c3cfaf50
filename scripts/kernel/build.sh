#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Builds user-mode Linux with MCTP from Debian's kernel source: build.sh FOLDER [JOBS]
#
# Leaves FOLDER/linux and FOLDER/stamp, which says how it was built; where that has not changed, nothing is
# built. "build.sh FOLDER --built" only says by its exit status whether that is so.
set -euo pipefail

here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
source=/usr/src/linux-source-6.1.tar.xz
stamp=$(cat "$here/config" "$here/build.sh" | sha256sum)

unpack() {
    echo "build.sh: unpacking $source" >&2
    # What is left out are the sources of other machines' devices: most of the archive, and nothing here reads them.
    local part exclude=()
    for part in drivers/gpu drivers/media drivers/staging drivers/scsi drivers/infiniband drivers/iio drivers/usb \
        drivers/net/ethernet drivers/net/wireless sound tools/perf tools/testing; do
        exclude+=(--exclude="*/$part/*.[ch]")
    done
    for part in arm arm64 ia64 mips powerpc riscv s390 sparc; do
        exclude+=(--exclude="*/arch/$part/*.[chS]" --exclude="*/arch/$part/*.dts*")
    done
    tar -xf "$source" --strip-components=1 --wildcards "${exclude[@]}"
}

# Processors with AMX have more floating-point state than this kernel expects: room for all of it, and for a
# stack that it lies on (KERNEL_STACK_ORDER).
widen_fp_state() {
    local file=arch/x86/um/user-offsets.c
    sed -i 's/(HOST_FP_SIZE, 2696)/(HOST_FP_SIZE, 11520)/' "$file"
    if ! grep -qF '(HOST_FP_SIZE, 11520)' "$file"; then
        echo "build.sh: $file does not look as expected" >&2
        exit 1
    fi
}

# configure MAKE...: refuses to go on without an option that the kernel has dropped.
configure() {
    local option
    (cat "$here/config" && echo CONFIG_KERNEL_STACK_ORDER=3) >wanted
    "$@" KCONFIG_ALLCONFIG=wanted allnoconfig >&2
    while read -r option; do
        if ! grep -qxF "$option" .config; then
            echo "build.sh: the kernel refused $option" >&2
            exit 1
        fi
    done < <(grep '^CONFIG_' wanted)
}

main() {
    local folder=$1 jobs=${2:-$(nproc)}
    if [[ -x $folder/linux && -f $folder/stamp && $(<"$folder/stamp") == "$stamp" ]]; then
        return 0
    elif [[ $jobs == --built ]]; then
        return 1
    fi
    mkdir -p "$folder"
    folder=$(cd "$folder" && pwd)
    # Built aside first: a run that is cut short leaves nothing that looks whole.
    partial=$folder/partial.$$
    trap 'rm -rf "$partial"' EXIT
    mkdir "$partial"
    cd "$partial"
    unpack
    widen_fp_state
    local make=(make -s ARCH=um -j "$jobs")
    configure "${make[@]}"
    echo "build.sh: compiling the kernel" >&2
    "${make[@]}" linux >&2
    strip -o "$folder/linux.new" linux
    mv "$folder/linux.new" "$folder/linux"
    printf '%s\n' "$stamp" >"$folder/stamp"
}

main "$@"
exit
