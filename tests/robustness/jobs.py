"""What runs while its surroundings fail it."""
from support import KEPT, TEMPORARY, Case

# The first ones are enough for a quick look.
JOBS = (
    Case("kept", args=KEPT),
    Case("temporary"),
    Case("no image", image=False),
    Case("several blocks", size=200005),
    Case("bundler fails", bundler="echo words; exit 3", status=(1,)),
    Case("linked", args=TEMPORARY + ("-link",)),
    Case("fat binary only", args=("-create=fat",)),
    Case("shown", args=KEPT + ("-v",), bundler='cp "$in" "$out"; echo words'),
    Case("nothing to show for", args=()),
    Case("no bundler", args=TEMPORARY + ("-clang-path=/dev",), status=(1,)),
    Case("streams closed", args=KEPT, before='exec "$@" <&- >&- 2>&-', error=""))
QUICK = JOBS[:5]
