"""Include files that can't be finished: files and links to them go, all else stays."""
from support import Case, expect_none, run

# After the tool, which has 5000 bytes for a file, a condition must hold.
THEN = '''; prlimit --fsize=5000:unlimited "$@"; status=$?; %s || exit 9; exit $status'''
LIFTED = 'ulimit -S -f unlimited; exec cp "$in" "$out"'


def cases(_):
    def case(name, before, then, error, **options):
        return Case(name, before=before + THEN % then, bundler=LIFTED, size=100000, status=(1,),
                    error=error, **options)
    too_large = "Failed to write inc: write file: File too large"
    return [
        case("new file", ":", "! [ -e inc ]", too_large),
        case("older file", ":", "! [ -e inc ]", too_large, older=b"older"),
        case("link to a file", "echo older >target; ln -s target inc",
             "! [ -L inc ] && [ -f target ]", too_large),
        case("link to nothing", "ln -s target inc", "! [ -L inc ]", too_large),
        # With a device of its own, /dev/full is safe from a faulty tool.
        case("device", "mknod inc c 1 7 && : >inc || ln -sf /dev/full inc", "[ -c inc ]",
             "Failed to write inc: write file: No space left"),
        case("link to a device", "ln -s /dev/full inc", "[ -c inc ]",
             "Failed to write inc: write file: No space left"),
        case("pipe without a reader", "mkfifo inc; head -c 10 inc >start & :", "[ -p inc ]",
             "Failed to write inc: write file: Broken pipe"),
        case("file that runs", 'cp "$(command -v sleep)" inc; ./inc 60 & :', "kill $! && [ -x inc ]",
             "Failed to write inc: open file: Text file busy", may_leave_files=True),
        case("folder", "mkdir inc", "[ -d inc ]", "Failed to write inc: open file: Is a directory")]


def test_unfinished_include_file(case):
    expect_none([run(case)])
