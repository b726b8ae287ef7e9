"""Tests of the report of scripts/fuzz."""
import json
import pathlib
import subprocess
import sys

SOURCE = pathlib.Path(__file__).resolve().parents[3]
STATISTICS = "stat::number_of_executed_units: 1234567\nstat::average_exec_per_sec:     4321\n"


def counts(covered, count):
    return {"count": count, "covered": covered}


def source(name, lines, branches):
    return {"filename": f"{SOURCE}/build/fuzz/../../{name}",
            "summary": {"lines": counts(*lines), "branches": counts(*branches)}}


def report(folder, *files):
    (folder / "coverage.json").write_text(json.dumps({"data": [{"files": files}]}))
    return subprocess.run([sys.executable, SOURCE / "tests/fuzz/report.py", folder],
                          capture_output=True, text=True)


def words(text):
    return [line.split() for line in text.splitlines()]


def test_each_fuzzer_is_shown_with_its_executions(tmp_path):
    (tmp_path / "cookies.log").write_text(f"Done\n{STATISTICS}")
    run = report(tmp_path)
    assert ["cookies", "1,234,567", "4,321"] in words(run.stdout)
    assert run.returncode == 0


def test_a_fuzzer_that_did_not_finish_fails_the_run(tmp_path):
    (tmp_path / "cookies.log").write_text("ERROR\n")
    run = report(tmp_path)
    assert "did not finish" in run.stdout
    assert run.returncode == 1


def test_sources_and_their_folders_are_shown_with_their_coverage(tmp_path):
    run = report(tmp_path, source("platform/cgi/decode.cpp", (99, 100), (1, 2)),
                 source("platform/cgi/form.cpp", (1, 100), (1, 2)))
    assert ["platform/cgi/decode.cpp", "99/100", "99.0", "%", "1/2", "50.0", "%"] in words(run.stdout)
    assert ["platform/cgi/", "100/200", "50.0", "%", "2/4", "50.0", "%"] in words(run.stdout)


def test_a_source_without_branches_has_no_branch_coverage(tmp_path):
    run = report(tmp_path, source("platform/cgi/varlist.h", (2, 2), (0, 0)))
    assert ["platform/cgi/varlist.h", "2/2", "100.0", "%"] in words(run.stdout)


def test_sources_of_the_tests_are_left_out(tmp_path):
    run = report(tmp_path, source("tests/fuzz/pairs.cpp", (1, 2), (1, 2)))
    assert "pairs.cpp" not in run.stdout
