# shellcheck shell=bash
# Runs lighttpd, and through it the daemon, until a signal; for scripts/serve and servlet_serve.
#
# DAEMON (the program), DAEMON_PID (the file that names its process) and STATE_DIR (a folder with a
# short path without blanks) must be exported; so must be what lighttpd-spawn.conf reads, but for
# FCGI_HOST.

stopping= # whether a signal has arrived
lighttpd= # its process id

# start_lighttpd CONFIGURATION: starts it with CONFIGURATION, to be ended by a signal to this script.
start_lighttpd() {
    # A link, since lighttpd would split a path at its blanks.
    export FCGI_HOST=$STATE_DIR/daemon
    ln -s "$(dirname "${BASH_SOURCE[0]}")/keep_daemon" "$FCGI_HOST"
    trap stop_lighttpd INT TERM HUP
    # In a session of its own, since Ctrl-C goes to each process in the terminal's foreground: the
    # daemon would get it too, and then a second signal from lighttpd. The kernel ends lighttpd when
    # this script is killed.
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
