"""Options of the tests in Python. By hand: pytest-3 tests/robustness --tool=... [--full] [-k NAME]"""
import os
import shlex
import sys

import pytest

import support


def pytest_addoption(parser):
    parser.addoption("--tool", type=os.path.abspath, help="the tavrofuse to run")
    parser.addoption("--prefix", help="where all is installed")
    parser.addoption("--docdir", help="the folder of its documents, below that")
    parser.addoption("--mandir", help="the folder of the man pages, below that")
    parser.addoption("--bundler-dir", help="the folder of a real clang-offload-bundler")
    parser.addoption("--under", type=shlex.split, default=[], help="a program to run commands under")
    parser.addoption("--full", action="store_true", help="more cases, for minutes")


def pytest_configure(config):
    if sys.flags.optimize:
        raise pytest.UsageError("python -O and PYTHONOPTIMIZE remove the checks of these tests")
    support.Place.tool = config.getoption("tool")
    support.Place.under = config.getoption("under")


def pytest_report_header():
    return "own file systems: " + (" ".join(support.PRIVATE_MOUNTS) or
                                   "not allowed here, only limits on files are tried")


# A test of a `case` runs once for each that the function `cases` of its module returns.
def pytest_generate_tests(metafunc):
    if "case" in metafunc.fixturenames:
        cases = metafunc.module.cases(metafunc.config.getoption("full"))
        metafunc.parametrize("case", [pytest.param(case, id=case.name) for case in cases])
