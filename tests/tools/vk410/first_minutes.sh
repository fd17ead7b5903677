#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# A user's first ten minutes: whatever goes wrong shows its cause and a command that helps, and what it names does.
# Needs vk410 in PATH. Prints what a user would do and see.
set -euo pipefail
folder=$(mktemp -d)
trap 'jobs -p | xargs -r kill 2>/dev/null || true; rm -rf "$folder"' EXIT
cd "$folder"

step() { echo "== $*"; }

# A port of loopback that nobody has, for UDP and TCP.
free_port() {
    python3 -c 'import socket
t = socket.socket(); t.bind(("127.0.0.1", 0))
u = socket.socket(socket.AF_INET, socket.SOCK_DGRAM); u.bind(("127.0.0.1", t.getsockname()[1]))
print(t.getsockname()[1])'
}

# expect TEXT FILE: waits until FILE says TEXT, and shows the line.
expect() {
    for _ in $(seq 300); do
        if grep -m 1 -e "$1" "$2"; then return; fi
        sleep 0.1
    done
    echo "first_minutes: expected '$1', found:" >&2
    tail -n 30 "$2" >&2
    exit 1
}

# forbid TEXT FILE
forbid() {
    if grep -e "$1" "$2" >&2; then
        echo "first_minutes: did not expect '$1'" >&2
        exit 1
    fi
}

# watch SOURCE [OPTIONS]: a monitor in the background; its talk in `talk`, its ledger in `ledger`.
watch() {
    : >talk
    vk410 monitor "$@" --headless >ledger 2>>talk &
    monitor=$!
}

# Ends the monitor. Result: its exit code in $code.
leave() {
    kill -TERM "$monitor"
    code=0
    wait "$monitor" || code=$?
}

send() { vk410 simulate band "$@" >sent 2>sender; }

step "The demo shows a receiver without losses"
vk410 demo --headless --for 3 >ledger 2>talk
expect "simulator .* 127.0.0.1:" talk
expect "traces/s .* no losses" talk
expect "sums balance .* yes" ledger

step "The stream is pulled: the monitor says so, and what to look at"
port=$(free_port)
watch "udp://127.0.0.1:$port"
expect "listening" talk
send --udp "127.0.0.1:$port" --for 2
expect "silent for" talk
expect "nothing arrives: .*'sudo tcpdump -c 3 -ni any udp port $port'" talk
: >talk
step "It comes back by itself with the stream"
send --udp "127.0.0.1:$port" --for 2
expect "60.* traces/s .* age" talk
leave
expect "wire duplicates  *0" ledger

step "Losses on the way: counted as what they are, with a command"
port=$(free_port)
watch "udp://127.0.0.1:$port"
expect "listening" talk
send --udp "127.0.0.1:$port" --count 300 --rate 200 --seed 3 --drop 0.05
dropped=$(sed -n 's/.* drop \([0-9]*\).*/\1/p' sent)
expect "wire lost $dropped" talk
leave
((code == 1)) || { echo "first_minutes: expected exit code 1 after losses, found $code" >&2; exit 1; }
expect "wire lost  *$dropped .*'ip -s link'" ledger

step "The wrong tag: nothing in the map, and the option that changes it"
port=$(free_port)
watch "udp://127.0.0.1:$port" --tag panorama=301
expect "listening" talk
send --udp "127.0.0.1:$port" --count 60
expect "unrouted 60" talk
leave
expect "no processor for tag 501: 60" ledger
expect "unrouted .*'vk410 monitor SOURCE --tag panorama=TAG'" ledger
step "With that option it is there"
watch "udp://127.0.0.1:$port" --tag panorama=501
expect "listening" talk
send --udp "127.0.0.1:$port" --count 60
expect "1601 ch" talk
leave
forbid "no processor" ledger
expect "delivered  *60" ledger

step "The wrong UDP port"
wrong=$(free_port)
watch "udp://127.0.0.1:$wrong"
expect "listening" talk
send --udp "127.0.0.1:$port" --for 2
expect "no data yet" talk
expect "nothing arrives: does the receiver send to UDP port $wrong of this machine? 'sudo tcpdump" talk
leave

step "The wrong TCP port"
watch "tcp://127.0.0.1:$wrong"
expect "Connection refused; next try in" talk
expect "nothing arrives: does 127.0.0.1 listen on TCP port $wrong? 'nc -vz 127.0.0.1 $wrong'" talk
leave
step "The right one"
vk410 simulate band --tcp "127.0.0.1:$port" --for 30 >sent 2>sender &
simulator=$!
expect "waiting" sender
watch "tcp://127.0.0.1:$port"
expect "1601 ch .* no losses" talk
leave
kill -TERM "$simulator"
wait "$simulator" || true

echo "== all of it worked"
