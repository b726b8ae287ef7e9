"""The requests to the pages of requests/plugin.cpp: queries, bodies and content types."""

PAGE = "p=page&x=1"
TEMPLATE = "p=template"
FORM = "&".join(f"field{i}=value+{i}%21" for i in range(10))
FORM_TYPE = "application/x-www-form-urlencoded"
UPLOAD_TYPE = "multipart/form-data; boundary=frontier"


def upload_of(content):
    """Returns the body of an upload of one file."""
    return (b"--frontier\r\nContent-Disposition: form-data; name=\"file\"; filename=\"image\"\r\n"
            b"Content-Type: application/octet-stream\r\n\r\n" + content + b"\r\n--frontier--\r\n")
