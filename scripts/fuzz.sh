#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Runs fuzz targets of a build for a while, as many at once as there are processors or SIDEBAND_FUZZ_JOBS says:
# fuzz.sh BUILD_DIRECTORY FOLDER SECONDS [TARGET|TARGET=SECONDS...]
# FOLDER keeps what a target has found worth keeping, and a line for each run in the file "runs": date, target,
# seconds and those of the processor among them, executions, edges, features. If targets are named without seconds,
# those alone run.
set -euo pipefail

build=$1 folder=$2 seconds=$3
jobs=${SIDEBAND_FUZZ_JOBS:-$(nproc)}
# An input may take 20 s of a processor's time, but libFuzzer has only the clock, which goes on for those that wait.
limit=$((20 * (jobs + $(nproc) - 1) / $(nproc)))
declare -A seconds_of=() only=()
for setting in "${@:4}"; do
    if [[ $setting == *=* ]]; then
        seconds_of[${setting%%=*}]=${setting#*=}
    else
        only[$setting]=$seconds
    fi
done

# record NAME LOG SECONDS USER SYSTEM: a line for a run.
record() {
    local executions reached
    executions=$(sed -n 's/^stat::number_of_executed_units: *//p' "$2")
    reached=$(sed -nE 's/^#[0-9]+.* cov: ([0-9]+) ft: ([0-9]+) .*/\1 \2/p' "$2" | tail -n 1)
    echo "$(date -u +%F) $1 $3 $(($4 + $5)) ${executions:-0} ${reached:-0 0}" >>"$folder/runs"
}

# fuzz TARGET SECONDS: one target; says in one line what came of it, and on failure shows the log.
fuzz() {
    local target=$1 name found log words=() result=0 TIMEFORMAT='%0R %0U %0S'
    name=$(basename "$target")
    found=$folder/$name
    log=$found/log
    mkdir -p "$found/corpus"
    if [[ -f $build/fuzz/dictionaries/$name.dict ]]; then
        words=("-dict=$build/fuzz/dictionaries/$name.dict")
    fi
    { time "$target" -max_total_time="$2" -timeout="$limit" -rss_limit_mb=2048 -print_final_stats=1 "${words[@]}" \
        -artifact_prefix="$found/" "$found/corpus" "$build/fuzz/corpus/$name" >"$log" 2>&1; } 2>"$found/time" ||
        result=$?
    # Bash has words in front of them for a target that a signal ended.
    # shellcheck disable=SC2046 # three words
    record "$name" "$log" $(tail -n 1 "$found/time")
    if [[ $result -eq 0 ]]; then
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
known='' order=''
for target in "${targets[@]}"; do
    name=$(basename "$target")
    known+=" $name "
    if [[ ${#only[@]} -eq 0 || -n ${only[$name]:-} ]]; then
        # Those that run longest come first, so that none of them is left over at the end.
        order+="${seconds_of[$name]:-$seconds} $target"$'\n'
    fi
done
for name in "${!seconds_of[@]}" "${!only[@]}"; do
    if [[ $known != *" $name "* ]]; then
        echo "fuzz.sh: there is no target $name"
        exit 1
    fi
done
result=0
while read -r time target; do
    while (($(jobs -rp | wc -l) >= jobs)); do
        wait -n || result=1
    done
    fuzz "$target" "$time" &
done < <(sort -rn <<<"${order%$'\n'}")
while [[ -n $(jobs -p) ]]; do
    wait -n || result=1
done
exit "$result"
