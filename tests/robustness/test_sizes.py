"""Fat binaries of many sizes: all bytes are embedded, and zeros fill up the last word."""
import pytest

from support import KEPT, Case, Place, expect_none, run

# Whole lines have 32 bytes. The large ones lie about the powers of two that a block may have.
RANGES = {"up to four lines": range(140), "one page": range(4060, 4130),
          **{"about 2^%d" % bits: range((1 << bits) - 2, (1 << bits) + 3) for bits in range(13, 22)},
          "large": (3000009, 8388605)}


@pytest.mark.parametrize("sizes", RANGES.values(), ids=RANGES)
def test_size(sizes, request):
    with Place(max(sizes)) as place:
        whole, reports = place.image, []
        for size in range(4200) if request.config.getoption("full") else sizes:
            place.image = whole[:size]
            place.path(place.stem + ".o").write_bytes(place.image)
            reports.append(run(Case("%d bytes" % size, args=KEPT[:1 + size // 8 % 2] + ("-link",) * (
                size // 4 % 2), status=(0,)), place))
        expect_none(reports)
