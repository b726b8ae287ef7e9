"""Bodies and their headers, each with the answers of lighttpd, nginx and Apache; an omitted answer
equals the one before it."""

from raw_http import FORM, PAGE, PLAIN, chunked, get, post, raw

LENGTHS = [(f"length {text!r}", post(f"Content-Length: {text}"), *expected)
           for text, *expected in (
    ("3", "200 x=y"), ("03", "200 x=y"), (" 3 ", "200 x=y"), ("2147483648", "413"),
    ("", "411", "400"))] + [
    (f"length {text!r}", post(f"Content-Length: {text}"), "400") for text in (
        "+3", "+5", "-1", "3abc", "0x3", "3.0", "3,3", "3 3", "1e1", "a", "9" * 19, "9" * 20,
        "9" * 40)] + [
    ("no length", post(), "411", "200"),
    ("the same length twice", post("Content-Length: 3", "Content-Length: 3"), "400"),
    ("two lengths", post("Content-Length: 3", "Content-Length: 4"), "400"),
    ("two lengths, the longer first", post("Content-Length: 4", "Content-Length: 3"), "400"),
    ("a length and chunks", chunked(b"3\r\nx=y\r\n0\r\n\r\n", "Content-Length: 3"), "400",
     "400", "411"),
    ("a length of no body with a GET", get(PAGE, "Content-Length: 0"), "200 x=y"),
    ("a body with a GET", get(PAGE, "Content-Length: 3") + b"x=y", "400", "200 x=y"),
    ("more body than its length", post("Content-Length: 3", body=b"x=yGARBAGE"), "200 x=y"),
    ("a line end for a body", post("Content-Length: 2", body=b"\r\n"), "200"),
    ("a form of 64 KiB", post("Content-Length: 65536", body=b"x=y&z=" + b"z" * 65530), "200 x=y"),
    ("a form of more than 64 KiB", post("Content-Length: 65537", body=b""), "413"),
    ("a form of more than 1 MiB", post("Content-Length: 1200000", body=b""), "413"),
]

WITHOUT_LENGTH = [
    ("chunks", chunked(b"1\r\nx\r\n2\r\n=y\r\n0\r\n\r\n"), "200 x=y"),
    ("chunks of capitals", chunked(b"0A\r\nx=abcdefgh\r\n0\r\n\r\n"), "200 x=abcdefgh"),
    ("a chunk with an extension", chunked(b"3;a=b\r\nx=y\r\n0\r\n\r\n"), "200 x=y"),
    ("chunks and trailers", chunked(b"3\r\nx=y\r\n0\r\nX-One: one\r\n\r\n"), "200 x=y"),
    ("no chunk but the last", chunked(b"0\r\n\r\n"), "200"),
    ("a size that is none", chunked(b"zz\r\nx=y\r\n0\r\n\r\n"), "400"),
    ("an empty size", chunked(b"\r\nx=y\r\n0\r\n\r\n"), "400"),
    ("a negative size", chunked(b"-3\r\nx=y\r\n0\r\n\r\n"), "400"),
    ("a size with a sign", chunked(b"+3\r\nx=y\r\n0\r\n\r\n"), "400"),
    ("a size with 0x", chunked(b"0x3\r\nx=y\r\n0\r\n\r\n"), "400"),
    ("a size of 16 digits", chunked(b"ffffffffffffffff\r\nx=y\r\n0\r\n\r\n"), "400"),
    ("a size of 17 digits", chunked(b"10000000000000003\r\nx=y\r\n0\r\n\r\n"), "400"),
    ("a size with zeros", chunked(b"0000000000000003\r\nx=y\r\n0\r\n\r\n"), "200 x=y"),
    ("a chunk longer than its size", chunked(b"2\r\nx=y\r\n0\r\n\r\n"), "400"),
    ("a chunk without a line end", chunked(b"3\r\nx=y0\r\n\r\n"), "400"),
    ("chunks with line feeds alone", chunked(b"3\nx=y\n0\n\n"), "400", "200 x=y"),
    ("a control byte in an extension", chunked(b"3;\x1b\r\nx=y\r\n0\r\n\r\n"), "200 x=y"),
    ("chunked twice", post("Transfer-Encoding: chunked, chunked",
                           body=b"3\r\nx=y\r\n0\r\n\r\n"), "501"),
    ("two codings", post("Transfer-Encoding: gzip, chunked", body=b"3\r\nx=y\r\n0\r\n\r\n"), "501"),
    ("chunks over HTTP/1.0", raw(f"POST {PLAIN} HTTP/1.0", f"Content-Type: {FORM}",
                                 "Transfer-Encoding: chunked", body=b"3\r\nx=y\r\n0\r\n\r\n"),
     "400"),
]

# Apache forwards no body of unknown length, since it could not enforce its limit.
CHUNKS = [(name, data, lighttpd, nginx[0] if nginx else lighttpd, "411")
          for name, data, lighttpd, *nginx in WITHOUT_LENGTH] + [
    ("another coding", post("Transfer-Encoding: gzip"), "501", "501", "400"),
    ("a coding that is none", post("Transfer-Encoding: xchunked", body=b"3\r\nx=y\r\n0\r\n\r\n"),
     "501", "501", "400"),
    ("an identity", post("Transfer-Encoding: identity", "Content-Length: 3"), "501", "501",
     "400"),
]

OPEN = f"GET {PAGE} HTTP/1.1\r\nHost: phone\r\n\r\n".encode()


def kept(request):
    return request.replace(b"Connection: close\r\n", b"")


PIPELINES = [
    ("two requests at once", OPEN + get(f"{PLAIN}&x=z"), "200 x=y, 200 x=z"),
    ("twenty requests at once", OPEN * 19 + get(f"{PLAIN}&x=z"),
     ", ".join(["200 x=y"] * 19 + ["200 x=z"])),
    ("a bad one behind a good one", OPEN + b"\0\r\n\r\n", "200 x=y, 400"),
    ("a good one behind a bad one", b"\0\r\n\r\n" + get(), "400"),
    ("a good one behind the last one", get() + get(), "200 x=y"),
    ("one behind a form", kept(post("Content-Length: 3")) + get(), "200 x=y, 200 x=y"),
    ("one behind chunks", kept(chunked(b"3\r\nx=y\r\n0\r\n\r\n")) + get(), "200 x=y, 200 x=y",
     "200 x=y, 200 x=y", "411"),
    ("one behind bad chunks", kept(chunked(b"3\r\nx=yz\r\n0\r\n\r\n")) + get(), "400",
     "400", "411"),
    ("one that is a body", kept(post(f"Content-Length: {len(OPEN)}", body=OPEN)) + get(),
     "200 x=y HTTP/1.1\\r, 200 x=y"),
    ("one behind too long a body", kept(post("Content-Length: 3", body=b"x=yz")) + get(),
     "200 x=y, 501", "200 x=y, 400", "200 x=y, 501"),
    ("one behind a body without a length", kept(post(body=b"")) + get(), "411", "200, 200 x=y"),
    ("one behind a form that is too long", kept(post("Content-Length: 1200000")) + get(), "413"),
    ("line ends between", OPEN + b"\r\n\r\n" + get(), "200 x=y, 400", "200 x=y, 200 x=y"),
    ("one behind HTTP/1.0", raw(f"GET {PAGE} HTTP/1.0") + get(), "200 x=y"),
]
