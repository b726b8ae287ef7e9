"""Counts the instructions, allocations, system calls and memory of requests, without a front
server."""
import collections
import re
import subprocess

from pages import FORM_TYPE

# Requests of two runs: their difference has the requests alone, without start and stop.
FEW, MANY = 200, 1200


# A line of callgrind_annotate: instructions, source file, function, and perhaps the library.
FUNCTION = re.compile(r"^ *([\d,]+) +[^:\n]*:(.+?)(?: \[(/[^\]\n]*)\])?$", re.M)


class Counter:
    def __init__(self, folder):
        self.folder = folder
        self.started = 0

    def fresh(self):
        self.started += 1
        return self.folder / str(self.started)

    def serve(self, program, query, body, times, prefix=(), content_type=FORM_TYPE):
        with program.start(self.fresh(), prefix) as backend:
            data = backend.request(query, cookie=backend.sign_in(), body=body,
                                   content_type=content_type)
            backend.send_repeatedly(data, times)

    @staticmethod
    def per_request(count):
        """Returns the numbers of one request; `count` counts them over a whole run."""
        few, many = count(FEW), count(MANY)
        return {name: (many[name] - few.get(name, 0)) / (MANY - FEW) for name in many}

    def instructions(self, program, query, body=None):
        """Returns the instructions of a request in all processes of the program."""
        return self.per_request(
            lambda times: {"": sum(map(total_of, self.profiles(program, query, body, times)))})[""]

    def profiles(self, program, query, body, times):
        """Returns the files that callgrind writes for each process."""
        out = self.fresh()
        self.serve(program, query, body, times,
                   ["valgrind", "-q", "--tool=callgrind", f"--callgrind-out-file={out}.%p"])
        return list(out.parent.glob(f"{out.name}.*"))

    def instructions_by_function(self, program, query, body=None):
        """Returns the instructions of each (library, function) in a request."""
        return self.per_request(
            lambda times: functions_of(self.profiles(program, query, body, times)[0]))

    def allocations(self, make, counter, query, body=None, content_type=FORM_TYPE):
        """Returns the number of allocations and the sum of their bytes; `counter` is the library
        that counts them, and `make` makes the program."""
        def count(times):
            out = self.fresh()
            self.serve(make(environment={"LD_PRELOAD": str(counter), "ALLOCATIONS": str(out)}),
                       query, body, times, content_type=content_type)
            return dict(zip(("number", "bytes"), map(int, out.read_text().split())))
        return tuple(self.per_request(count).values())

    def system_calls(self, program, query, body=None):
        def count(times):
            out = self.fresh()
            self.serve(program, query, body, times, ["strace", "-f", "-qq", "-c", "-o", str(out)])
            return {"": int(re.search(r" (\d+) +(?:\d+ +)?total$", out.read_text(), re.M).group(1))}
        return self.per_request(count)[""]


def total_of(profile):
    return int(re.search(r"^(?:summary|totals): (\d+)", profile.read_text(), re.M).group(1))


def functions_of(profile):
    """Returns the instructions of each (library, function) in callgrind's file."""
    text = subprocess.run(["callgrind_annotate", "--threshold=100", "--show-percs=no",
                           "--auto=no", profile], check=True, capture_output=True,
                          text=True).stdout
    lines = [(int(number.replace(",", "")), short_name(name), library.rpartition("/")[2])
             for number, name, library in FUNCTION.findall(text)]
    # What was inlined into a function has a line of its own, without the library.
    libraries = {name: library for _, name, library in lines if library}
    counts = collections.Counter()
    for number, name, library in lines:
        counts[library or libraries.get(name, "?"), name] += number
    return counts


def short_name(name):
    """Returns the name of a C++ function without parameters and template arguments."""
    name = re.sub(r" \[clone .*|'\d+$", "", name).replace("(anonymous namespace)::", "")
    depth, kept = 0, ""
    for letter in name:
        depth += letter == "<"
        if not depth:
            kept += letter
        depth -= letter == ">" and depth > 0
    kept = kept.partition("(")[0]
    return kept if "operator" in kept else kept.split(" ")[-1]
