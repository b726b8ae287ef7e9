import pathlib
import sys

sys.path.append(str(pathlib.Path(__file__).resolve().parents[1] / "wire"))
from fixtures import *  # pytest looks for fixtures and hooks here
