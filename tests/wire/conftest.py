from fixtures import *  # pytest looks for fixtures and hooks here
