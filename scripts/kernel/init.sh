#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# First process of the kernel of ./dev kernel. Everything but the run folder is read-only.
#
# The command line of the kernel gives SIDEBAND_RUN, the folder of this run, and SIDEBAND_MAIN, the program that
# makes it up. Its exit status goes into SIDEBAND_RUN/status, what it prints into the file SIDEBAND_OUTPUT or,
# without that, to the console.
export PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin HOME=/run LC_ALL=C.UTF-8
export PYTHONDONTWRITEBYTECODE=1

mount -t proc proc /proc
mount -t sysfs sysfs /sys
mount -t devtmpfs devtmpfs /dev
mkdir -p /dev/pts /dev/shm
mount -t devpts devpts /dev/pts -o ptmxmode=666
mount -t tmpfs tmpfs /dev/shm
mount -t tmpfs tmpfs /run
mount -t hostfs -o "$SIDEBAND_RUN" none "$SIDEBAND_RUN"
mkdir -p "$SIDEBAND_RUN/tmp"
export TMPDIR="$SIDEBAND_RUN/tmp"
cd "$SIDEBAND_RUN" || exit 1

[ -z "$SIDEBAND_OUTPUT" ] || exec >"$SIDEBAND_OUTPUT" 2>&1
python3 "$SIDEBAND_MAIN" </dev/null
echo $? >"$SIDEBAND_RUN/status"
sync
# Nothing of an init system is needed to go down: reboot(LINUX_REBOOT_CMD_POWER_OFF).
exec python3 -c 'import ctypes; ctypes.CDLL(None).reboot(0x4321fedc)'
