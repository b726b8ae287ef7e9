"""A device's file tree, created by a test, and servlet_check's findings in it."""

import json
import os
import re
import subprocess

import elf

WEB_INFO = "/phone/www/WEB-INFO"
SERVLET_XML = WEB_INFO + "/servlet/servlet.xml"
LIBRARY = WEB_INFO + "/lib/libpages.so"


class Device:
    def __init__(self, program, root):
        self.program, self.root = program, root
        root.mkdir()

    def path(self, path):
        return self.root / path.lstrip("/")

    def put(self, path, contents):
        path = self.path(path)
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_bytes(contents if isinstance(contents, bytes) else contents.encode())
        return path

    def configure(self, *lines, path=LIBRARY):
        """Writes servlet.xml: the root element is line 1, `lines` begin at line 2."""
        return self.put(SERVLET_XML, "\n".join([f'<servlets path="{path}">', *lines, "</servlets>"]))

    def put_whole(self, *functions, machine=elf.ARM, bits=32, **options):
        """Writes a container, and a plug-in library with these creation functions."""
        def library():
            return elf.Elf(machine, bits, **options)

        self.put("/usr/lib/libfcgiServer.so", library().exports("session_mutex").bytes())
        self.put(LIBRARY, library().exports(*functions).bytes())

    def run(self, *arguments):
        # A crash must not look like a run without findings.
        ran = subprocess.run([str(self.program), "--root", str(self.root), *map(str, arguments)],
                             capture_output=True, text=True, errors="surrogateescape",
                             env=dict(os.environ, LC_ALL="C"), timeout=60)
        assert ran.returncode in (0, 1, 64, 66), ran.stderr
        return ran

    def findings(self, *arguments):
        """Returns (line, message) of each finding in servlet.xml; for other files (name, line, message)."""
        ran = self.run(*arguments)
        assert ran.stderr == ""
        found = []
        for text in ran.stdout.splitlines():
            file, line, message = re.fullmatch(r"(.+?):(\d+): (.*)", text).groups()
            name = file.rpartition("/")[2]
            found.append((int(line), message) if name == "servlet.xml"
                         else (name, int(line), message))
        assert ran.returncode == (1 if any("note: " not in entry[-1] for entry in found) else 0)
        return found

    def json(self, *arguments):
        return json.loads(self.run("--json", *arguments).stdout)

    def explain(self, url):
        ran = self.run("--explain", url)
        assert (ran.returncode, ran.stderr) == (0, "")
        first, *lines = ran.stdout.splitlines()
        return [first] + [re.sub(r"\(\S*/servlet\.xml:", "(", line).strip() for line in lines]
