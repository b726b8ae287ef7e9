"""Tests of the mutants that scripts/mutation makes, and of its choice among them."""

import pathlib
import subprocess
import sys

import pytest

sys.path.insert(0, str(pathlib.Path(__file__).parent))
import mutants
import mutation


@pytest.mark.parametrize("line, mutated", [
    ("if (a == b)", ["if (a != b)"]),
    ("if (a != b)", ["if (a == b)"]),
    ("if (a <= b)", ["if (a < b)"]),
    ("if (a >= b)", ["if (a > b)"]),
    ("if (a < b)", ["if (a <= b)"]),
    ("if (a > b)", ["if (a >= b)"]),
    ("if (a && b)", ["if (a || b)"]),
    ("if (a || b)", ["if (a && b)"]),
    ("return true;", ["return false;"]),
    ("return false;", ["return true;"]),
    ("if (!a)", ["if (a)"]),
    ("return 41;", ["return 42;"]),
])
def test_a_condition_is_negated_and_a_constant_incremented(line, mutated):
    assert list(mutants.mutated_lines(line)) == mutated


def test_each_place_of_a_line_has_its_own_mutant():
    assert list(mutants.mutated_lines("if (a == 1 && a == 2)")) == [
        "if (a != 1 && a == 2)", "if (a == 1 && a != 2)", "if (a == 1 || a == 2)",
        "if (a == 2 && a == 2)", "if (a == 1 && a == 3)"]


@pytest.mark.parametrize("line", [
    "std::vector<int> numbers;", 'log("1 == 2 && true");', "text += '1';", "call(); // 1 or 2",
    "// if (a == b)", "#if A > 1", "static_assert(sizeof(int) == 4);", "template <class T = int>",
    "int32_t value;", "", "value->field = other;",
])
def test_literals_comments_names_and_declarations_have_no_mutants(line):
    assert not mutants.mutants_of("a.cpp", line)


def test_an_assertion_has_no_mutants_up_to_its_end():
    source = '    assert(a == 1 && "one;" &&\n           b == 2);\n    return 3;\n'
    assert [mutant.mutated for mutant in mutants.mutants_of("a.cpp", source)] == [
        "    return 4;\n"]


def test_a_mutant_keeps_the_rest_of_the_source():
    source = "int a() {\n    return 1;\n}\n"
    mutant, = mutants.mutants_of("a.cpp", source)
    assert mutant.apply_to(source) == "int a() {\n    return 2;\n}\n"
    assert str(mutant) == "a.cpp: return 1; -> return 2;"


def test_mutants_of_equal_lines_are_numbered():
    source = "    return 1;\n    return 1;\n"
    assert [str(mutant) for mutant in mutants.mutants_of("a.cpp", source)] == [
        "a.cpp: return 1; -> return 2;", "a.cpp (2): return 1; -> return 2;"]


def numbered(*numbers):
    return [mutants.Mutant("a.cpp", number, f"return {number};", f"return {number + 1};")
            for number in numbers]


def test_one_seed_always_selects_one_order_and_another_seed_another():
    assert mutation.shuffled(numbered(*range(20)), "1") == mutation.shuffled(
        numbered(*reversed(range(20))), "1")
    assert mutation.shuffled(numbered(*range(20)), "1") != mutation.shuffled(
        numbered(*range(20)), "2")


def test_a_new_mutant_does_not_change_the_order_of_the_others():
    order = mutation.shuffled(numbered(*range(20)), "1")
    assert [mutant for mutant in mutation.shuffled(numbered(*range(21)), "1")
            if mutant.line < 20] == order


class Killer:
    """Stands in for a copy of the sources: the test of a.cpp kills mutants of odd numbers, and a
    multiple of 5 does not compile."""

    def verdict(self, mutant):
        if mutant.line % 5 == 0:
            return "does not compile"
        return "killed" if mutant.line % 2 else "survived"


class Runs(mutation.Copy):
    """A copy that records its steps instead of running them; its tests fail as given."""

    def __init__(self, folder, failing):
        self.source = folder
        self.passing = set()
        self.built = set()
        self.steps = []
        self.failing = failing

    def is_mutated(self):
        return (self.source / "QKSTL/QKHashMap.h").read_text() != "return 1;"

    def compile(self, test, jobs=1):
        return subprocess.CompletedProcess([], 0)

    def test(self, test):
        self.steps.append((test, self.is_mutated()))
        fails = (test, self.is_mutated()) in self.failing
        return subprocess.CompletedProcess([], int(fails), "failed")


@pytest.fixture
def hash_map(tmp_path):
    (tmp_path / "QKSTL").mkdir()
    (tmp_path / "QKSTL/QKHashMap.h").write_text("return 1;")
    return mutants.mutants_of("QKSTL/QKHashMap.h", "return 1;")[0]


def test_each_test_runs_without_the_mutant_first(tmp_path, hash_map):
    copy = Runs(tmp_path, {("replay_hash_map", True)})
    assert copy.verdict(hash_map) == "killed"
    assert copy.verdict(hash_map) == "killed"
    assert copy.steps == [("replay_hash_map", False), ("replay_hash_map", True),
                          ("replay_hash_map", True)]
    assert not copy.is_mutated()


def test_a_mutant_survives_if_no_test_fails(tmp_path, hash_map):
    copy = Runs(tmp_path, set())
    assert copy.verdict(hash_map) == "survived"
    assert [test for test, is_mutated in copy.steps if is_mutated] == mutation.AREAS[1].tests


def test_a_test_that_fails_without_a_mutant_ends_the_run(tmp_path, hash_map):
    with pytest.raises(RuntimeError, match="without a mutant:\nfailed"):
        Runs(tmp_path, {("replay_hash_map", False)}).verdict(hash_map)


def test_mutants_that_do_not_compile_are_replaced_by_the_next_ones():
    verdicts = dict(mutation.try_mutants([Killer(), Killer()], numbered(*range(20)), 4))
    assert sorted((mutant.line, verdict) for mutant, verdict in verdicts.items()) == [
        (0, "does not compile"), (1, "killed"), (2, "survived"), (3, "killed"), (4, "survived")]


def test_a_sample_ends_where_there_are_no_more_mutants():
    assert len(dict(mutation.try_mutants([Killer()], numbered(1, 2, 3), 25))) == 3


def test_the_test_of_the_mutated_source_runs_first():
    order = mutation.by_likelihood("fcgiServer/http_session.cpp", mutation.AREAS[0].tests)
    assert order[0] == "http_session_test"
    assert sorted(order) == sorted(mutation.AREAS[0].tests)


def test_every_source_has_a_test_that_runs_first():
    for area in mutation.AREAS:
        for path in mutation.sources_of(area):
            assert mutation.first_test(path, area.tests) is not None, path


def test_equivalent_mutants_are_left_out():
    listed = numbered(1)[0]
    assert mutation.possible_mutants(numbered(1, 2), {str(listed)}) == numbered(2)


def test_every_listed_equivalent_mutant_is_one_of_the_sources():
    assert mutation.unknown_mutants(mutation.all_mutants(), mutation.equivalent_mutants()) == []


def test_a_listed_mutant_that_the_sources_no_longer_have_is_reported():
    assert mutation.unknown_mutants(numbered(1), {"a.cpp: return 7; -> return 8;"}) == [
        "a.cpp: return 7; -> return 8;"]
