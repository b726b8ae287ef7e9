"""Headers, each with the answers of lighttpd, nginx and Apache; an omitted answer equals the one
before it."""

from raw_http import FORM, PAGE, PLAIN, get, post, raw

HEADERS = [
    ("a header without a colon", get(PAGE, "X-One"), "400", "200 x=y", "400"),
    ("a header without a name", get(PAGE, ": one"), "400"),
    ("a blank before the colon", get(PAGE, "X-One : one"), "400"),
    ("a blank within a name", get(PAGE, "X One: one"), "400"),
    ("a header that goes on in the next line", get(PAGE, "X-One: one\r\n two"), "200 x=y", "400",
     "200 x=y"),
    ("a blank before the first header", raw(f"GET {PAGE} HTTP/1.1", " X-One: one", "Host: phone"),
     "400"),
    ("a header without a value", get(PAGE, "X-One:"), "200 x=y"),
    ("an underscore in a name", get(PAGE, "X_One: one"), "200 x=y"),
    ("signs in a name", get(PAGE, "X-\"()<>@: one"), "400", "200 x=y", "400"),
    ("a header of 4,000 bytes", get(PAGE, "X-One: " + "x" * 4000), "200 x=y"),
    ("a header of 10,000 bytes", get(PAGE, "X-One: " + "x" * 10000), "431", "400"),
    ("a header of 100,000 bytes", get(PAGE, "X-One: " + "x" * 100000), "431", "400"),
    ("a name of 5,000 bytes", get(PAGE, "X" * 5000 + ": one"), "200 x=y"),
    ("200 headers", get(PAGE, *(f"X-{i}: one" for i in range(200))), "200 x=y", "200 x=y", "400"),
    ("20,000 headers", get(PAGE, *(f"X-{i}: one" for i in range(20000))), "431", "400"),
    ("two hosts", get(PAGE, "Host: elsewhere"), "400"),
    ("the same host twice", get(PAGE, "Host: phone"), "200 x=y", "400"),
    ("an empty host", get(host="Host:"), "400"),
    ("a host with signs", get(host="Host: ph<o>ne"), "400", "200 x=y", "400"),
    ("a host with a path", get(host="Host: phone/x"), "400"),
    ("a host with a blank", get(host="Host: ph one"), "400"),
    ("a host with a bad port", get(host="Host: phone:99999999"), "400", "200 x=y", "400"),
    ("a host with a name and a password", get(host="Host: u:p@phone"), "400", "200 x=y", "400"),
    ("an expectation", post("Content-Length: 3", "Expect: 100-continue"),
     "200 x=y", "100, 200 x=y", "200 x=y"),
    ("another expectation", post("Content-Length: 3", "Expect: wonders"), "200 x=y",
     "200 x=y", "417"),
    ("an upgrade", get(PAGE, "Upgrade: h2c", "HTTP2-Settings: AAMAAABk"), "200 x=y"),
    ("an upgrade to a web socket", get(PAGE, "Upgrade: websocket"), "200 x=y"),
    ("a range", get(PAGE, "Range: bytes=0-4"), "206", "200 x=y"),
    ("a connection of a name of its own", get(PAGE, "Connection: HTTP_COOKIE, x"), "200 x=y"),
    ("a language with line ends within", get(PAGE, "Accept-Language: de\r\n\ten"),
     "200 x=y", "400", "200 x=y"),
    ("two cookies", get(PAGE, "Cookie: JSESSIONID=one", "Cookie: JSESSIONID=two"),
     "200 session=one x=y", "200 session=one x=y", "200 session=one, JSESSIONID=two x=y"),
    ("two cookies, the session second", get(PAGE, "Cookie: a=b", "Cookie: JSESSIONID=two"),
     "200 session=two x=y", "200 x=y"),
    ("two cookies in one header", get(PAGE, "Cookie: JSESSIONID=one; JSESSIONID=two"),
     "200 session=one x=y"),
    ("two cookies with a comma", get(PAGE, "Cookie: JSESSIONID=one, JSESSIONID=two"),
     "200 session=one, JSESSIONID=two x=y"),
    ("a cookie of 63 bytes", get(PAGE, "Cookie: JSESSIONID=" + "1" * 63),
     "200 session=" + "1" * 63 + " x=y"),
    ("a cookie of 64 bytes", get(PAGE, "Cookie: JSESSIONID=" + "1" * 64), "200 x=y"),
    ("a cookie of nothing", get(PAGE, "Cookie: JSESSIONID="), "200 x=y"),
    ("an empty cookie header", get(PAGE, "Cookie:"), "200 x=y"),
    ("a cookie of signs", get(PAGE, "Cookie: ;;==;JSESSIONID=one;=;"), "200 session=one x=y"),
    ("a cookie with an escaped zero byte", get(PAGE, "Cookie: JSESSIONID=a%00b"), "200 x=y"),
    ("a cookie with escaped line ends", get(PAGE, "Cookie: JSESSIONID=a%0d%0ab"),
     "200 session=a\\r x=y"),
] + [(f"byte {byte:#04x} in a value", get(PAGE, f"Accept-Language: d{byte:c}e"), *expected)
     for byte, *expected in (
        (0, "400"), (1, "400", "200 x=y", "400"), (9, "200 x=y"), (10, "400", "200 x=y", "400"),
        (11, "400", "200 x=y", "400"), (13, "400"), (27, "400", "200 x=y", "400"),
        (127, "400", "200 x=y", "400"), (128, "200 x=y"), (255, "200 x=y"))] + [
    (f"byte {byte:#04x} in a name", get(PAGE, f"X-O{byte:c}ne: one"), *expected)
    for byte, *expected in (
        (0, "400"), (1, "400"), (9, "400"), (10, "400", "200 x=y", "400"), (11, "400"),
        (13, "400"), (27, "400"), (127, "400"), (128, "400", "200 x=y", "400"),
        (255, "400", "200 x=y", "400"))] + [
    (f"byte {byte:#04x} in a cookie", get(PAGE, f"Cookie: JSESSIONID=a{byte:c}b"), *expected)
    for byte, *expected in (
        (0, "400"), (1, "400", "200 session=a\\x01b x=y", "400"), (13, "400"),
        (27, "400", "200 session=a\\x1bb x=y", "400"),
        (127, "400", "200 session=a\\x7fb x=y", "400"),
        (255, "200 session=a\\xffb x=y"))] + [
    (f"byte {byte:#04x} in the content type",
     post("Content-Length: 3", content_type=f"{FORM}{byte:c}"), *expected)
    for byte, *expected in ((0, "400"), (1, "400", "200", "400"), (27, "400", "200", "400"),
                            (127, "400", "200", "400"))]
