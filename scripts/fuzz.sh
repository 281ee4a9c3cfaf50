#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Runs every fuzz target of a build for a while: fuzz.sh BUILD_DIRECTORY CORPUS_DIRECTORY SECONDS
set -euo pipefail

build=$1 corpus=$2 seconds=$3
mapfile -t targets < <(find "$build/fuzz" -maxdepth 1 -type f -perm -u+x ! -name '*.so*' | sort)
if [[ ${#targets[@]} -eq 0 ]]; then
    echo "fuzz.sh: there is no fuzz target"
    exit 1
fi
result=0
for target in "${targets[@]}"; do
    name=$(basename "$target")
    found=$build/found/$name
    mkdir -p "$found/corpus"
    seeds=()
    [[ -d $corpus/$name ]] && seeds=("$corpus/$name")
    if "$target" -max_total_time="$seconds" -timeout=20 -rss_limit_mb=2048 -print_final_stats=1 \
        -artifact_prefix="$found/" "$found/corpus" "${seeds[@]}" >"$found/log" 2>&1; then
        echo "$name: $(sed -n 's/^stat::number_of_executed_units: *//p' "$found/log") inputs, nothing found"
    else
        echo "$name: FAILED, log in $found/log"
        grep -vE '^#[0-9]+' "$found/log" | tail -n 40
        result=1
    fi
done
exit "$result"
