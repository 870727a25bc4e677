"""The man page knows each option, and the troubleshooting page shows what happens."""
import os
import pathlib
import re
import subprocess
import sys

from support import HERE, OUTPUT, Place, expect_none


def printed(*command):
    done = subprocess.run(command, **OUTPUT, text=True,
                          env={"PATH": os.environ["PATH"], "LC_ALL": "C.UTF-8"})
    expect_none([done.returncode and "status %d of %s:\n%s" % (
        done.returncode, " ".join(map(str, command)), done.stdout)])
    return done.stdout


def test_man_page_describes_each_option(pytestconfig):
    man = pathlib.Path(pytestconfig.getoption("prefix"), pytestconfig.getoption("mandir"))
    page = printed("man", "-M", man, "-w", "tavrofuse").strip()
    expect_none([printed("mandoc", "-T", "lint", "-W", "warning", page),
                 printed("groff", "-ww", "-man", "-Tutf8", "-z", page)])
    text = re.sub(".\b", "", printed("mandoc", "-T", "ascii", page))
    options = re.search("^OPTIONS.*^ENVIRONMENT", text, re.M | re.S)[0]
    usage = "\n".join(re.findall("^ -.*", printed(Place.tool, "--help"), re.M))
    expect_none("not among the options of the man page: " + name
                for name in re.findall(r"(?<![\w-])--?[a-z0-9-]+", usage)
                if not re.search(r" %s[ ,\n]" % name, options))


def test_troubleshooting_page_shows_what_happens(pytestconfig):
    docs = HERE.parent / "docs"
    printed(sys.executable, docs / "pictures/renew.py", "--check", Place.tool,
            pytestconfig.getoption("bundler_dir"), docs / "troubleshooting.md")
