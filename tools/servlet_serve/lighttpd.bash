# shellcheck shell=bash
# Runs lighttpd and the daemon until a signal arrives. Sourced by scripts/serve for the phone's pages.
#
# Export before: DAEMON (the program), DAEMON_PID (the file for its process id), STATE_DIR (a folder
# whose path is short and contains no blanks) and the other variables of lighttpd-spawn.conf.

stopping= # whether a signal has arrived
lighttpd= # its process id

# start_lighttpd CONFIGURATION: starts lighttpd; a signal to this script stops it.
start_lighttpd() {
    # A link, since lighttpd would split a path at its blanks. setpriv: if lighttpd is killed, the
    # kernel stops the daemon.
    ln -s "$(dirname "${BASH_SOURCE[0]}")/keep_daemon" "$STATE_DIR/daemon"
    FCGI_HOST="$(command -v setpriv) --pdeathsig TERM $STATE_DIR/daemon"
    export FCGI_HOST
    trap stop_lighttpd INT TERM HUP
    # setsid: Ctrl-C reaches every process in the terminal's foreground, so the daemon would get it
    # and then a second signal from lighttpd. setpriv: if this script is killed, the kernel stops
    # lighttpd.
    setpriv --pdeathsig TERM setsid lighttpd -D -f "$1" &
    lighttpd=$!
    [ -z "$stopping" ] || stop_lighttpd
}

stop_lighttpd() {
    stopping=yes
    [ -z "$lighttpd" ] || kill -TERM "$lighttpd" 2>/dev/null || true
}

# Waits until lighttpd has ended. Returns its exit status, or 0 when a signal has ended it.
wait_for_lighttpd() {
    local status=0
    wait "$lighttpd" || status=$?
    while kill -0 "$lighttpd" 2>/dev/null; do # a signal interrupts wait
        status=0
        wait "$lighttpd" || status=$?
    done
    [ -n "$stopping" ] || return "$status"
}
