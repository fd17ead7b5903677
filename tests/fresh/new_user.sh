#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Does what a new user would, in an empty Debian 12 of its own (debootstrap, chroot): nothing that this machine has helps.
set -euo pipefail

usage() {
    cat <<'TEXT'
usage: new_user.sh demo|test|packages [FOLDER]

  demo      clones the project and runs ./run demo for some seconds
  test      clones the project and runs ./run test
  packages  installs build/packages/*.deb, runs the installed program, builds the consumer of tests/install

FOLDER (default: a new one in /tmp) takes about 4 GB; a Debian that an earlier run left there is taken as it is.
Needs root, debootstrap, and a Debian mirror. Ends with 0 if everything worked.
TEXT
}

case ${1-} in
demo | test | packages) job=$1 ;;
-h | --help) usage; exit 0 ;;
*) usage >&2; exit 2 ;;
esac
((EUID == 0)) || { echo "new_user.sh: needs root for debootstrap and chroot; run it with sudo" >&2; exit 2; }
command -v debootstrap >/dev/null || { echo "new_user.sh: no debootstrap; apt install debootstrap" >&2; exit 2; }
project=$(cd "$(dirname "$0")/../.." && pwd)
root=${2-$(mktemp -d /tmp/vk410-fresh.XXXX)}
say() { echo "== $*"; }

if [[ ! -e $root/etc/debian_version ]]; then
    say "an empty Debian 12 in $root"
    debootstrap --variant=minbase bookworm "$root" >"$root.log" 2>&1 || { tail "$root.log" >&2; exit 2; }
fi
# How to reach the network: name servers, and the certificates of a proxy where there is one.
cp /etc/resolv.conf /etc/hosts "$root/etc/"
[[ -z ${NODE_EXTRA_CA_CERTS-} ]] || cp "$NODE_EXTRA_CA_CERTS" "$root/etc/network-certificates.pem"
mounted=()
unmount() {
    local place
    for place in "${mounted[@]}"; do umount -l "$place"; done
}
trap unmount EXIT
for place in proc sys dev; do
    mount --rbind "/$place" "$root/$place"
    mount --make-rslave "$root/$place"
    mounted+=("$root/$place")
done
inside() {
    chroot "$root" /usr/bin/env -i HOME=/root TERM=dumb LANG=C.UTF-8 PATH=/usr/sbin:/usr/bin:/sbin:/bin DEBIAN_FRONTEND=noninteractive \
        NODE_EXTRA_CA_CERTS="${NODE_EXTRA_CA_CERTS:+/etc/network-certificates.pem}" bash -euc "$1"
}

# A user has git before there is anything to clone.
clone() {
    inside 'apt-get update -q && apt-get install -q -y --no-install-recommends git ca-certificates' >"$root.log" 2>&1
    # Of an earlier run: Wireshark would load its dissector and refuse that of the clone.
    inside 'dpkg --purge vk410 libvk410-dev libvk410-0.1' >>"$root.log" 2>&1
    rm -rf "$root/root/vk410" "$root/root/vk410.git"
    git clone -q --bare "$project" "$root/root/vk410.git"
    inside 'git clone -q /root/vk410.git /root/vk410'
}

begin=$SECONDS
case $job in
demo)
    clone
    say "./run demo"
    inside 'cd /root/vk410 && ./run demo --for 5'
    ;;
test)
    clone
    say "./run test"
    inside 'cd /root/vk410 && ./run test'
    ;;
packages)
    rm -rf "$root/root/packages" && mkdir -p "$root/root/packages"
    cp "$project"/build/packages/*.deb "$root/root/packages/"
    cp -r "$project/tests/install" "$root/root/packages/consumer"
    say "apt install"
    inside 'apt-get update -q && apt-get install -q -y --no-install-recommends /root/packages/*.deb' | tail -n 3
    say "the installed program"
    inside 'vk410 --version && vk410 demo --headless --for 3 && vk410 record sim:band -o /root/a.pcap --for 2 && vk410 inspect /root/a.pcap'
    say "the dissector, found by Wireshark"
    inside 'apt-get install -q -y --no-install-recommends tshark >/dev/null && tshark -G plugins | grep vk410 && tshark -r /root/a.pcap -c 2 | grep VK410'
    say "an application"
    inside 'apt-get install -q -y --no-install-recommends cmake ninja-build g++ >/dev/null &&
        cmake -G Ninja -S /root/packages/consumer -B /root/consumer >/dev/null && cmake --build /root/consumer && /root/consumer/consumer'
    ;;
esac
say "$job: done in $((SECONDS - begin)) s"
