#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# service_test.sh SYSTEMD-ANALYZE UNIT PROGRAM: the unit of the unattended monitor is one, and well shut in.
set -euo pipefail

folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
unit=$folder/vk410-monitor.service
# The program is not installed where the unit will look for it; manual pages neither.
sed "s|^ExecStart=[^ ]*|ExecStart=$3|; /^Documentation=/d" "$2" >"$unit"

complaints=$("$1" verify "$unit" 2>&1 | grep -F "$unit" || true)
if [[ -n $complaints ]]; then
    echo "$complaints" >&2
    exit 1
fi
# 0 is best, 10 worst: what listens to a network all day is to be below 2.
"$1" security --offline=true --threshold=20 "$unit" | tail -n 1
