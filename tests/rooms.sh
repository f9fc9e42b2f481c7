#!/bin/sh
# The rooms of the emulated chassis, with the rooms that each may include.
cd "$(dirname "$0")/../chassis" || exit 2
status=0
while read -r room may; do
    if ! [ -d "$room" ] || grep -rn '#include "chassis/' "$room" | grep -vE "\"chassis/($may)/"; then
        echo "chassis/$room stands on: $may"
        status=1
    fi
done <<END
bus bus
trap trap
board board|bus|trap
file file|bus
launch launch|board|file|bus|trap
END
exit $status
