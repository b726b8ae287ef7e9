"""The packages are removed from the phone; this must be the last test, since all share the phone."""


def test_a_purge_leaves_nothing_but_the_daemons_user(phone, console):
    console.output("dpkg --purge fcgiserver-phone fcgiserver")
    assert console.run("pidof fcgi_host")[0] == ""
    left, _ = console.run(
        "find / -xdev \\( -iname '*fcgiserver*' -o -name '*fcgi_host*' -o -path '/phone*' \\); "
        "find /run -name '*fcgi_host*'")
    assert left == ""
    active, _ = console.run("systemctl is-active fcgi_host.socket fcgi_host.service")
    assert active.split() == ["inactive", "inactive"]
    assert not phone.answers()
    assert console.output("grep -c ^_fcgihost: /etc/passwd") == "1"
