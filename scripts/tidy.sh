#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# clang-tidy over one file, silent unless it has something to say: tidy.sh BUILD_DIRECTORY FILE
case $2 in
# The analyzer would spend most of its time in the formatting and JSON libraries that these use.
tools/*) extra='--checks=-clang-analyzer-*' ;;
# The same, several as one.
*-unity*.cpp) extra='--checks=-clang-analyzer-*,-bugprone-suspicious-include' ;;
*) extra= ;;
esac
if ! out=$(clang-tidy-14 --quiet -p "$1" ${extra:+"$extra"} "$2" 2>&1); then
    printf '%s\n' "$out" | grep -v 'warnings generated\.$'
    exit 1
fi
