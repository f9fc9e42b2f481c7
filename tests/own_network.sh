#!/bin/sh
# own_network.sh COMMAND...: becomes the command, in a network of its own: a loopback where each port is
# free. The user stays the one who started it.
set -eu
if [ -n "${Q5_OWN_NETWORK-}" ]; then
    exec "$@"
fi
export Q5_OWN_NETWORK=1
if unshare --net true 2>/dev/null; then
    exec unshare --net sh -c 'ip link set lo up && exec "$@"' sh "$@"
elif unshare --map-current-user --net true 2>/dev/null; then
    exec unshare --map-current-user --keep-caps --net sh -c 'ip link set lo up &&
        exec setpriv --inh-caps -all --ambient-caps -all "$@"' sh "$@"
fi
echo "This machine gives a test no network of its own: it waits for its turn, and TCP port 1971 must be free." >&2
exec flock "$0" "$@"
