"""Many runs at once, of images of the same stem and in the same seconds."""
import concurrent.futures
import subprocess

import pytest

from support import COPY, OUTPUT, Case, Place, difference, expect_none, include_text, read, run

pytestmark = pytest.mark.xdist_group("load")


@pytest.fixture
def count(request):
    return 2000 if request.config.getoption("full") else 200


def test_runs_do_not_meet(count):
    with Place() as place, concurrent.futures.ThreadPoolExecutor(64) as pool:
        runs = (Case("run %d" % n, args=("-fatbin=inc.%d" % n,), status=(0,),
                     bundler='echo "$out" >>names; ' + COPY) for n in range(count))
        expect_none(pool.map(lambda case: run(case, place), runs))
        names = place.path("names").read_text().split()
        expect_none(["the same temporary name twice: " + name
                     for name in names if names.count(name) > 1])
        expect_none(place.leftovers())


def test_ninja_builds_once(count):
    with Place() as place:
        rule = "rule embed\n command = %s --image3=kind=elf,s,f=$in -fatbin=$out\n"
        place.path("build.ninja").write_text(rule % place.tool.replace(" ", "\\ ") + "".join(
            "build ninja.%d: embed %s.o\n" % (n, place.stem) for n in range(count)))
        for expected in ("[%d/%d]" % (count, count), "no work to do"):
            words = subprocess.run(["ninja", "-j64"], cwd=place.name, **OUTPUT, text=True,
                                   env=place.environment(Case("ninja")), timeout=600).stdout
            expect_none([expected not in words and "not in ninja's output: %s\n%s" % (
                expected, words[-500:])])
        text, names = include_text(place.image), ("ninja.%d" % n for n in range(count))
        expect_none(difference(name, read(place.path(name)), text) for name in names)
        expect_none(place.leftovers())
