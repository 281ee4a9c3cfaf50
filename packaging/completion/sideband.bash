# SPDX-License-Identifier: Apache-2.0
# shellcheck shell=bash
# Completion for bash: sideband and sideband-sim say by themselves what fits. Nothing that they say is evaluated.

# A word without its quotes, and with the home folder for ~/, in REPLY. What a shell would expand stays as it is.
_sideband_plain() {
    case $1 in
    \"*\" | \'*\') REPLY=${1:1:-1} ;;
    [\"\']*) REPLY=${1:1} ;;
    \~/*) REPLY=$HOME/${1:2} ;;
    *) REPLY=${1//\\/} ;;
    esac
}

_sideband() {
    local REPLY rest=${COMP_LINE:0:COMP_POINT} given=() offered=() gap word breaks='' cut='' i
    # Bash takes words apart at : and =, which may stand in the middle of one here.
    for ((i = 0; i <= COMP_CWORD; ++i)); do
        gap=${rest%%[![:space:]]*}
        rest=${rest#"$gap"}
        word=${COMP_WORDS[i]}
        ((i < COMP_CWORD)) || word=$rest
        rest=${rest#"$word"}
        if [[ -z $gap && $i -gt 0 ]]; then
            given[${#given[@]} - 1]+=$word
        else
            given+=("$word")
        fi
    done
    for i in "${!given[@]}"; do
        _sideband_plain "${given[i]}"
        given[i]=$REPLY
    done
    mapfile -t offered < <("${given[0]}" __complete "${given[@]:1}" 2>/dev/null </dev/null)
    COMPREPLY=()
    if [[ ${offered[0]-} == files && ${#offered[@]} -eq 1 ]]; then
        compopt -o default 2>/dev/null
        return
    fi
    # Only what stands behind the last : or = is replaced.
    [[ $COMP_WORDBREAKS != *:* ]] || breaks+=':'
    [[ $COMP_WORDBREAKS != *=* ]] || breaks+='='
    word=${given[${#given[@]} - 1]}
    [[ -z $breaks ]] || cut=${word%"${word##*["$breaks"]}"}
    for word in "${offered[@]:1}"; do
        word=${word%%$'\t'*}
        COMPREPLY+=("${word#"$cut"}")
    done
    if [[ ${#COMPREPLY[@]} -eq 1 && ${COMPREPLY[0]} == *= ]]; then
        compopt -o nospace 2>/dev/null
    fi
}

complete -F _sideband sideband sideband-sim
