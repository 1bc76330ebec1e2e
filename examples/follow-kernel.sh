#!/bin/bash
# Follow the kernel in a network namespace: makes a private namespace with a
# veth pair, a neighbour, IP-in-IP nexthops, a weighted nexthop group, a
# blackhole group and routes; starts `l3tunnel agent` there, shows what it
# programmed, changes the kernel once and shows the groups again.
#
#   sudo examples/follow-kernel.sh [PATH/TO/l3tunnel]
#
# Needs root (for the namespace) and iproute2. Everything goes with the
# namespace when the script ends.
set -euo pipefail

here=$(cd "$(dirname "$0")" && pwd)
program=${1:-${L3TUNNEL:-$here/../build/tools/l3tunnel/l3tunnel}}
if [ ! -x "$program" ]; then
   echo "follow-kernel: no l3tunnel at $program (run ./setup.sh first, or pass its path)" >&2
   exit 2
fi
program=$(cd "$(dirname "$program")" && pwd)/$(basename "$program")

if [ "${FOLLOW_KERNEL_INSIDE:-}" != 1 ]; then
   if [ "$(id -u)" != 0 ]; then
      echo "follow-kernel: needs root to make a network namespace (try sudo)" >&2
      exit 2
   fi
   export FOLLOW_KERNEL_INSIDE=1
   exec unshare -n "$0" "$program"
fi

state=$(mktemp -d /tmp/l3tunnel-follow-XXXXXX)
agent=
cleanup() {
   [ -n "$agent" ] && kill "$agent" 2>/dev/null && wait "$agent" 2>/dev/null
   rm -rf "$state"
}
trap cleanup EXIT

ip link set lo up
ip link add veth0 type veth peer name veth1
ip link set veth0 up
ip link set veth1 up
for _ in $(seq 100); do ip link show veth0 | grep -q LOWER_UP && break; sleep 0.02; done
ip addr add 172.16.0.1/24 dev veth0
ip neigh add 172.16.0.2 lladdr 02:00:00:00:00:02 dev veth0 nud permanent
ip nexthop add id 1 encap ip src 192.0.2.1 dst 198.51.100.1 ttl 64 via 172.16.0.2 dev veth0
ip nexthop add id 2 encap ip src 192.0.2.1 dst 198.51.100.2 ttl 64 via 172.16.0.2 dev veth0
ip nexthop add id 3 blackhole
ip nexthop add id 100 group 1,2/2,1
ip nexthop add id 101 group 3
ip route add 10.1.0.0/16 nhid 100
ip route add 10.2.0.0/16 \
   nexthop encap ip src 192.0.2.1 dst 198.51.100.3 via 172.16.0.2 dev veth0 weight 3 \
   nexthop encap ip src 192.0.2.1 dst 198.51.100.1 via 172.16.0.2 dev veth0

"$program" agent --state-dir "$state" &
agent=$!
for _ in $(seq 200); do
   "$program" show --socket "$state/agent.sock" usage >/dev/null 2>&1 && break
   sleep 0.02
done

echo "== the agent's tables"
"$program" show --socket "$state/agent.sock" tables
echo "== the agent's groups"
"$program" show --socket "$state/agent.sock" groups

echo "== after: ip nexthop del id 2 (the kernel drops it from group 100)"
ip nexthop del id 2
sleep 0.2
"$program" show --socket "$state/agent.sock" groups
