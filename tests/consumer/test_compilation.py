"""What compiles with the headers, without a warning, and what does not."""
import glob
import os
import re
import subprocess

import pytest

INCLUDE = os.path.join(os.path.dirname(__file__), "../../libbasic/include")
HEADERS = sorted(map(os.path.basename, glob.glob(INCLUDE + "/*.h")))
WARNINGS = ("-Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wformat=2 -Wdouble-promotion -Weffc++ "
            "-Werror").split()
BY_FORMAT = r"W(error=|error,-W)?format|cannot pass non-trivial object"
NOT_FOR_FORMATS = "a format takes numbers, enumerations and pointers"
PROGRAM = """
#include <filesystem>
#include <string_view>
{includes}
struct Pair {{ int a; int b; }};
std::string Call(std::string text, std::filesystem::path path, float number, va_list ap) {{
  {statement}
  return text + path.string() + std::to_string(number) + util::StrFormat("%d", 0) +
      util::StrFormat(text, ap);
}}
"""


def compile_program(compiler, statement, *flags, before=""):
    includes = before + "".join(f'#include "{header}"\n' for header in HEADERS)
    return subprocess.run(
        [compiler, "-I", INCLUDE, "-std=c++17", *flags, "-fsyntax-only", "-x", "c++", "-"], text=True,
        input=PROGRAM.format(includes=includes, statement=statement), capture_output=True)


@pytest.fixture(params=["g++", "clang++"])
def compiler(request):
    return request.param


@pytest.mark.parametrize("flag", ["-std=c++17", "-std=c++20", "-fno-exceptions"])
def test_right_calls_compile_without_a_warning(compiler, flag):
    documentation = ["-Wdocumentation"] if compiler == "clang++" else []
    done = compile_program(compiler, """
        LOG_INFO("%s %f %p %d", text, number, nullptr, 1);
        LOG_INFO(text + path.string() + util::StrFormat(path, 0, number, "x"));
        char** argv = nullptr;
        util::Options options(1, argv);
        options.Parse("-n", "", "", "", nullptr, nullptr, number, true);""",
                           *WARNINGS, *documentation, flag)
    assert (done.returncode, done.stderr) == (0, "")


WRONG_FORMATS = {
    'LOG_INFO("%s", std::string_view(text));': NOT_FOR_FORMATS,
    'LOG_INFO("%s", path);': NOT_FOR_FORMATS,
    'LOG_INFO("%d", Pair{});': NOT_FOR_FORMATS,
    "util::StrFormat(text, text);": NOT_FOR_FORMATS,
    "util::StrFormat(text, std::string_view(text));": NOT_FOR_FORMATS,
    'util::StrFormat("%s", 5);': BY_FORMAT,
    'util::StrFormat("%s", 0);': BY_FORMAT,
    'util::StrFormat("%ld", 5);': BY_FORMAT,
    'util::StrFormat("%d", 5ul);': BY_FORMAT,
    'util::StrFormat("%d");': BY_FORMAT,
    'util::StrFormat("%s", text);': BY_FORMAT,
    'util::StrFormat("%s %s", "x", std::string_view(text));': BY_FORMAT,
}


@pytest.mark.parametrize("statement", WRONG_FORMATS)
def test_wrong_formats_do_not_compile_or_warn(compiler, statement):
    done = compile_program(compiler, statement, "-Wall", "-Werror")
    assert done.returncode != 0
    assert re.search(WRONG_FORMATS[statement], done.stderr)


@pytest.mark.parametrize("header", HEADERS)
def test_older_standards_are_refused_in_one_sentence(compiler, header):
    done = subprocess.run([compiler, "-I", INCLUDE, "-std=c++14", "-fsyntax-only", "-x", "c++", "-"],
                          text=True, input=f'#include "{header}"\nutil::Unknown x;\n',
                          capture_output=True)
    assert "libbasic needs C++17 or later" in done.stderr
    assert done.stderr.count("error:") == 1


def test_macros_can_be_left_out_beside_syslog(compiler):
    done = compile_program(compiler, 'syslog(LOG_INFO, "x"); LWLOGGER_WRITE(util::kLogInfo, text);',
                           *WARNINGS, before="#include <syslog.h>\n#define LIBBASIC_NO_LOG_MACROS\n")
    assert done.stderr == ""
