# What the scenarios share; sourced in the machine, as root, in root's home.
set -u

fail () {
    echo "FAILED: $*"
    systemctl --no-pager --lines=0 status q5_scand 2>&1 | head -n 12
    journalctl --no-pager -n 12 -o short-monotonic
    exit 1
}

# within SECONDS COMMAND...: until the command succeeds; an emulated machine on a busy host gets four
# times as long.
within () {
    local end=$((SECONDS + 4 * $1))
    until "${@:2}" >/dev/null 2>&1; do
        [ $SECONDS -lt $end ] || fail "not within $1 s: ${*:2}"
        sleep 0.2
    done
}

is () { [ "$("${@:2}" 2>/dev/null)" = "$1" ]; }
state () { systemctl show --property=ActiveState --value "${1-q5_scand}"; }
main_pid () { systemctl show --property=MainPID --value "${1-q5_scand}"; }
# kill_main SIGNAL [UNIT]: a process 0 would be ourselves.
kill_main () {
    local pid=$(main_pid "${2-q5_scand}")
    [ "${pid:-0}" -gt 0 ] || fail "${2-q5_scand} does not run"
    kill "-$1" "$pid"
}
failed () { systemctl --failed --no-legend --plain | grep -q "^$1"; }

# A command that touches no register; the daemon answers it if it serves.
serves () { timeout 40 q5_scan --id 7 release >/dev/null 2>&1; }
runs () { within "${1-15}" is active state && within 10 serves; }

# The device is a program in user space.
device_comes () { systemctl reset-failed scanp 2>/dev/null; systemd-run -q --unit=scanp -p Restart=no ~/scanp -f; }
device_goes () { systemctl stop scanp; within 5 test ! -e /dev/scanp; }

# send HEX...: these bytes to port 1971 of this machine, in a connection of their own.
send () { (exec 3<>/dev/tcp/127.0.0.1/1971 && printf '%b' "$(echo "$*" | tr -d ' ' | sed 's/../\\x&/g')" >&3; timeout 5 cat <&3) 2>/dev/null; }
refused_batch='00000002 00000000'

# send_many TIMES: the refused batch, again and again.
send_many () {
    python3 - "$1" <<'P' || fail "the daemon does not take $1 refused batches"
import socket, sys
for _ in range (int (sys.argv[1])):
    with socket.create_connection (("127.0.0.1", 1971), timeout=60) as s:
        s.sendall (bytes.fromhex ("0000000200000000"))
        try:
            s.recv (1)
        except ConnectionResetError:
            pass
P
}
