"""Fat binaries of many sizes: all bytes are embedded, and zeros fill up the last word."""
from typing import NamedTuple

from support import KEPT, Case, Place, expect_none, run


class Sizes(NamedTuple):
    name: str
    sizes: object


# Whole lines have 32 bytes. The large ones lie about the powers of two that a block may have.
def cases(is_full):
    return [Sizes("first lines", range(1600 if is_full else 140)), Sizes("a page", range(4060, 4130)),
            *(Sizes("about 2^%d" % bits, range((1 << bits) - 2, (1 << bits) + 3))
              for bits in range(13, 22)),
            Sizes("large", (3000009, 8388605))]


def test_size(case):
    with Place(max(case.sizes)) as place:
        whole, reports = place.image, []
        for size in case.sizes:
            place.image = whole[:size]
            place.path(place.stem + ".o").write_bytes(place.image)
            reports.append(run(Case("%d bytes" % size, args=KEPT[:1 + size // 8 % 2] + ("-link",) * (
                size // 4 % 2), status=(0,)), place))
        expect_none(reports)
