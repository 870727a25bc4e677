"""Many runs at once, of images of the same stem and in the same seconds."""
import concurrent.futures

from support import COPY, Case, Place, expect_none, run


def test_runs_do_not_meet(request):
    count = 2000 if request.config.getoption("full") else 200
    with Place() as place, concurrent.futures.ThreadPoolExecutor(64) as pool:
        runs = (Case("run %d" % n, args=("-fatbin=inc.%d" % n,), status=(0,),
                     bundler='echo "$out" >>names; ' + COPY) for n in range(count))
        expect_none(pool.map(lambda case: run(case, place), runs))
        names = place.path("names").read_text().split()
        expect_none(["the same temporary name twice: " + name
                     for name in names if names.count(name) > 1])
        expect_none(place.leftovers())
