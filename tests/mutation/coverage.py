"""Prints the share of the lines and branches of fcgiServer and QKSTL that their tests execute."""

import argparse
import os
import pathlib
import sys

from mutation import AREAS, ROOT, end_when_interrupted, run

TESTS = [test for area in AREAS for test in area.tests]


def output_of(*command):
    done = run(*command)
    if done.returncode != 0:
        sys.exit(done.stdout)
    return done.stdout


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("build", type=pathlib.Path, help="folder of a build with counters")
    build = parser.parse_args().build.resolve()
    end_when_interrupted()

    output_of("cmake", "--preset", "dev", "-S", ROOT, "-B", build, "-DCMAKE_BUILD_TYPE=Debug",
              "-DCMAKE_UNITY_BUILD=OFF", "-DCMAKE_CXX_FLAGS=--coverage", f"-DDEVICE_ROOT={build}/device")
    output_of("cmake", "--build", build, "--target", *TESTS)
    output_of("ctest", "--test-dir", build, "-R", f"^({'|'.join(TESTS)})$", "--timeout", "60",
              "--output-on-failure", "-j", os.cpu_count())
    report = output_of("gcovr", "--root", ROOT, "--object-directory", build,
                       "--filter", f"{ROOT}/fcgiServer/", "--filter", f"{ROOT}/QKSTL/",
                       "--exclude-throw-branches", "--exclude-unreachable-branches",
                       "--exclude-directories", ".*CompilerIdCXX", "--print-summary", "--txt",
                       build)
    print(report[report.index("-----"):])


if __name__ == "__main__":
    main()
