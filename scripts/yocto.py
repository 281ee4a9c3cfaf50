#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Performs the steps of the layer's recipe without bitbake: configure, compile, install, package, package_qa.

usage: yocto.py --recipe FILE --source DIRECTORY --work DIRECTORY --cross-file FILE --tools PREFIX [--config NAME...]

What bitbake and its classes bring along is written down here once: the flags of the distribution poky with
security_flags.inc, the packages and globs of bitbake.conf, and the checks of insane.bbclass.
"""
import argparse
import fnmatch
import json
import os
import pathlib
import re
import subprocess
import sys

BASE = {"bindir": "/usr/bin", "libdir": "/usr/lib", "includedir": "/usr/include", "datadir": "/usr/share"}
# bitbake.conf: the packages in the order in which they take their files, and their globs.
PACKAGES = ("-dbg", "-staticdev", "-dev", "-doc", "-locale", "")
FILES = {
    "-dbg": "/usr/lib/debug /usr/src/debug",
    "-staticdev": "${libdir}/*.a",
    "-dev": "${includedir} ${libdir}/lib*.so ${libdir}/*.la ${libdir}/*.o ${libdir}/pkgconfig ${libdir}/cmake",
    "-doc": "${datadir}/doc ${datadir}/man",
    "-locale": "${datadir}/locale",
    "": "${bindir}/* ${libdir}/lib*.so.* ${datadir}/${BPN}",
}
COMPILER_FLAGS = ("-O2 -pipe -g -feliminate-unused-debug-types -fstack-protector-strong -D_FORTIFY_SOURCE=2 -Wformat"
                  " -Wformat-security -Werror=format-security")
LINKER_FLAGS = "-Wl,-O1 -Wl,--hash-style=gnu -Wl,--as-needed -Wl,-z,relro,-z,now"


def run(*command, **options):
    done = subprocess.run([str(word) for word in command], capture_output=True, text=True, check=False, **options)
    if done.returncode != 0:
        sys.exit(f"{' '.join(map(str, command))} ended with {done.returncode}:\n{done.stdout[-4000:]}{done.stderr}")
    return done.stdout


class Recipe:
    """The variables of a recipe, as far as bitbake's syntax is used in this one."""

    def __init__(self, path, config):
        self.text = path.read_text(encoding="utf-8")
        self.values = {**BASE, "PN": path.name.partition("_")[0], "BPN": path.name.partition("_")[0],
                       "PV": path.stem.partition("_")[2]}
        self.flags, self.files, self.first = {}, {}, []
        for name, sign, value in re.findall(r'^([\w:${}\[\]-]+) (\?\?=|\?=|=\+|=) "(.*)"$', self.text, re.MULTILINE):
            if flag := re.fullmatch(r"PACKAGECONFIG\[(\w+)\]", name):
                self.flags[flag[1]] = value.split(",")
            elif name.startswith("FILES:${PN}"):
                self.files[name.removeprefix("FILES:${PN}")] = value
            elif name == "PACKAGES" and sign == "=+":
                self.first = [word.removeprefix("${PN}") for word in value.split()]
            else:
                self.values[name] = value
        self.config = config or self.values["PACKAGECONFIG"].split()
        if unknown := set(self.config) - set(self.flags):
            sys.exit(f"PACKAGECONFIG has no {sorted(unknown)}")

    def expand(self, text):
        return re.sub(r"\$\{(\w+)\}", lambda name: self.values[name[1]], text)

    def meson_options(self):
        chosen = [words[0 if name in self.config else 1] for name, words in self.flags.items()]
        return [*chosen, *self.expand(self.values["EXTRA_OEMESON"]).split()]

    def packages(self):
        """(package, globs) in the order in which files are given away."""
        globs = {**FILES, **self.files}
        return [(self.values["PN"] + suffix, self.expand(globs[suffix]).split())
                for suffix in [*self.first, *PACKAGES]]


def check_licence(recipe, source):
    wanted = re.search(r"file://(\S+);md5=(\w+)", recipe.values["LIC_FILES_CHKSUM"])
    found = run("md5sum", source / wanted[1]).split()[0]
    return [] if found == wanted[2] else [f"LIC_FILES_CHKSUM: {wanted[1]} has {found}"]


def check_version(recipe, source):
    project = re.search(r"^  version: '(.*)',$", (source / "meson.build").read_text(encoding="utf-8"), re.MULTILINE)[1]
    return [] if project == recipe.values["PV"] else [f"the recipe is for {recipe.values['PV']}, this is {project}"]


def configure(recipe, source, build, cross_file):
    own = build.parent / "flags.ini"
    words = COMPILER_FLAGS.split() + [f"-fmacro-prefix-map={source}=/usr/src/debug/sideband",
                                      f"-ffile-prefix-map={source}=/usr/src/debug/sideband",
                                      f"-ffile-prefix-map={build}=/usr/src/debug/sideband"]
    own.write_text(f"[built-in options]\ncpp_args = {words}\nc_args = {words}\n"
                   f"cpp_link_args = {LINKER_FLAGS.split()}\n", encoding="utf-8")
    run("meson", "setup", "--buildtype=plain", "--prefix=/usr", "--libdir=lib", "--bindir=bin", "--wrap-mode=nodownload",
        "--cross-file", cross_file, "--cross-file", own, *recipe.meson_options(), build, source)


