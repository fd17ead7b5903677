#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Sources the completion that the program writes, and asks what it would offer.
set -euo pipefail

folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
cd "$folder"
touch "a.pcap" "b c.pcap"
mkdir recordings
script=$(vk410 help --completion bash)
bash -n <<<"$script"
eval "$script"

failures=0

# offers WORD... : the completions of the last word, sorted, one a line.
offers() {
    COMP_WORDS=("$@")
    COMP_CWORD=$((${#COMP_WORDS[@]} - 1))
    COMPREPLY=()
    _vk410 || true
    printf '%s\n' "${COMPREPLY[@]+"${COMPREPLY[@]}"}" | sort
}

# expect "A B" WORD... : exactly these are offered. Words of an offer are joined by an underscore here.
expect() {
    local wanted=$1 found
    shift
    found=$(offers "$@" | tr ' ' '_' | tr '\n' ' ')
    if [[ ${found% } != "$wanted" ]]; then
        echo "expected '$wanted' for '$*', found '${found% }'" >&2
        failures=$((failures + 1))
    fi
}

# among WORD... : the first one is offered for the others.
among() {
    local wanted=$1
    shift
    if ! offers "$@" | grep -qxF -- "$wanted"; then
        echo "expected '$wanted' among those for '$*', found '$(offers "$@" | tr '\n' ' ')'" >&2
        failures=$((failures + 1))
    fi
}

# Verbs, each that the help lists.
expect "demo doctor" vk410 d
expect "monitor" vk410 mon
expect "--version" vk410 --v
for verb in $(vk410 --help | sed -n '/Subcommands:/,/^[^ ]/s/^  \([a-z]*\) .*/\1/p'); do
    among "$verb" vk410 ""
    # Options, each that its help lists.
    for option in $(vk410 "$verb" --help | grep -o '^  \(-[a-z],\)*--[a-z-]*' | grep -o -- '--[a-z-]*'); do
        among "$option" vk410 "$verb" "$option"
        among "$option" vk410 "$verb" --
    done
done
expect "--scan-range" vk410 monitor --sc
expect "--scan-range" vk410 --config a.pcap monitor --sc

# Choices, in both spellings of an option.
expect "df levels zerospan zerospan2" vk410 export --what ""
expect "zerospan zerospan2" vk410 export --what z
expect "csv" vk410 export --format = c
expect "csv ndjson npy" vk410 export --format =
expect "scan scif" vk410 monitor --df s

# Files for options and arguments that take one.
expect "a.pcap b_c.pcap recordings" vk410 export -o ""
expect "a.pcap" vk410 check a
expect "a.pcap" vk410 check b.pcap --truth a
expect "a.pcap" vk410 --config a
expect "" vk410 record --for ""

# Sources and scenes.
expect "a.pcap b_c.pcap recordings sim: tcp:// udp://" vk410 monitor ""
expect "udp://" vk410 monitor u
expect "band demo df zerospan" vk410 monitor sim :
expect "band" vk410 monitor sim : b
expect "demo df" vk410 simulate d
expect "doctor" vk410 config --show "do"

((failures == 0))
