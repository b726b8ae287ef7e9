"""Tests of the arithmetic of the benchmarks, and of their picture."""
import pathlib
import sys
import xml.etree.ElementTree

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1]))

import chart
import counting
import figures
import growth
import pytest
import report


def run(name, cpu_time, unit="ns", **more):
    return {"run_type": "iteration", "name": name, "run_name": name, "cpu_time": cpu_time,
            "real_time": 10 * cpu_time, "time_unit": unit, "allocations": 1, "bytes": 2, **more}


def pieces(*runs):
    return growth.read_pieces(runs)


def test_the_time_is_the_median_of_the_repetitions_without_aggregates():
    read = pieces(run("map/look up/10/ours", 5), run("map/look up/10/ours", 100),
                  run("map/look up/10/ours", 7),
                  {"run_type": "aggregate", "name": "map/look up/10/ours_mean"})
    assert list(read) == [("map/look up", 10, "ours")]
    assert growth.time_of(read[("map/look up", 10, "ours")]) == 7


def test_times_are_nanoseconds_of_cpu_time_or_of_real_time():
    read = pieces(run("a/b/1/ours", 3, "us"), run("a/c/1/ours/real_time", 2, "ms"))
    assert growth.time_of(read[("a/b", 1, "ours")]) == 3000
    assert growth.time_of(read[("a/c", 1, "ours")]) == 20e6


def test_a_failed_run_is_an_error():
    with pytest.raises(ValueError, match="disk full"):
        pieces(run("a/b/1/ours", 3, error_occurred=True, error_message="disk full"))


def test_the_spread_is_the_interquartile_range_divided_by_the_median():
    assert figures.spread([10, 8, 12, 9, 11]) == pytest.approx(0.2)
    assert figures.spread([10]) is None


def test_a_ratio_above_one_means_that_ours_is_faster():
    read = pieces(run("a/b/5/ours", 4), run("a/b/5/other", 6), run("a/b/9/other", 1))
    assert growth.ratios_of(read) == [
        {"operation": "a/b", "size": 5, "subject": "other", "ratio": 1.5}]


@pytest.mark.parametrize("figure, better, met", [
    (0.96, "higher", True), (0.95, "higher", True), (0.94, "higher", False),
    (0.94, "lower", True), (0.95, "lower", True), (0.96, "lower", False)])
def test_an_aim_is_met_by_a_figure_equal_to_it(figure, better, met):
    assert report.is_met({"figure": figure, "aim": 0.95, "better": better}) is met


class Collected(figures.Figures):
    def __init__(self):
        self.aims, self.curves = [], []


def test_an_aim_compares_equal_sizes_with_its_own_subject():
    read = pieces(run("decode/query/10/ours", 10), run("decode/query/10/in place", 4),
                  run("decode/query/100/ours", 10), run("decode/query/100/in place", 40))
    collected = Collected()
    growth.add_aims(collected, read)
    assert [(aim["figure"], report.is_met(aim)) for aim in collected.aims] == [(0.4, False)]


def test_a_ratio_is_that_of_the_medians_with_the_spread_of_the_rounds():
    ratio = figures.Ratio([10, 20, 30], [10, 10, 10])
    assert ratio.figure == 2
    assert ratio.spread == pytest.approx(0.5)


def test_an_unsteady_figure_is_measured_again():
    rounds = iter([{"a": [1, 2, 3], "b": [1, 1, 1]}, {"a": [1, 1.1, 1], "b": [2, 2, 2]}, None])
    assert figures.steadiest(lambda: next(rounds))["b"] == [2, 2, 2]


def test_of_unsteady_figures_the_steadiest_is_kept():
    rounds = iter([{"a": [1, 2, 3]}, {"a": [2, 3, 4]}, {"a": [1, 3, 5]}])
    assert figures.steadiest(lambda: next(rounds))["a"] == [2, 3, 4]


def test_an_unsteady_figure_is_left_out():
    assert report.shown(1234.5, "ms", 0.2) == "1,234 ms"
    assert report.shown(1234.5, "ms", 0.21) == "left out"
    aim = {"measure": "m", "figure": 2, "aim": 1, "better": "higher", "spread": 0.5}
    assert report.aims_table([aim])[2] == "| m | left out | 50 % | at least 1 | left out |"


@pytest.mark.parametrize("costs, bend", [
    ({10: 5, 100: 5, 1000: 9}, None), ({10: 5, 100: 10, 1000: 11}, 1000),
    ({1: 50, 10: 5, 100: 6, 1000: 11, 10000: 100}, 1000), ({10: 5}, None)])
def test_a_curve_bends_where_it_costs_twice_as_much_as_before(costs, bend):
    assert growth.bend_of(costs) == bend


def test_the_cost_of_an_item_is_shown_where_all_items_are_handled():
    assert growth.costs_of("session/sweep", [[10, 50], [100, 500]]) == {10: 5, 100: 5}
    assert growth.costs_of("session/look up", [[10, 50], [100, 500]]) == {10: 50, 100: 500}


