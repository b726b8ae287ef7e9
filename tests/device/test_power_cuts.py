"""A phone whose power is cut while it saves a setting: its file is whole, and contains the setting if the
browser had been told so.

The phone that all tests share is recorded once, and each cut begins with that record. The disk is then
read on this machine after its journal has been replayed, as the phone does when it is switched on."""

import http.client
import subprocess
import threading
import time
import urllib.parse
import xml.etree.ElementTree as xml
import zlib

import pytest

from conftest import Visitor
from ports import free_port
from test_device import AUDIO
from virtual_phone import COUNTING, VirtualPhone, second_disk

CUTS = 20
STATE, CHANGES = "/phone/data/state.xml", "/phone/data/changes.xml"
OLD, NEW = 3, 8


class Saving(threading.Thread):
    """A browser that sends the volume NEW."""

    def __init__(self, visitor):
        super().__init__()
        self.visitor = visitor
        self.form = urllib.parse.urlencode({**AUDIO, "speakerVolume": NEW, "token": visitor.token("audio")})
        self.is_answered = False
        self.seconds = None

    def run(self):
        begin = time.monotonic()
        try:
            status, _, _ = self.visitor.send("POST", "/servlet?p=audio&q=save", self.form)
            self.is_answered = status == 303
        except (OSError, http.client.HTTPException):
            pass  # the power is cut
        self.seconds = time.monotonic() - begin


class Recorded:
    """A phone that was recorded while its owner was signed in."""

    def __init__(self, phone, owner, image, newer, folder):
        self.memory, self.disk = folder / "memory", folder / "disk"
        self.cookies = dict(owner.cookies)
        self.machine = VirtualPhone(image, free_port(), options=(*COUNTING, *second_disk(newer)))
        phone.record(self.memory, self.disk)

    def save_and_cut(self, seconds):
        """Cuts the power so long after a browser has begun to save, or after it was answered; returns
        the browser."""
        self.machine.resume(self.memory, self.disk)
        visitor = Visitor(self.machine.port)
        visitor.cookies = dict(self.cookies)
        saving = Saving(visitor)
        saving.start()
        if seconds is None:
            saving.join()
        else:
            time.sleep(seconds)
        is_answered = saving.is_answered  # an answer after this moment is none
        self.machine.cut_power()
        saving.join()
        saving.is_answered = is_answered
        return saving

    def state(self):
        """Returns the saved state as the phone would find it when it is switched on."""
        subprocess.run(["e2fsck", "-p", self.machine.disk], check=False, stdout=subprocess.DEVNULL)
        # Nothing is left to be repaired then.
        subprocess.run(["e2fsck", "-fn", self.machine.disk], check=True, stdout=subprocess.DEVNULL,
                       stderr=subprocess.DEVNULL)
        text = self.read(STATE)
        state = xml.fromstring(text)
        changes = self.read(CHANGES)
        if changes:
            changes = xml.fromstring(changes)
            assert int(changes.findtext("checksumOfState")) == zlib.crc32(text)
            for volume in changes.iter("speakerVolume"):
                state.find(".//speakerVolume").text = volume.text
        return state

    def read(self, path):
        return subprocess.run(["debugfs", "-R", f"cat {path}", self.machine.disk], check=True,
                              stdout=subprocess.PIPE, stderr=subprocess.DEVNULL).stdout


@pytest.fixture(scope="module")
def recorded(phone, owner, image, newer, tmp_path_factory):
    assert owner.post("audio", "save", **AUDIO, speakerVolume=OLD)[0] == 303
    record = Recorded(phone, owner, image, newer, tmp_path_factory.mktemp("record"))
    yield record
    record.machine.remove()


def volume(state):
    return int(state.find(".//speakerVolume").text)


def test_what_was_answered_survives_a_power_cut_and_what_was_not_is_whole(recorded, measured):
    whole = recorded.save_and_cut(None)
    saved = recorded.state()
    assert whole.is_answered and volume(saved) == NEW
    contacts = len(saved.findall("contact"))
    assert contacts > 0
    outcomes = []
    for number in range(CUTS):
        # Up to a little after the usual answer.
        saving = recorded.save_and_cut(whole.seconds * 1.2 * number / (CUTS - 1))
        state = recorded.state()
        assert len(state.findall("contact")) == contacts
        assert volume(state) in ((NEW,) if saving.is_answered else (OLD, NEW))
        outcomes.append((saving.is_answered, volume(state)))
    measured.append(f"{CUTS} power cuts: {sum(answered for answered, _ in outcomes)} after the answer, "
                    f"{sum(state == OLD for _, state in outcomes)} leave the old setting")
    # Otherwise no cut was made during the save.
    assert (False, OLD) in outcomes


def test_a_phone_starts_after_a_power_cut(recorded):
    recorded.save_and_cut(None)
    recorded.machine.start()
    recorded.machine.wait_until_it_answers()
