"""What is handed out for macOS, as far as it shows here: signing, the application's property list, its icon."""
import os
import plistlib
import struct
import unittest
from pathlib import Path

from support import SOURCE_ROOT, ToolTest

MACH_O = b"\xcf\xfa\xed\xfe\x07\x00\x00\x01"
SCRIPT = SOURCE_ROOT / "packaging/macos/sign-bundle"
IDENTITY = "Developer ID Application: Anna's (1A2B)"
# What a Mac has, as far as it is called: each notes its arguments, and fails where it is told to.
FAKE = """#!/bin/sh
printf '%s' "${0##*/}" >>"$CALLS"
for argument; do printf ' <%s>' "$argument" >>"$CALLS"; last=$argument; done
echo >>"$CALLS"
echo "$0 talks"
case $1 in create) echo image >"$last" ;; esac
[ "${0##*/} $1" != "$FAILS" ]
"""


class Signing(ToolTest):
    def setUp(self):
        super().setUp()
        self.calls = self.root / "calls"
        for name in ("codesign", "hdiutil", "xcrun"):
            self.write(f"fakes/{name}", FAKE.encode()).chmod(0o755)
        self.environment.update(PATH=f"{self.work}/fakes:{os.environ['PATH']}", CALLS=str(self.calls), FAILS="")
        self.write("Setup.app/Contents/MacOS/setup", MACH_O).chmod(0o755)
        self.write("made/a.txt", b"template")

    def bundle(self, *more, code=0, target="macos"):
        self.write("kit.toml", b'format = 1\n[kit]\nroot = "made"\n[[product]]\nlanguage = "en"\nname = "N"\n')
        return self.tpk("bundle", "--manifest", "kit.toml", "--target", target, "-o", "my out", "--wizard", "Setup.app",
                        *more, code=code)

    def called(self):
        return self.calls.read_text().splitlines() if self.calls.exists() else []

    def test_the_application_is_signed_before_it_is_packed_and_then_an_image_is_made(self):
        run = self.bundle("--sign-identity", IDENTITY)
        sign, verify, create, *image = self.called()
        self.assertRegex(sign, rf"^codesign <--force> <--options> <runtime> <--timestamp> <--sign> <{IDENTITY}> <.*/Setup.app>$"
                         .replace("(", r"\(").replace(")", r"\)"))
        self.assertRegex(verify, r"^codesign <--verify> <--strict> .*/Setup.app>$")
        out = self.work / "my out"
        self.assertEqual(create, f"hdiutil <create> <-quiet> <-volname> <my out> <-srcfolder> <{out}> <-format> <UDZO> "
                                 f"<{out}.dmg>")
        self.assertEqual(image, [f"codesign <--force> <--timestamp> <--sign> <{IDENTITY}> <{out}.dmg>",
                                 f"codesign <--verify> <--strict> <--verbose=2> <{out}.dmg>"])
        self.assertTrue(Path(f"{out}.dmg").exists())
        self.assertNotIn("talks", run.out)
        self.assertIn("codesign talks", run.err)

    def test_with_a_profile_the_image_is_notarized_and_gets_its_ticket(self):
        self.bundle("--sign-identity", IDENTITY, "--notary-profile", "notary")
        image = f"<{self.work}/my out.dmg>"
        self.assertEqual(self.called()[-3:],
                         [f"xcrun <notarytool> <submit> {image} <--keychain-profile> <notary> <--wait>",
                          f"xcrun <stapler> <staple> {image}", f"xcrun <stapler> <validate> {image}"])

    def test_what_cannot_be_signed_leaves_nothing(self):
        self.environment["FAILS"] = "codesign --force"
        self.assertIn("could not be signed", self.bundle("--sign-identity", IDENTITY, code=3).err)
        self.assertEqual(sorted(os.listdir(self.work)), ["Setup.app", "fakes", "kit.toml", "made"])

    def test_a_run_that_is_interrupted_while_it_signs_is_cancelled(self):
        self.write("fakes/codesign", b"#!/bin/sh\nkill -INT $(ps -o ppid= -p $PPID)\nexit 1\n").chmod(0o755)
        self.bundle("--sign-identity", IDENTITY, code=4)
        self.assertEqual(sorted(os.listdir(self.work)), ["Setup.app", "fakes", "kit.toml", "made"])

    def test_a_refused_image_is_not_left(self):
        for call in ("hdiutil create", "codesign --verify", "xcrun notarytool", "xcrun stapler"):
            with self.subTest(call):
                self.environment["FAILS"] = call
                self.bundle("--sign-identity", IDENTITY, "--notary-profile", "notary", "--force", code=3)
                self.assertFalse((self.work / "my out.dmg").exists())

    def test_without_apples_tools_it_says_what_is_missing(self):
        os.remove(self.work / "fakes/codesign")
        self.assertIn("there is no codesign here", self.bundle("--sign-identity", IDENTITY, code=3).err)

    def test_nothing_is_signed_unless_asked(self):
        self.bundle()
        self.assertEqual(self.called(), [])
        self.assertIn("only a bundle for macos is signed",
                      self.bundle("--force", "--sign-identity", IDENTITY, target="linux", code=1).err)
        self.bundle("--force", "--notary-profile", "notary", code=1)

    def test_the_read_me_tells_what_to_do_where_no_kit_is_found(self):
        self.bundle()
        self.assertIn("drag Setup alone", (self.work / "my out/README.txt").read_text())


