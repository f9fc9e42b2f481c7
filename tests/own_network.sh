#!/bin/sh
# own_network.sh COMMAND...: becomes the command, as the same user, in a network of its own: a loopback
# where each port is free. Exits with 77, for CTest a skipped test, where that cannot be had and TCP port
# 1971 is taken.
set -eu
PATH=/usr/local/bin:/usr/bin:/bin:/usr/sbin:/sbin
if [ -n "${Q5_OWN_NETWORK-}" ]; then
    exec "$@"
fi
export PATH Q5_OWN_NETWORK=1
if unshare --net ip link set lo up 2>/dev/null; then
    exec unshare --net sh -c 'ip link set lo up && exec "$@"' sh "$@"
elif unshare --map-current-user --keep-caps --net ip link set lo up 2>/dev/null; then
    exec unshare --map-current-user --keep-caps --net sh -c 'ip link set lo up &&
        exec setpriv --inh-caps -all --ambient-caps -all "$@"' sh "$@"
fi
# One test after the other, on the machine's own loopback.
exec 9<"$0"
flock 9
case " $* " in
*" --gtest_list_tests "*) ;;
*)
    if grep -q ':07B3 00000000:0000 0A' /proc/net/tcp; then
        echo "skipped: this machine forbids network namespaces, and TCP port 1971 is taken" >&2
        exit 77
    fi
    ;;
esac
exec "$@"
