#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# clang-tidy over one file, silent unless it has something to say: tidy.sh BUILD_DIRECTORY FILE
if ! out=$(clang-tidy-14 --quiet -p "$1" "$2" 2>&1); then
    printf '%s\n' "$out" | grep -v 'warnings generated\.$'
    exit 1
fi