def test_differences_are_sorted_and_add_up():
    lines = report.difference_table(["library", "ours", "other", "difference"],
                                    {"a": 5, "b": 9, "c": 1}, {"a": 4, "d": 7}, 1)
    assert lines[2:5] == ["| b | 9 | 0 | 9 |", "| all others | 6 | 11 | -5 |",
                          "| together | 15 | 11 | 4 |"]


@pytest.mark.parametrize("name, short", [
    ("QKHashMap<std::string, int>::put(std::string, int)", "QKHashMap::put"),
    ("(anonymous namespace)::writeDecoded(std::string, char*)", "writeDecoded"),
    ("std::unique_ptr<int> (anonymous namespace)::decode<a (*)(b)>(c)", "decode"),
    ("HttpResponseImpl::removeHeader(char const*) [clone .part.0]",
     "HttpResponseImpl::removeHeader"),
    ("operator new(unsigned long)", "operator new"), ("malloc'2", "malloc")])
def test_functions_have_short_names_in_the_profile(name, short):
    assert counting.short_name(name) == short


def a_row(measure, subject, *samples):
    return {"group": "g", "measure": measure, "subject": subject, "value": samples[0], "unit": "",
            "samples": list(samples)}


def an_aim(measure, known_spread=None):
    return {"measure": measure, "figure": 1.5, "aim": 1, "better": "higher", "spread": known_spread}


RESULTS = {
    "counts": {"aims": [an_aim(name) for name in (
        "page: instructions", "page: allocations", "page: system calls",
        "template page: instructions", "template page: allocations", "form of 10 fields",
        "fill and render", "private memory", "resident memory")]},
    "loads": {"aims": [
        an_aim("requests/s behind lighttpd, container / bare loop without close wait", 0.5),
        an_aim("processor time behind lighttpd, container / prescribed loop", 0.1),
        an_aim("requests/s of the back end alone, 2 loops / 1 loop", 0.1)]},
    "growth": {"curves": [{"title": "session/look up", "subject": "ours",
                           "points": [[10, 100], [100, 110], [1000, 5000]]}]},
    "peers": {"rows": [a_row(measure, subject, value) for subject, value in (
        ("container", 2), ("PHP-FPM", 10)) for measure in (
            "processor time of a request", "written memory")],
              "tables": {"packaged": {"kcgi": False, "PHP-FPM": True}}}}


def test_the_results_are_ten_lines():
    lines = [line for part, result in RESULTS.items() for line in report.RESULTS[part](result)]
    assert len(lines) == 10
    assert all(line.startswith("- ") and "**" in line for line in lines)


def test_a_result_that_was_unsteady_says_so():
    first, second, _ = report.RESULTS["loads"](RESULTS["loads"])
    assert "**left out**" in first and "**1.50**" in second


def test_the_results_name_where_the_curve_bends_and_who_is_not_packaged():
    line, = report.RESULTS["growth"](RESULTS["growth"])
    assert "**100 ns** among 10" in line and "**5 µs** among 1,000" in line
    assert "bends at 1,000" in line
    line, = report.RESULTS["peers"](RESULTS["peers"])
    assert "**5 times**" in line and "does not package kcgi." in line


AIMS = [{"measure": "a < b", "figure": 3, "aim": 1, "better": "higher", "met": True},
        {"measure": "c", "figure": 3, "aim": 1, "better": "lower", "met": False}]
CURVES = [{"title": "t", "x": "rows", "y": "ns", "subject": name, "points": [[1, 5], [10, 40]]}
          for name in ("other", "ours")]


def test_the_picture_is_well_formed_and_holds_each_aim_and_curve():
    root = xml.etree.ElementTree.fromstring(chart.draw(AIMS, CURVES))
    names = [element.get("id", "") for element in root.iter()]
    texts = [element.text for element in root.iter() if element.text]
    for name in ("met-0", "missed-1", "curve-t-0", "curve-t-1"):
        assert names.count(name) == 1, name
    for text in ("a < b", "3 (≥ 1) met →", "c", "3 (≤ 1) missed →", "t, ns", "rows"):
        assert texts.count(text) == 1, text
    assert texts.index("ours") < texts.index("other")


def test_equal_figures_make_equal_pictures():
    assert chart.draw(AIMS, CURVES) == chart.draw(AIMS, CURVES)


@pytest.mark.parametrize("aims, curves", [([], CURVES), (AIMS, []), ([], [])])
def test_a_picture_may_lack_aims_or_curves(aims, curves):
    xml.etree.ElementTree.fromstring(chart.draw(aims, curves))


def test_points_without_a_logarithm_are_left_out():
    empty = {**CURVES[0], "title": "never drawn", "points": [[0, 1], [1, 0]]}
    picture = chart.draw(AIMS, CURVES + [empty])
    assert "never drawn" not in picture and "t, ns" in picture


@pytest.mark.parametrize("figure, aim, share", [(3, 2, 1.5), (0, 0, 1), (1, 0, float("inf"))])
def test_a_share_of_an_aim_of_0_is_1_or_infinite(figure, aim, share):
    assert chart.share_of({"figure": figure, "aim": aim}) == share
