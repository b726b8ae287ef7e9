"""Tests of the arithmetic of tests/bench/report.py, and of the picture of tests/bench/chart.py."""
import pathlib
import sys
import xml.etree.ElementTree

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1]))

import chart
import pytest
import report


def run(name, cpu_time, unit="ns", **more):
    return {"run_type": "iteration", "name": name, "run_name": name, "cpu_time": cpu_time,
            "real_time": 10 * cpu_time, "time_unit": unit, "allocations": 1, "bytes": 2, **more}


def pieces(*runs):
    return report.read_pieces(runs)


def test_the_time_is_the_median_of_the_repetitions_without_aggregates():
    read = pieces(run("map/look up/10/ours", 5), run("map/look up/10/ours", 100),
                  run("map/look up/10/ours", 7),
                  {"run_type": "aggregate", "name": "map/look up/10/ours_mean"})
    assert list(read) == [("map/look up", 10, "ours")]
    assert report.time_of(read[("map/look up", 10, "ours")]) == 7


def test_times_are_nanoseconds_of_cpu_time_or_of_real_time():
    read = pieces(run("a/b/1/ours", 3, "us"), run("a/c/1/ours/real_time", 2, "ms"))
    assert report.time_of(read[("a/b", 1, "ours")]) == 3000
    assert report.time_of(read[("a/c", 1, "ours")]) == 20e6


def test_a_failed_run_is_an_error():
    with pytest.raises(ValueError, match="disk full"):
        pieces(run("a/b/1/ours", 3, error_occurred=True, error_message="disk full"))


def test_the_spread_is_the_interquartile_range_divided_by_the_median():
    assert report.spread([10, 8, 12, 9, 11]) == pytest.approx(0.2)
    assert report.spread([10]) is None


def test_a_ratio_above_one_means_that_ours_is_faster():
    read = pieces(run("a/b/5/ours", 4), run("a/b/5/other", 6), run("a/b/9/other", 1))
    assert report.ratios_of(read) == [
        {"operation": "a/b", "size": 5, "subject": "other", "ratio": 1.5}]


@pytest.mark.parametrize("figure, better, met", [
    (0.96, "higher", True), (0.95, "higher", True), (0.94, "higher", False),
    (0.94, "lower", True), (0.95, "lower", True), (0.96, "lower", False)])
def test_an_aim_is_met_by_a_figure_equal_to_it(figure, better, met):
    assert report.is_met({"figure": figure, "aim": 0.95, "better": better}) is met


def test_an_aim_compares_equal_sizes_with_its_own_subject():
    read = pieces(run("decode/query/10/ours", 10), run("decode/query/10/in place", 4),
                  run("decode/query/100/ours", 10), run("decode/query/100/in place", 40))
    made = report.make_report(read, {"rows": [], "aims": [], "curves": []}, {})
    assert [(aim["figure"], aim["met"]) for aim in made["aims"]] == [(0.4, False)]


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
