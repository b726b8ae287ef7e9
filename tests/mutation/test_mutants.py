"""What scripts/mutation changes in a source."""

import pathlib
import sys

import pytest

sys.path.insert(0, str(pathlib.Path(__file__).parent))
import changes


@pytest.mark.parametrize("line, changed", [
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
def test_a_condition_is_turned_round_and_a_constant_moved_by_one(line, changed):
    assert list(changes.changed_lines(line)) == changed


def test_each_place_of_a_line_is_changed_for_itself():
    assert list(changes.changed_lines("if (a == 1 && a == 2)")) == [
        "if (a != 1 && a == 2)", "if (a == 1 && a != 2)", "if (a == 1 || a == 2)",
        "if (a == 2 && a == 2)", "if (a == 1 && a == 3)"]


@pytest.mark.parametrize("line", [
    "std::vector<int> numbers;", 'log("1 == 2 && true");', "text += '1';", "call(); // 1 or 2",
    "// if (a == b)", "#if A > 1", "static_assert(sizeof(int) == 4);", "template <class T = int>",
    "int32_t value;", "", "value->field = other;",
])
def test_texts_comments_names_and_declarations_stay(line):
    assert not changes.changes_of("a.cpp", line)


def test_a_change_keeps_the_rest_of_the_source():
    source = "int a() {\n    return 1;\n}\n"
    change, = changes.changes_of("a.cpp", source)
    assert change.made_in(source) == "int a() {\n    return 2;\n}\n"
    assert str(change) == "a.cpp: return 1; -> return 2;"


def test_changes_of_lines_that_are_alike_are_told_apart():
    source = "    return 1;\n    return 1;\n"
    assert [str(change) for change in changes.changes_of("a.cpp", source)] == [
        "a.cpp: return 1; -> return 2;", "a.cpp (2): return 1; -> return 2;"]
