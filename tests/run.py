"""Runs the steps of scripts/test. Each step starts when those that it needs have passed, and when no
other step of its lane runs: so the tests of one preset run while the next one is compiled."""

import argparse
import dataclasses
import json
import os
import pathlib
import re
import shutil
import subprocess
import sys
import threading
import time

HERE = pathlib.Path(__file__).resolve().parent
ROOT = HERE.parent
RESULTS = ROOT / "build/results"
sys.path.append(str(HERE / "support"))
from ports import free_port

PYTEST = ["/usr/bin/python3", "-m", "pytest", "-q", "-p", "no:cacheprovider"]
CORES = os.cpu_count()
# More than cores, since wire tests mostly wait.
WIRE_JOBS = 3 * CORES

# The programs whose tests use several threads.
WITH_THREADS = [
    "fcgi_server_test", "http_session_test", "host_tests", "kit_attempt_limit_test", "kit_test",
    "listener_container_test", "log_test", "phone_model_test", "phone_pages_test",
    "servlet_container_test", "session_factory_test", "testkit_test", "tmpl_test"]
HOSTILE = ["test_bad_clients.py", "test_bad_front_server.py", "test_bad_lengths.py",
           "test_bad_variables.py", "test_unread_bodies.py", "test_uploads.py"]


@dataclasses.dataclass
class Step:
    name: str
    lane: str  # steps of one lane run one after the other
    commands: list
    after: list = dataclasses.field(default_factory=list)
    reports: list = dataclasses.field(default_factory=list)  # for scripts/count-results
    environment: dict = dataclasses.field(default_factory=dict)
    seconds: float = 0.0
    processor_seconds: float = 0.0  # of the processes that the step started and that have ended
    status: str = None  # "passed", "failed" or "not run", once it is known


def build(preset, *targets):
    # With less priority than the tests that run meanwhile.
    compile_all = ["nice", "cmake", "--build", f"build/{preset}"]
    return Step(f"{preset}-build", "build", [
        ["cmake", "--preset", preset],
        compile_all + (["--target", *targets] if targets else [])])


def unit(preset, *options):
    """Runs test programs with ctest. A program that crashes leaves no report of its own, but counts as a
    failure in the report of ctest."""
    folder = RESULTS / f"{preset}-unit"
    return Step(f"{preset}-unit", "tests", [
        ["ctest", "--preset", preset, "-j", str(CORES), "--output-junit", folder / "ctest.xml",
         *options]],
        [f"{preset}-build"], reports=[folder / "ctest.xml"],
        # Brief, so that of a program that fails the log shows the failure.
        environment={"GTEST_OUTPUT": f"xml:{folder}/unit/", "GTEST_BRIEF": "1"})


def pytest(name, *arguments, after=("dev-build",), jobs=0, environment=None):
    report = RESULTS / name / "pytest.xml"
    spread = ["-n", str(jobs), "--dist", "loadgroup"] if jobs else []
    return Step(name, "tests", [[*PYTEST, *arguments, *spread, "--junitxml", report]], list(after),
                reports=[report], environment=environment or {})


def wire(preset, *arguments):
    return pytest(f"{preset}-wire", *arguments, "--build", f"build/{preset}",
                  after=[f"{preset}-build"], jobs=WIRE_JOBS, environment=SANITIZERS)


def attacks(preset, *names):
    programs = [f"tests/attacks/{name}" for name in names] or ["tests/attacks"]
    return pytest(f"{preset}-attacks", *programs, "--build", f"build/{preset}",
                  after=[f"{preset}-build"], jobs=WIRE_JOBS, environment=SANITIZERS)


def files(*names):
    return [f"tests/wire/{name}" for name in names]


# Without intercept_tls_get_addr=0, clang 14's LeakSanitizer takes one in 256 blocks of thread-local
# variables for one of an older C library, and crashes.
SANITIZERS = {"ASAN_OPTIONS": "detect_leaks=1:abort_on_error=1:intercept_tls_get_addr=0",
              "UBSAN_OPTIONS": "print_stacktrace=1",
              "TSAN_OPTIONS": f"suppressions={ROOT}/tests/threads.supp"}


def browser(*arguments, name="browser"):
    report = ROOT / "build/browser/results/browser.xml"
    install = "[ node_modules/.package-lock.json -nt package-lock.json ] || npm ci --no-fund"
    there = ["env", "-C", "tests/browser"]
    # In a lane of its own, since it mostly waits for the browser.
    return Step(name, "browser", [
        ["rm", "-f", report],
        [*there, "sh", "-c", install],
        [*there, "npx", "playwright", "test", *arguments]],
        ["dev-build"], [report], {"PHONE_PORT": str(free_port())})


