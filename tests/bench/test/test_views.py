"""The processor time of the telephone's pages: what is viewed, and what is reported."""

import pathlib
import sys

import pytest

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1]))

import figures
import new_phone
import report
import views

PAGE = """<body data-page="status"><a href="/servlet?p=login">
<nav aria-label="Menu"><a href="/servlet?p=status">Status</a><a href="/servlet?p=settings-config">
Configuration</a><a href="/servlet?p=status">Status</a></nav>
<nav aria-label="Pages"><a href="/servlet?p=other">Other</a></nav>
<form><input type="hidden" name="token" value="0a1b"></form>"""


def test_each_page_of_the_navigation_is_viewed_once():
    assert views.pages_of(PAGE) == ["status", "settings-config"]


def test_the_token_of_a_form_is_found():
    assert new_phone.token_in(PAGE) == "0a1b"


class Collected(figures.Figures):
    def __init__(self):
        self.rows = []


@pytest.fixture
def result():
    collected = Collected()
    views.note(collected, {"status": [40.0, 60.0, 50.0], "log": [30.0, 32.0, 31.0],
                           views.SMALL_PAGE: [10.0, 12.0, 12.5]})
    return vars(collected)


def test_a_ratio_compares_a_page_with_the_small_page_of_its_round(result):
    ratio, = (row for row in result["rows"]
              if (row["subject"], row["measure"]) == ("status", views.RATIO))
    assert (ratio["samples"], ratio["value"]) == ([4, 5, 4], 4)


def test_the_cheapest_and_the_dearest_page_are_named(result):
    line, = report.results_of_views(result)
    assert "**31 µs** of processor time (log) to **50 µs** (status)" in line


def test_the_table_has_a_line_for_each_page(result):
    lines = report.tables_of("views", result)[0]
    assert lines[2] == "| status | 50 | 4 |"
