"""Collects what was measured: rows with their samples, aims, and curves."""
import statistics
import sys


class Figures:
    def __init__(self):
        self.rows, self.aims, self.curves = [], [], []

    def row(self, group, measure, subject, samples, unit):
        value = statistics.median(samples)
        print(f"{group}: {measure}, {subject}: {value:.6g} {unit}", file=sys.stderr)
        self.rows.append({"group": group, "measure": measure, "subject": subject, "value": value,
                          "unit": unit, "samples": samples})

    def at_most(self, measure, figure, aim):
        self._aim(measure, figure, aim, "lower")

    def at_least(self, measure, figure, aim):
        self._aim(measure, figure, aim, "higher")

    def _aim(self, measure, figure, aim, better):
        print(f"** {measure}: {figure:.4g} (aim {aim:g})", file=sys.stderr)
        self.aims.append({"measure": measure, "figure": figure, "aim": aim, "better": better})

    def curve(self, title, x, y, subject, points):
        self.curves.append({"title": title, "x": x, "y": y, "subject": subject, "points": points})
