"""Uploads of the size of a firmware image, and failing uploads."""

import filecmp
import os
import re

import pytest

from service import wait_until

MIB = 1 << 20


@pytest.fixture(scope="module")
def image(tmp_path_factory):
    """64 MiB, each different from the next."""
    path = tmp_path_factory.mktemp("image") / "firmware.bin"
    with path.open("wb") as file:
        for _ in range(64):
            file.write(os.urandom(MIB))
    return path


def upload(front, path, *options):
    return front.curl("/servlet?p=upload", "--form", f"image=@{path}", "--form", "note=new", *options)


def test_an_image_of_64_mib_arrives_in_memory_that_does_not_grow(start, front, folder, image, build):
    host = start.host("--listen", start.socket_path, "--threads", "1")
    small = folder / "small.bin"
    small.write_bytes(os.urandom(MIB))
    for _ in range(2):
        assert upload(front, small).text == "complete small.bin, note new"
    peak, private = host.memory("VmHWM"), host.memory("RssAnon")

    assert upload(front, image).text == "complete firmware.bin, note new"

    grown = host.memory("VmHWM") - peak, host.memory("RssAnon") - private
    assert filecmp.cmp(folder / "uploads/image", image, shallow=False)
    assert os.listdir(folder / "uploads") == ["image"]
    # The sanitizers hold freed memory back for a while.
    if not build.sanitized:
        assert max(grown) < 256 * 1024, grown


def send_part_of_an_upload(front):
    """Sends half of an upload; returns the open connection."""
    announced = 8 * MIB
    connection = front.connect()
    head = (b"--cut\r\nContent-Disposition: form-data; name=\"image\"; filename=\"cut.bin\"\r\n"
            b"Content-Type: application/octet-stream\r\n\r\n")
    connection.sendall(b"POST /servlet?p=upload HTTP/1.1\r\nHost: phone\r\n"
                       b"Content-Type: multipart/form-data; boundary=cut\r\n"
                       + f"Content-Length: {announced}\r\n\r\n".encode()
                       + head + os.urandom(announced // 2))
    return connection


def test_an_upload_cut_off_half_way_leaves_nothing(start, front, folder):
    start.host("--listen", start.socket_path, "--threads", "1")
    uploads = folder / "uploads"
    connection = send_part_of_an_upload(front)
    wait_until(lambda: any(file.stat().st_size > MIB for file in uploads.iterdir()),
               "the upload arriving")
    assert not (uploads / "image").exists()
    connection.close()
    wait_until(lambda: os.listdir(uploads) == [], "the part being removed")
    assert front.curl("/servlet?p=facts").status == 200


def test_an_upload_cut_off_half_way_leaves_the_earlier_image(start, front, folder):
    start.host("--listen", start.socket_path, "--threads", "1")
    uploads = folder / "uploads"
    (uploads / "image").write_bytes(b"the earlier image")
    connection = send_part_of_an_upload(front)
    wait_until(lambda: len(os.listdir(uploads)) == 2, "the upload arriving")
    connection.close()
    wait_until(lambda: os.listdir(uploads) == ["image"], "the part being removed")
    assert (uploads / "image").read_bytes() == b"the earlier image"


def test_an_upload_to_a_full_disk_fails_and_leaves_nothing(start, front, folder):
    start.environment["WIRE_DISK_ROOM"] = str(2 * MIB)
    start.host("--listen", start.socket_path, "--threads", "1")
    large = folder / "large.bin"
    large.write_bytes(os.urandom(4 * MIB))
    assert re.fullmatch("incomplete -, note .*", upload(front, large).text)
    assert os.listdir(folder / "uploads") == []
    small = folder / "small.bin"
    small.write_bytes(os.urandom(MIB))
    assert upload(front, small).text == "complete small.bin, note new"


def test_an_upload_without_its_end_is_incomplete(web, folder):
    answer = web.curl("/servlet?p=upload", "--header",
                      "Content-Type: multipart/form-data; boundary=x", "--data-binary",
                      '--x\r\nContent-Disposition: form-data; name="image"; filename="a"\r\n\r\nabc')
    assert answer.text == "incomplete -, note -"
    assert os.listdir(folder / "uploads") == []


def test_a_client_cannot_choose_where_an_upload_goes(web, folder):
    small = folder / "small.bin"
    small.write_bytes(b"abc")
    answer = web.curl("/servlet?p=upload", "--form", f"image=@{small};filename=../../up.bin")
    assert answer.text == "complete up.bin, note -"
    assert os.listdir(folder / "uploads") == ["image"]
