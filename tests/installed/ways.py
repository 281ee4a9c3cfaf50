#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Installs the library into an empty folder and builds the README's program against it: as the README says, by
a bare compiler line and with CMake, as C and as C++, and with the static library if there is one.

usage: ways.py --build DIR --cc COMMAND --cxx COMMAND [--sanitize LIST] --example FILE --readme FILE [--cmake] TOOL

With --cmake it goes by CMake alone. TOOL is not run: Meson sets MESON_EXE_WRAPPER for tests that get a program of
the target machine.
"""
import pathlib
import re
import shutil
import sys
import tempfile

sys.dont_write_bytecode = True  # no __pycache__ in the source tree
from prefix import Prefix, parser, run  # noqa: E402

# What a reader of the README types.
COMPILE = "cc read_sensor.c $(pkg-config --cflags --libs sideband sideband-sim) -o read_sensor"
# The GPU of the built-in board: its EID, and its temperature soon after power-on.
RESULT = re.compile(r"^EID 29: (\d+\.\d{3}) degC$", re.MULTILINE)
LOWEST, HIGHEST = 55.0, 83.0
CMAKE_PROJECT = pathlib.Path(__file__).resolve().parent / "cmake" / "CMakeLists.txt"


def check_readme(readme, program):
    """The README shows the very program and the very command."""
    text = readme.read_text(encoding="utf-8")
    blocks = re.findall(r"^```c\n(.*?)^```$", text, re.MULTILINE | re.DOTALL)
    if program not in blocks:
        sys.exit(f"{readme} has no C block with exactly the text of the example")
    if COMPILE not in text:
        sys.exit(f"{readme} does not tell the command: {COMPILE}")


def check_program(prefix, name):
    output = prefix.execute(name)
    found = RESULT.search(output)
    if not found or not LOWEST <= float(found.group(1)) <= HIGHEST:
        sys.exit(f"{name} printed no temperature of the GPU:\n{output}")
    print(f"{name}: {found.group(0)}")


def by_command_line(prefix):
    """Every way without CMake: program -> command."""
    bare = f"-I{prefix.headers} -L{prefix.libraries}"
    lines = {
        "read_sensor": COMPILE,
        "pkg_config_cxx": "cxx read_sensor.cpp $(pkg-config --cflags --libs sideband sideband-sim) -o pkg_config_cxx",
        "bare_c": f"cc read_sensor.c {bare} -lsideband -lsideband-sim -o bare_c",
        "bare_cxx": f"cxx read_sensor.cpp {bare} -lsideband -lsideband-sim -o bare_cxx",
    }
    static = prefix.libraries / "libsideband.a"
    if static.exists():
        lines["static_c"] = f"cc read_sensor.c {bare} {static} -lsideband-sim -lm -o static_c"
    for name, line in lines.items():
        prefix.shell(line)
        check_program(prefix, name)


def by_cmake(prefix):
    shutil.copy(CMAKE_PROJECT, prefix.folder)
    flags = f"-fsanitize={prefix.sanitize}" if prefix.sanitize != "none" else ""
    compilers = []
    for language, key in (("C", "c"), ("CXX", "c++")):
        command = prefix.compilers[key].split(" -fsanitize")[0].split()
        compilers += [f"-DCMAKE_{language}_COMPILER=" + ";".join(command), f"-DCMAKE_{language}_FLAGS={flags}"]
    if flags and "clang" in prefix.compilers["c"]:
        compilers.append("-DCMAKE_EXE_LINKER_FLAGS=-fsanitize-link-c++-runtime -lstdc++")
    build = prefix.folder / "by_cmake"
    run(["cmake", "-S", str(prefix.folder), "-B", str(build), f"-DCMAKE_PREFIX_PATH={prefix.headers.parent}",
         f"-DCMAKE_RUNTIME_OUTPUT_DIRECTORY={build / 'bin'}", *compilers])
    run(["cmake", "--build", str(build)])
    static = ["cmake_static"] if (prefix.libraries / "libsideband.a").exists() else []
    for program in ["cmake_c", "cmake_cxx", *static]:
        check_program(prefix, f"by_cmake/bin/{program}")


def main():
    arguments = parser()
    arguments.add_argument("--example", required=True)
    arguments.add_argument("--readme", required=True, type=pathlib.Path)
    arguments.add_argument("--cmake", action="store_true")
    arguments.add_argument("tool")
    arguments = arguments.parse_args()

    program = pathlib.Path(arguments.example).read_text(encoding="utf-8")
    check_readme(arguments.readme, program)
    if arguments.cmake and not shutil.which("cmake"):
        print("CMake is not installed")
        return 77
    with tempfile.TemporaryDirectory() as name:
        folder = pathlib.Path(name)
        for suffix in ("c", "cpp"):
            (folder / f"read_sensor.{suffix}").write_text(program, encoding="utf-8")
        prefix = Prefix(folder, arguments)
        (by_cmake if arguments.cmake else by_command_line)(prefix)
    return 0


if __name__ == "__main__":
    sys.exit(main())
