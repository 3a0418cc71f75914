#!/usr/bin/env bash
# scripts/demo --enter: a command runs in the network of the bus that is kept, finds the programs and stays in the
# caller's directory; without a bus the script says so. A process of that name in a network of its own stands in
# for the bus. Argument: the script.
set -euo pipefail

tree=$(mktemp -d)
keeper=''
trap '[[ -z $keeper ]] || kill "$keeper" || true; rm -rf "$tree"' EXIT
mkdir -p "$tree/scripts" "$tree/build-release/bin" "$tree/elsewhere"
cp "$1" "$tree/scripts/demo"
cat >"$tree/build-release/bin/vexa" <<'TXT'
#!/bin/sh
echo "vexa stands in $PWD"
TXT
chmod +x "$tree/build-release/bin/vexa"
cp "$(command -v sleep)" "$tree/vexa_demo"

fail() {
    printf '%s\n' "$@"
    exit 1
}

if answer=$("$tree/scripts/demo" --enter true 2>&1); then fail "entered a bus that is not there"; fi
[[ $answer == *'no bus is running here'* ]] || fail "without a bus it says: $answer"

unshare --map-root-user --net sh -c \
    'ip link set lo up && ip address add 192.168.1.1/24 dev lo && echo ready && exec "$@"' \
    keeper "$tree/vexa_demo" 50 >"$tree/ready" &
keeper=$!
for _ in $(seq 500); do
    read -r name <"/proc/$keeper/comm"
    [[ ! -s $tree/ready || $name != vexa_demo ]] || break
    sleep 0.01
done
echo "$keeper" >"$tree/build-release/demo.pid"

cd "$tree/elsewhere"
answer=$("$tree/scripts/demo" --enter ip -brief address show dev lo)
[[ $answer == *192.168.1.1/24* ]] || fail "inside, the loopback device has: $answer"
answer=$("$tree/scripts/demo" --enter vexa)
[[ $answer == "vexa stands in $tree/elsewhere" ]] || fail "the program said: $answer"
echo 'entered'
