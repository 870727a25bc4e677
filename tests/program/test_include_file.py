"""The include file, and what keeps it from being written."""
import re

from user import EXPECTED, Command, error

PLAIN, LINKED = ((EXPECTED / name).read_bytes() for name in ("40_bytes.inc", "40_bytes_link.inc"))
GONE = "Failed to write gone/i: open file: No such file or directory"


def test_forty_bytes_give_the_files_on_record(folder):
    folder.path(folder.stem + ".o").write_bytes(bytes(range(40)))
    folder.expect(Command("./tavrofuse $image3 -fatbin=plain"),
                  Command("./tavrofuse $image3 -fatbin=linked -link"), plain=PLAIN, linked=LINKED)


def test_without_a_usable_image_nothing_is_bundled_and_nothing_embedded(folder):
    folder.path("fat").write_text("fat")
    folder.path("inc").write_text("x" * 10000)
    empty = re.sub(rb'"\.quad.*\n', b"", LINKED).replace(b"[5]", b"[0]")
    folder.expect(Command("./tavrofuse -fatbin=inc -create=fat -link -image3=kind=ptx,s,f=a", args=""),
                  fat=b"fat", inc=empty)


def test_include_file_may_replace_its_own_fat_binary(folder):
    folder.path(folder.stem + ".o").write_bytes(bytes(range(250)) * 1000)  # more than is read at once
    folder.expect(Command("./tavrofuse $image3 -fatbin=other"),
                  Command("./tavrofuse $image3 -create=same -fatbin=same && cmp same other"))


def test_output_that_is_the_image_is_refused(folder):
    made = "ln -f %s.o same; ln -sf same link; " % folder.stem
    folder.expect(*(error(made + "./tavrofuse $image3 " + output,
                          "Failed to write %s: it is the device image" % output.split("=")[1])
                    for output in ("-create=same", "-create=link", "-fatbin=same", "-fatbin=link")),
                  same=b"image")


def test_failure_to_write_is_reported_and_named_fat_binary_stays(folder):
    folder.expect(error("./tavrofuse $image3 -fatbin=gone/i", GONE),
                  error("./tavrofuse $image3 -fatbin=gone/i -create=fat", GONE),
                  error("./tavrofuse -fatbin=/dev/full",
                        "Failed to write /dev/full: write file: No space left on device"),
                  fat=b"image")


def test_fat_binary_is_read_for_an_include_file_alone_and_failure_reported(folder):
    folder.expect(
        error("BUNDLER='truncate -s 2147483648 $out' ./tavrofuse $image3 -fatbin=inc",
              "Failed to malloc, size: 2147483648"),
        Command("BUNDLER=: ./tavrofuse $image3 -create=gone"),
        error("BUNDLER=: ./tavrofuse $image3 -create=gone -fatbin=inc",
              "Failed to read gone: stat64: No such file or directory"),
        error("BUNDLER=: ./tavrofuse $image3 -create=. -fatbin=inc",
              "Failed to read .: read file: Is a directory"), inc=None)
