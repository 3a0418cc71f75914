#!/usr/bin/env bash
# The first bus of the README: two nodes, one written in C and one in C++, and the node manager, in a private
# network. Each node must have heard the other. Arguments: the programs vexa, hello_node, hello_node_cpp.
set -euo pipefail

if [[ -z ${VEXAMSG_TEST_NETNS:-} ]]; then
    exec unshare -rn env VEXAMSG_TEST_NETNS=1 "$0" "$@"
fi
ip link set lo up
ip address add 192.168.1.1/24 dev lo

out=$(mktemp -d)
trap 'kill "$manager" 2>/dev/null || true; rm -rf "$out"' EXIT
"$1" manager >"$out/manager" 2>&1 &
manager=$!
"$2" 5 3 >"$out/c" 2>"$out/c.log" &
c=$!
"$3" 3 5 >"$out/cpp" 2>"$out/cpp.log" &
cpp=$!
wait "$c"
wait "$cpp"

heard() {
    grep -q "^$2\$" "$out/$1" && return
    echo "\"$2\" was not heard; what was written:"
    tail -n +1 "$out"/*
    exit 1
}
heard c 'node 3 says hello'
heard cpp 'node 5 says hello'
echo 'each node has heard the other'
