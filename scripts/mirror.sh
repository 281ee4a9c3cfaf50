#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Prints the mirror that this machine's apt uses for the distribution itself.
set -euo pipefail

release=$(. /etc/os-release && printf %s "${VERSION_CODENAME:-}")
# shellcheck disable=SC2016 # apt expands these itself
mirror=$(apt-get indextargets --format '$(REPO_URI)' 'Created-By: Packages' 'Component: main' \
    "Codename: $release" | head -n 1)
if [[ -z $mirror ]]; then
    # shellcheck disable=SC2016 # as above
    mirror=$(apt-get indextargets --format '$(RELEASE) $(REPO_URI)' 'Created-By: Packages' \
        'Component: main' | awk -v release="$release" '$1 == release { print $2; exit }')
fi
if [[ -z $mirror ]]; then
    echo "mirror.sh: apt names no mirror of the distribution" >&2
    exit 1
fi
printf '%s\n' "$mirror"
