#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Shows that flags.py, packaging.py and scripts/yocto.py find what they look for."""
import pathlib
import sys
import tempfile
import unittest

sys.dont_write_bytecode = True  # no __pycache__ in the source tree
ROOT = pathlib.Path(__file__).resolve().parent.parent.parent
sys.path.insert(0, str(ROOT / "scripts"))
import flags  # noqa: E402
import packaging  # noqa: E402
import yocto  # noqa: E402

RECIPE = next((ROOT / "packaging" / "yocto").rglob("sideband_*.bb"))
WANTED = ["-O2", "-fstack-protector-strong", "-D_FORTIFY_SOURCE=2"]


class FlagCheck(unittest.TestCase):
    def said(self, *words):
        return flags.line_complaints("x.cpp", ["c++", *words], WANTED)

    def test_accepts_the_flags_among_others(self):
        self.assertEqual(self.said("-O1", "-Wall", *WANTED, "-fno-rtti"), [])

    def test_finds_one_that_does_not_arrive(self):
        self.assertEqual(self.said("-O2", "-D_FORTIFY_SOURCE=2"), ["x.cpp: lacks -fstack-protector-strong"])

    def test_finds_what_has_the_last_word(self):
        self.assertEqual(self.said(*WANTED, "-O0"), ["x.cpp: -O0 has the last word, not -O2"])
        self.assertEqual(self.said(*WANTED, "-D_FORTIFY_SOURCE=1"),
                         ["x.cpp: -D_FORTIFY_SOURCE=1 has the last word, not -D_FORTIFY_SOURCE=2"])

    def test_finds_what_takes_one_back_or_fails_on_warnings(self):
        for word in ("-fno-stack-protector", "-U_FORTIFY_SOURCE", "-Werror", "-w", "-Wl,-z,norelro"):
            self.assertEqual(self.said(*WANTED, word), [f"x.cpp: has {word}"])


class UnitCheck(unittest.TestCase):
    UNIT = (ROOT / "packaging" / "systemd" / "sideband-metrics.service").read_text(encoding="utf-8")

    def said(self, old, new):
        self.assertIn(old, self.UNIT)
        return packaging.unit_complaints(ROOT, self.UNIT.replace(old, new))

    def test_finds_a_family_that_the_program_opens_and_the_unit_forbids(self):
        openers = {"AF_NETLINK": "platform/linux/kernel_network.cpp", "AF_INET6": "tools/metrics/http_server.cpp",
                   "AF_MCTP": "transport/socket_message.cpp"}
        for family, path in openers.items():
            self.assertEqual(self.said(f" {family}", ""),
                             [f"RestrictAddressFamilies lacks {family}, which {path} opens"])

    def test_wants_the_family_of_the_tap_with_its_option_alone(self):
        self.assertEqual(self.said("--listen", "--capture /tmp/x --listen"),
                         ["RestrictAddressFamilies lacks AF_PACKET, which platform/linux/tap.cpp opens"])

    def test_knows_a_constant_and_says_what_it_does_not_know(self):
        self.assertEqual(packaging.named_families("kFamily", "constexpr int kFamily = 45;  // AF_MCTP\n"), {"AF_MCTP"})
        self.assertEqual(packaging.named_families("domain", "int domain = ask();\n// AF_MCTP\n"), set())

    def test_finds_a_lock_folder_that_is_not_made_or_not_kept(self):
        self.assertEqual(self.said("RuntimeDirectory=sideband", ""), ["RuntimeDirectory is None, not sideband"])
        self.assertEqual(self.said("Mode=0755", "Mode=0700"), ["RuntimeDirectoryMode is 0700, not 0755"])
        self.assertEqual(self.said("RuntimeDirectoryPreserve=yes\n", ""), ["RuntimeDirectoryPreserve is None, not yes"])


class YoctoCheck(unittest.TestCase):
    def setUp(self):
        scratch = tempfile.TemporaryDirectory()
        self.addCleanup(scratch.cleanup)
        self.image = pathlib.Path(scratch.name)
        self.recipe = yocto.Recipe(RECIPE, ["static"])

    def put(self, name, content=b"text"):
        path = self.image / name
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_bytes(content)

    def said(self):
        return yocto.qa(*yocto.split(self.recipe, self.image), self.image, "/home/build", "")

    def test_splits_as_bitbake_does(self):
        for name in ("usr/lib/libsideband.so", "usr/lib/libsideband.so.0", "usr/lib/libsideband.a", "usr/bin/sideband",
                     "usr/lib/libsideband-sim.so.0", "usr/include/sideband/mctp.h"):
            self.put(name)
        packages, left = yocto.split(self.recipe, self.image)
        given = {package: [path.name for path in files] for package, files in packages.items() if files}
        self.assertEqual(left, [])
        self.assertEqual(given, {"sideband": ["libsideband.so.0"], "sideband-dev": ["mctp.h", "libsideband.so"],
                                 "sideband-sim": ["libsideband-sim.so.0"], "sideband-staticdev": ["libsideband.a"],
                                 "sideband-tools": ["sideband"]})

    def test_finds_what_of_the_tools_is_in_no_package_or_in_the_librarys(self):
        good = [f"/usr/lib/libsideband{part}.so.0" for part in ("", "-sim", "-linux")]
        good += ["/usr/bin/sideband", "/usr/bin/sideband-porttest", "/usr/share/sideband/port.c"]
        self.assertEqual(yocto.tools_complaints(self.recipe, good), [])
        self.assertEqual(yocto.tools_complaints(self.recipe, [*good, "/usr/bin/another", "/opt/x"]),
                         ["with the tools: installed-vs-shipped: /opt/x",
                          "with the tools: /usr/bin/another is in the library's package"])
        self.assertEqual(yocto.tools_complaints(self.recipe, good[:3]), ["with the tools: sideband-tools is empty"])

    def test_options_follow_the_configuration(self):
        self.assertIn("-Ddefault_library=both", self.recipe.meson_options())
        self.assertIn("-Dtools=disabled", self.recipe.meson_options())
        with self.assertRaises(SystemExit):
            yocto.Recipe(RECIPE, ["no-such-part"])

    def test_finds_a_file_that_no_package_takes(self):
        self.put("usr/share/sideband.txt")
        self.assertEqual(self.said(), ["installed-vs-shipped: usr/share/sideband.txt"])

    def test_finds_a_linker_name_in_the_package_itself(self):
        self.put("usr/bin/x")
        (self.image / "usr/bin/libx.so").symlink_to("x")
        self.assertEqual(self.said(), ["sideband: usr/bin/libx.so: dev-so"])

    def test_finds_the_build_folder_in_a_file(self):
        self.put("usr/bin/x", b"from /home/build/x.cpp")
        self.assertEqual(self.said(), ["sideband: usr/bin/x: buildpaths"])

    def test_finds_a_program_for_another_machine(self):
        self.put("usr/bin/x", pathlib.Path(sys.executable).resolve().read_bytes())
        self.assertIn("sideband: usr/bin/x: arch: it is for another machine", self.said())

    def test_finds_another_licence(self):
        self.put("LICENSE", b"another")
        self.assertEqual(len(yocto.check_licence(self.recipe, self.image)), 1)
        self.assertEqual(yocto.check_licence(self.recipe, ROOT), [])


if __name__ == "__main__":
    unittest.main()