def quick_steps():
    return [
        build("dev"),
        unit("dev"),
        wire("dev", "tests/wire", "--one-front"),
        pytest("servlet_check", "tests/servlet_check", jobs=CORES),
        pytest("scripts", "tests/support", "tests/servlet_serve", "tests/translation", "tests/bench/test",
               "tests/fuzz/test", "tests/mutation", "tests/device/test_script.py"),
        pytest("documents", "tests/package/documents_test.py", "tests/package/commands_test.py",
               "tests/package/manual_test.py", "-k", "not guide_leads and not sources_lead", after=()),
        pytest("abi", "tests/abi", "-k", "amd64 or operation_of_a_plug_in"),
        build("asan", "unit_tests", "replay_tests", "fcgi_host_wire"),
        unit("asan"),
        wire("asan", *files(*HOSTILE), "--one-front"),
        browser("--grep", "@journey", name="journeys"),
    ]


def arm_steps(preset):
    # The fuzzers' inputs are replayed natively only, for the sake of time.
    return [build(preset, "unit_tests"), unit(preset, "-E", "^replay_")]


def all_steps():
    return [
        build("dev"),
        unit("dev"),
        wire("dev", "tests/wire"),
        pytest("servlet_check", "tests/servlet_check", jobs=CORES),
        pytest("scripts", "tests/support", "tests/servlet_serve", "tests/translation", "tests/bench/test",
               "tests/fuzz/test", "tests/mutation", "tests/device/test_script.py"),
        attacks("dev"),
        build("asan"),
        unit("asan"),
        wire("asan", "tests/wire"),
        # Those without the phone, whose library alone needs libcrypt: the address sanitizer calls the
        # libcrypt of the program, which has none.
        attacks("asan", "test_session_freed_during_a_request.py", "test_sessions_left_behind.py",
                "test_unfinished_forms.py"),
        pytest("asan-servlet_check", "tests/servlet_check", "--build", "build/asan",
               after=["asan-build"], jobs=CORES, environment=SANITIZERS),
        build("tsan", *WITH_THREADS, "fcgi_host_wire"),
        unit("tsan", "-R", f"^({'|'.join(WITH_THREADS)})$"),
        wire("tsan", *files("test_operations.py", "test_sessions.py", "test_soak.py",
                            "test_stopping.py")),
        *arm_steps("armhf"),
        browser(),
        pytest("packages", "tests/package", "tests/abi", after=["armhf-build", "dev-build"],
               jobs=CORES + 1),
        # Not while others build the packages, too.
        pytest("device", "tests/device", after=()),
        Step("lint", "build", [["scripts/lint", "--all"]], ["dev-build"]),
        Step("mutation", "build", [["scripts/mutation"]], ["dev-build"]),
    ]


class Run:
    """Runs steps, each as soon as those that it needs have passed."""

    def __init__(self, steps, live):
        self.steps = {step.name: step for step in steps}
        self.live = live  # show the output of steps while they run
        self.changed = threading.Condition()
        self.begin = time.monotonic()

    def go(self):
        lanes = [threading.Thread(target=self.run_lane, args=(lane,))
                 for lane in dict.fromkeys(step.lane for step in self.steps.values())]
        for lane in lanes:
            lane.start()
        for lane in lanes:
            lane.join()

    def run_lane(self, lane):
        waiting = [step for step in self.steps.values() if step.lane == lane]
        while waiting:
            with self.changed:
                step = self.changed.wait_for(lambda: next(filter(self.is_ready, waiting), None))
            waiting.remove(step)
            if all(self.steps[name].status == "passed" for name in step.after):
                self.run_step(step)
            else:
                step.status = "not run"
            with self.changed:
                self.changed.notify_all()

    def is_ready(self, step):
        return all(self.steps[name].status is not None for name in step.after)

    def run_step(self, step):
        self.say(f"== {step.name}")
        start = time.monotonic()
        log = RESULTS / f"{step.name}.log"
        with log.open("w") as output:
            passed = all(self.succeeds(command, step, output) for command in step.commands)
        step.seconds = time.monotonic() - start
        step.status = "passed" if passed else "failed"
        if not passed and not self.live:
            self.say(log.read_text(errors="replace"))
        self.say(f"== {step.name}: {step.status} after {step.seconds:.1f} s")

    def succeeds(self, command, step, output):
        words = [str(word) for word in command]
        output.write(f"$ {' '.join(words)}\n")
        output.flush()
        process = subprocess.Popen(words, cwd=ROOT, stdin=subprocess.DEVNULL,
                                   stdout=None if self.live else output, stderr=subprocess.STDOUT,
                                   env={**os.environ, **step.environment})
        _, status, usage = os.wait4(process.pid, 0)
        process.returncode = os.waitstatus_to_exitcode(status)
        step.processor_seconds += usage.ru_utime + usage.ru_stime
        return process.returncode == 0

    def say(self, text):
        with self.changed:
            print(text, flush=True)

    def print_table(self):
        width = max(map(len, self.steps))
        print(f"{'step':<{width}}  seconds  processor")
        for step in self.steps.values():
            print(f"{step.name:<{width}}  {step.seconds:7.1f}  {step.processor_seconds:9.1f}"
                  + (f"  {step.status}" if step.status != "passed" else ""))
        print(f"{'all':<{width}}  {time.monotonic() - self.begin:7.1f}"
              f"  {sum(step.processor_seconds for step in self.steps.values()):9.1f}")