class Application(unittest.TestCase):
    def setUp(self):
        contents = Path(os.environ["BUILD"]) / "bin/Setup.app/Contents"
        if not contents.exists():
            self.skipTest("Setup.app is not built here")
        self.contents = contents
        self.properties = plistlib.loads((contents / "Info.plist").read_bytes())

    def test_the_property_list_has_what_macos_asks_for(self):
        for key, value in {
            "CFBundleAllowMixedLocalizations": True,
            "CFBundleExecutable": "setup",
            "CFBundleIconFile": "setup",
            "LSMinimumSystemVersion": "11.0",
            "NSSupportsAutomaticTermination": False,
            "NSSupportsSuddenTermination": False,
        }.items():
            self.assertEqual(self.properties[key], value, key)
        for place in ("DesktopFolder", "DocumentsFolder", "DownloadsFolder", "NetworkVolumes", "RemovableVolumes"):
            self.assertTrue(self.properties[f"NS{place}UsageDescription"].endswith("."), place)

    def test_the_icon_has_every_size_from_16_to_1024(self):
        data = (self.contents / "Resources/setup.icns").read_bytes()
        self.assertEqual(struct.unpack(">4sI", data[:8]), (b"icns", len(data)))
        sides, at = {}, 8
        while at < len(data):
            kind, size = struct.unpack(">4sI", data[at:at + 8])
            contents = data[at + 8:at + size]
            if contents.startswith(b"\x89PNG"):
                width, height = struct.unpack(">II", contents[16:24])
                self.assertEqual(width, height)
                sides[kind] = width
            else:
                count = len(contents) if kind.endswith(b"mk") else self.unpacked(contents) / 3
                sides[kind] = int(count ** 0.5)
            at += size
        self.assertEqual(sides, {b"is32": 16, b"s8mk": 16, b"il32": 32, b"l8mk": 32, b"ic07": 128, b"ic08": 256,
                                 b"ic09": 512, b"ic10": 1024, b"ic11": 32, b"ic12": 64, b"ic13": 256, b"ic14": 512})

    def unpacked(self, packed):
        """How many bytes it stands for."""
        count = at = 0
        while at < len(packed):
            length = packed[at]
            count += length + 1 if length < 128 else length - 125
            at += length + 2 if length < 128 else 2
        return count


if __name__ == "__main__":
    unittest.main()
