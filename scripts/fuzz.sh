#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Runs every fuzz target of a build for a while, as many at once as there are processors:
# fuzz.sh BUILD_DIRECTORY SECONDS [TARGET=SECONDS...]
set -euo pipefail

build=$1 seconds=$2
declare -A seconds_of=()
for setting in "${@:3}"; do
    seconds_of[${setting%%=*}]=${setting#*=}
done

# fuzz TARGET SECONDS: one target; says in one line what came of it, and on failure shows the log.
fuzz() {
    local target=$1 name found log
    name=$(basename "$target")
    found=$build/found/$name
    log=$found/log
    mkdir -p "$found/corpus"
    if "$target" -max_total_time="$2" -timeout=20 -rss_limit_mb=2048 -print_final_stats=1 \
        -artifact_prefix="$found/" "$found/corpus" "$build/fuzz/corpus/$name" >"$log" 2>&1; then
        echo "$name: $(sed -n 's/^stat::number_of_executed_units: *//p' "$log") inputs in $2 s, nothing found"
        return
    fi
    echo "$name: FAILED, log in $log"
    grep -vE '^#[0-9]+' "$log" | tail -n 40
    return 1
}

mapfile -t targets < <(find "$build/fuzz" -maxdepth 1 -type f -perm -u+x ! -name '*.so*' | sort)
if [[ ${#targets[@]} -eq 0 ]]; then
    echo "fuzz.sh: there is no fuzz target"
    exit 1
fi
for target in "${targets[@]}"; do
    name=$(basename "$target")
    known+=" $name "
    # Those that run longest come first, so that none of them is left over at the end.
    order+="${seconds_of[$name]:-$seconds} $target"$'\n'
done
for name in "${!seconds_of[@]}"; do
    if [[ $known != *" $name "* ]]; then
        echo "fuzz.sh: there is no target $name"
        exit 1
    fi
done
result=0
while read -r time target; do
    while (($(jobs -rp | wc -l) >= $(nproc))); do
        wait -n || result=1
    done
    fuzz "$target" "$time" &
done < <(sort -rn <<<"${order%$'\n'}")
while [[ -n $(jobs -p) ]]; do
    wait -n || result=1
done
exit "$result"