def with_needed(names, known):
    """Returns the steps of these names and all that they need, in the order in which they are known."""
    wanted = set()

    def want(name):
        if name not in wanted:
            wanted.add(name)
            for needed in known[name].after:
                want(needed)
    for name in names:
        want(name)
    return [step for name, step in known.items() if name in wanted]


def test_programs(preset):
    """Returns the names of the unit tests, once the preset has been configured."""
    subprocess.run(["cmake", "--preset", preset], cwd=ROOT, check=True, stdout=subprocess.DEVNULL)
    listed = subprocess.run(["ctest", "--preset", preset, "-N"], cwd=ROOT, check=True, text=True,
                            stdout=subprocess.PIPE).stdout
    return re.findall(r"Test +#\d+: (\S+)", listed)


def one_program(name, preset, options):
    folder = RESULTS / name
    command = subprocess.run(
        ["ctest", "--preset", preset, "-R", f"^{name}$", "--show-only=json-v1"], cwd=ROOT,
        check=True, text=True, stdout=subprocess.PIPE).stdout
    words = json.loads(command)["tests"][0].get("command") or [f"build/{preset}/{name}"]
    return Step(name, "tests", [[*words, *options]], [f"{preset}-build"],
                reports=[folder / f"{name}.xml"],
                environment={**SANITIZERS, "GTEST_OUTPUT": f"xml:{folder}/{name}.xml"})


def one_file(name, preset, options):
    path = "tests/" + name.removeprefix("tests/")
    if path.startswith("tests/browser/"):
        return browser(path.removeprefix("tests/browser/"), *options)
    build_option = ["--build", f"build/{preset}"] if re.match("tests/(wire|attacks|servlet_check)", path) else []
    return pytest(pathlib.Path(path.partition("::")[0]).stem, path, *options, *build_option,
                  after=[f"{preset}-build"], environment=SANITIZERS)


def known_steps():
    return {step.name: step
            for step in [*all_steps(), *arm_steps("arm64"), *quick_steps()]}


def named_steps(names, preset, options):
    """Returns the steps for what was named on the command line."""
    known = known_steps()
    programs = []
    for name in names:
        if name in known:
            continue
        if (HERE / name.removeprefix("tests/").partition("::")[0]).exists():
            known[name] = one_file(name, preset, options)
            continue
        programs = programs or test_programs(preset)
        if name not in programs:
            sys.exit(f"scripts/test: {name} is no step, no test program and no file below tests/")
        known[f"{preset}-build"] = build(preset, *(name for name in names if name in programs))
        known[name] = one_program(name, preset, options)
    return with_needed(names, known)


def parse_command_line(words):
    """Returns the arguments and the options for the tests that are named."""
    parser = argparse.ArgumentParser(prog="scripts/test", add_help=False, allow_abbrev=False)
    parser.add_argument("--all", action="store_true")
    parser.add_argument("--list", action="store_true")
    parser.add_argument("--preset", default="dev", choices=["dev", "asan", "tsan"])
    own, names, options = [], [], []
    while words and words[0].startswith("--"):
        own.append(words.pop(0))
        if own[-1] == "--preset" and words:
            own.append(words.pop(0))
    while words and not words[0].startswith("-"):
        names.append(words.pop(0))
    return parser.parse_args(own), names, words


def main():
    arguments, names, options = parse_command_line(sys.argv[1:])
    if arguments.list:
        print("\n".join(known_steps()))
        return 0
    if names:
        steps = named_steps(names, arguments.preset, options)
    else:
        steps = all_steps() if arguments.all else quick_steps()
    shutil.rmtree(RESULTS, ignore_errors=True)
    RESULTS.mkdir(parents=True)
    for step in steps:
        for report in step.reports:
            report.parent.mkdir(parents=True, exist_ok=True)
            (report.parent / "unit").mkdir(exist_ok=True)
    run = Run(steps, live=bool(names))
    run.go()
    run.print_table()
    reports = [report for step in steps for report in step.reports]
    counted = subprocess.run(["scripts/count-results", *reports], cwd=ROOT, check=False).returncode
    return 1 if counted or any(step.status != "passed" for step in steps) else 0


if __name__ == "__main__":
    sys.exit(main())
