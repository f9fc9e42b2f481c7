# Sourced by ./demo, ./check and their like: packages they need, and steps that say more only when they
# fail.

# need PACKAGE...: installs what is missing, with apt.
need () {
    missing=
    for package in "$@"; do
        case $(dpkg-query -W -f '${db:Status-Status}' "$package" 2>/dev/null) in
        installed) ;;
        *) missing="$missing $package" ;;
        esac
    done
    [ -z "$missing" ] && return 0
    as_root=
    [ "$(id -u)" -eq 0 ] || as_root=sudo
    step "install$missing" install_packages
}

install_packages () {
    $as_root apt-get update &&
        $as_root env DEBIAN_FRONTEND=noninteractive apt-get install -y --no-install-recommends $missing
}

# step TITLE COMMAND...: runs the command with its output in a log; on failure shows the log's end.
step () {
    title=$1
    shift
    printf '%s: %s\n' "$name" "$title"
    if ! "$@" >"$log" 2>&1 </dev/null; then
        tail -n 60 "$log" >&2
        printf '%s: failed: %s\n' "$name" "$title" >&2
        exit 1
    fi
}
