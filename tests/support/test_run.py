"""tests/run.py, which is scripts/test: what it runs, in which order, and when it fails."""

import pathlib
import sys

import pytest

sys.path.append(str(pathlib.Path(__file__).resolve().parents[1]))
import run


@pytest.fixture(autouse=True)
def results(monkeypatch, tmp_path):
    monkeypatch.setattr(run, "RESULTS", tmp_path)


def go(*steps):
    whole = run.Run(list(steps), live=False)
    whole.go()
    return {step.name: step.status for step in steps}


def test_a_step_runs_after_all_that_it_needs(tmp_path):
    file = tmp_path / "file"
    assert go(run.Step("reader", "tests", [["cat", file]], ["writer"]),
              run.Step("writer", "build", [["sleep", "0.2"], ["touch", file]])) == {
        "reader": "passed", "writer": "passed"}


def test_a_step_ends_with_its_first_command_that_fails(tmp_path):
    assert go(run.Step("one", "build", [["false"], ["touch", tmp_path / "file"]])) == {
        "one": "failed"}
    assert not (tmp_path / "file").exists()


def test_what_needs_a_failed_step_is_not_run():
    assert go(run.Step("first", "build", [["false"]]),
              run.Step("second", "tests", [["true"]], ["first"]),
              run.Step("third", "tests", [["true"]], ["second"]),
              run.Step("other", "tests", [["true"]])) == {
        "first": "failed", "second": "not run", "third": "not run", "other": "passed"}


def test_the_output_of_a_failed_step_is_shown(capsys):
    go(run.Step("one", "build", [["echo", "what is wrong"], ["false"]]),
       run.Step("two", "build", [["echo", "all is well"]]))
    shown = capsys.readouterr().out
    assert "\nwhat is wrong\n" in shown
    assert "all is well" not in shown


def test_the_table_shows_the_time_and_the_processor_time_of_each_step(capsys):
    work = "import time\nwhile time.process_time() < 0.3: pass"
    whole = run.Run([run.Step("one", "build", [["sleep", "0.3"], ["sleep", "0"]]),
                     run.Step("two", "build", [["false"]]),
                     run.Step("three", "build", [["sh", "-c", f"python3 -c '{work}'; true"]])],
                    live=False)
    whole.go()
    capsys.readouterr()
    whole.print_table()
    head, one, two, three, total = capsys.readouterr().out.splitlines()
    assert head.split() == ["step", "seconds", "processor"]
    assert one.split()[0] == "one" and 0.3 <= float(one.split()[1]) < 30
    assert float(one.split()[2]) < 0.3
    assert two.split()[0] == "two" and two.split()[3] == "failed"
    assert 0.3 <= float(three.split()[2]) <= float(total.split()[2])
    assert total.split()[0] == "all"


@pytest.mark.parametrize("steps", [run.quick_steps, run.all_steps])
def test_each_step_needs_only_steps_of_the_same_run(steps):
    names = [step.name for step in steps()]
    assert len(set(names)) == len(names)
    assert all(needed in names for step in steps() for needed in step.after)


@pytest.mark.parametrize("steps", [run.quick_steps, run.all_steps])
def test_all_that_is_tested_leaves_a_report(steps):
    checks = {"lint", "mutation"}
    assert all(step.reports for step in steps()
               if not step.name.endswith("-build") and step.name not in checks)


def test_every_file_of_python_tests_is_part_of_the_whole_run():
    tests = pathlib.Path(run.__file__).parent
    words = {str(word) for step in run.all_steps() for command in step.commands for word in command}
    files = [path for path in tests.rglob("*.py") if "node_modules" not in path.parts
             and (path.name.startswith("test_") or path.name.endswith("_test.py"))]
    assert files
    for path in files:
        parts = path.relative_to(run.ROOT)
        assert any(str(folder) in words for folder in [parts, *parts.parents]), path


def test_a_named_step_brings_what_it_needs():
    steps = run.named_steps(["asan-wire"], "dev", [])
    assert [step.name for step in steps] == ["asan-build", "asan-wire"]


def test_a_named_file_is_run_with_its_options():
    steps = run.named_steps(["wire/test_uploads.py"], "asan", ["-k", "cut"])
    assert [step.name for step in steps] == ["asan-build", "test_uploads"]
    command, = steps[1].commands
    assert command[:8] == [*run.PYTEST, "tests/wire/test_uploads.py", "-k", "cut"][:8]
    assert "build/asan" in command


@pytest.mark.parametrize("words, names, options", [
    ([], [], []),
    (["abi"], ["abi"], []),
    (["abi", "dev-wire"], ["abi", "dev-wire"], []),
    (["wire/test_uploads.py", "-k", "cut"], ["wire/test_uploads.py"], ["-k", "cut"]),
    (["--preset", "asan", "fcgi_server_test", "--gtest_filter=*"], ["fcgi_server_test"],
     ["--gtest_filter=*"]),
])
def test_names_come_before_their_options(words, names, options):
    arguments, found, behind = run.parse_command_line(list(words))
    assert (found, behind) == (names, options)
    assert arguments.preset == ("asan" if "asan" in words else "dev")
