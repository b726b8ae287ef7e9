// Holds nothing: the headers before it are compiled once, for all test programs.
