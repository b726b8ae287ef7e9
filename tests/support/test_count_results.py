"""scripts/count-results: nothing that went wrong is left out of the sum."""

import pathlib
import subprocess

import pytest

SCRIPT = pathlib.Path(__file__).resolve().parents[2] / "scripts/count-results"
PASSED = '<testcase name="a" classname="A" status="run"/>'
FAILED = '<testcase name="b" classname="A" status="run"><failure message="no"/></testcase>'
SKIPPED = '<testcase name="c" classname="A" status="run"><skipped message="too old"/></testcase>'


def report(path, *cases):
    path.parent.mkdir(parents=True, exist_ok=True)
    path.write_text(f"<testsuites><testsuite>{''.join(cases)}</testsuite></testsuites>")
    return path


def ctest(path, **programs):
    return report(path, *(f'<testcase name="{name}" status="{status}"/>'
                          for name, status in programs.items()))


def count(*reports):
    done = subprocess.run([SCRIPT, *reports], text=True, stdout=subprocess.PIPE,
                          stderr=subprocess.PIPE, check=False)
    return done.returncode, done.stdout.splitlines(), done.stderr


def test_the_last_line_is_the_sum_of_all_reports(tmp_path):
    first = report(tmp_path / "first.xml", PASSED, PASSED)
    second = report(tmp_path / "second.xml", PASSED)
    assert count(first, second) == (0, ["3 passed, 0 failed"], "")


def test_a_failed_test_fails_the_run(tmp_path):
    status, lines, _ = count(report(tmp_path / "one.xml", PASSED, FAILED))
    assert (status, lines) == (1, ["1 passed, 1 failed"])


def test_a_skipped_test_is_listed_with_its_reason(tmp_path):
    status, lines, _ = count(report(tmp_path / "one.xml", PASSED, SKIPPED))
    assert (status, lines) == (0, ["skipped: A.c: too old", "1 passed, 0 failed, 1 skipped"])


@pytest.mark.parametrize("content", [None, "", "<testsuites><testsuite>"])
def test_a_report_that_is_missing_or_cut_off_counts_as_a_failure(tmp_path, content):
    path = tmp_path / "one.xml"
    if content is not None:
        path.write_text(content)
    status, lines, errors = count(path)
    assert (status, lines) == (1, ["0 passed, 1 failed"])
    assert "no complete report" in errors


def test_a_program_that_crashed_before_it_could_report_counts_as_a_failure(tmp_path):
    ctest(tmp_path / "ctest.xml", fine_test="run", crashed_test="fail")
    report(tmp_path / "unit/fine_test.xml", PASSED)
    status, lines, errors = count(tmp_path / "ctest.xml")
    assert (status, lines) == (1, ["1 passed, 1 failed"])
    assert "crashed_test" in errors


def test_a_program_whose_report_names_the_failed_test_counts_once(tmp_path):
    ctest(tmp_path / "ctest.xml", one_test="fail")
    report(tmp_path / "unit/one_test.xml", PASSED, FAILED)
    assert count(tmp_path / "ctest.xml")[:2] == (1, ["1 passed, 1 failed"])


def test_no_test_at_all_is_a_failure(tmp_path):
    assert count(report(tmp_path / "one.xml"))[:2] == (1, ["0 passed, 1 failed"])
    assert count()[:2] == (1, ["0 passed, 1 failed"])