def give_away(recipe, names):
    """package -> the names that it gets, and what nobody gets."""
    left, packages = sorted(names), {}
    for package, globs in recipe.packages():
        packages[package] = [name for name in left if any(matches_glob(name, glob) for glob in globs)]
        left = [name for name in left if name not in packages[package]]
    return packages, left


def split(recipe, image):
    """package -> the files that it gets, and what nobody gets."""
    files = {f"/{path.relative_to(image)}": path for path in image.rglob("*") if path.is_symlink() or not path.is_dir()}
    packages, left = give_away(recipe, files)
    return ({package: [files[name] for name in names] for package, names in packages.items()},
            [files[name] for name in left])


def check_tools(path, source, build, cross_file):
    """With the tools nothing is compiled: what would be installed is enough to see where it goes."""
    recipe = Recipe(path, ["tools", "linux"])
    configure(recipe, source, build, cross_file)
    return tools_complaints(recipe, json.loads(run("meson", "introspect", "--installed", build)).values())


def tools_complaints(recipe, names):
    """What is not in its package of the files that a build with the tools installs."""
    packages, left = give_away(recipe, names)
    library = [name for name in packages[recipe.values["PN"]]
               if not re.fullmatch(r"/usr/lib/libsideband\.so\.[\d.]+", name)]
    complaints = [f"with the tools: installed-vs-shipped: {name}" for name in left]
    complaints += [f"with the tools: {name} is in the library's package" for name in library]
    return complaints + [f"with the tools: {recipe.values['PN']}{part} is empty"
                         for part in ("", "-tools", "-sim", "-linux") if not packages[recipe.values["PN"] + part]]


def matches_glob(name, glob):
    """A glob takes a file, or a folder with everything in it; a star does not go beyond a slash."""
    parts, wanted = name.split("/"), glob.split("/")
    return len(parts) >= len(wanted) and all(map(fnmatch.fnmatchcase, parts, wanted))


class Elf:
    def __init__(self, path, tools):
        self.header = run(tools + "readelf", "-Wh", path)
        self.dynamic = run(tools + "readelf", "-Wd", path)
        self.sections = run(tools + "readelf", "-WS", path)

    def complaints(self):
        found = []
        if not re.search(r"Class:\s+ELF32", self.header) or not re.search(r"Machine:\s+ARM", self.header):
            found.append("arch: it is for another machine")
        if "(GNU_HASH)" not in self.dynamic or "(HASH)" in self.dynamic:
            found.append("ldflags: no GNU_HASH, or another table beside it: the linker flags did not arrive")
        if re.search(r"\((RPATH|RUNPATH)\)", self.dynamic):
            found.append("rpaths: it has a run path")
        if "(TEXTREL)" in self.dynamic:
            found.append("textrel: it has text relocations")
        if ".symtab" not in self.sections:
            found.append("already-stripped: bitbake wants to do that itself")
        return found


def qa(packages, left, image, build, tools):
    """What insane.bbclass has to say."""
    complaints = [f"installed-vs-shipped: {path.relative_to(image)}" for path in left]
    for package, files in packages.items():
        for path in files:
            place = f"{package}: {path.relative_to(image)}"
            if path.is_symlink():
                if path.name.endswith(".so") and not package.endswith("-dev"):
                    complaints.append(f"{place}: dev-so")
                continue
            content = path.read_bytes()
            if path.suffix == ".a" and not package.endswith("-staticdev"):
                complaints.append(f"{place}: staticdev")
            if content[:4] == b"\x7fELF":
                complaints += [f"{place}: {text}" for text in Elf(path, tools).complaints()]
                if package.endswith("-dev"):
                    complaints.append(f"{place}: dev-elf")
            if str(build).encode() in content or str(image).encode() in content:
                complaints.append(f"{place}: buildpaths")
    return complaints


def main():
    parser = argparse.ArgumentParser()
    for name in ("--recipe", "--source", "--work", "--cross-file"):
        parser.add_argument(name, required=True, type=lambda path: pathlib.Path(path).resolve())
    parser.add_argument("--tools", default="", help="what the names of the cross tools begin with")
    parser.add_argument("--config", action="append", default=[])
    arguments = parser.parse_args()
    recipe = Recipe(arguments.recipe, arguments.config)
    build, image = arguments.work / "build", arguments.work / "image"
    run("rm", "-rf", arguments.work)
    arguments.work.mkdir(parents=True)

    complaints = check_licence(recipe, arguments.source) + check_version(recipe, arguments.source)
    configure(recipe, arguments.source, build, arguments.cross_file)
    run("ninja", "-C", build, "-j", os.cpu_count() or 1)
    run("meson", "install", "-C", build, "--no-rebuild", env={**os.environ, "DESTDIR": str(image)})
    packages, left = split(recipe, image)
    complaints += qa(packages, left, image, build, arguments.tools)
    if not packages[recipe.values["PN"]]:
        complaints.append("the package itself is empty")
    complaints += check_tools(arguments.recipe, arguments.source, arguments.work / "build-tools", arguments.cross_file)
    for package, files in packages.items():
        if files:
            print(f"{package}: " + " ".join(str(path.relative_to(image)) for path in files))
    print("\n".join(complaints) or f"package_qa has nothing to say about {sum(map(len, packages.values()))} files")
    return 1 if complaints else 0


if __name__ == "__main__":
    sys.exit(main())
