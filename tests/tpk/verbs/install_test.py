"""install, plan and verify --against: what an installation does to a folder, and what it undoes."""
import fcntl
import os
import resource
import shutil
import unittest

import kit
from support import SANITIZED, SOURCE_ROOT, ToolTest

EXAMPLE = SOURCE_ROOT / "examples" / "brook-ledger"
OLD, NOW, NEW = 1_500_000_000, 1_600_000_000, 1_700_000_000


def ticks(seconds):
    return (seconds + 11644473600) * 10**7


def journal(*steps):
    """The journal of an installation that was killed in the middle of its last step."""
    records = ("t", "b", *steps, f"e{2 + len(steps)}")
    return (f"tpk install journal 2\nbegun {len(steps):010} {0:020}\n"
            f"{chr(0).join(records)}\0").encode()


class Install(ToolTest):
    def make(self, *files, name="kit.tpk", products=()):
        self.write(name, kit.write(kit.Kit(list(products), list(files))))

    def states(self, *arguments, code=0):
        lines = self.json("plan", "kit.tpk", "--to", "target", *arguments, code=code)
        return {line["path"]: line["state"] for line in lines[:-1]}, lines[-1]

    def test_the_example_is_installed_with_its_times(self):
        self.tpk("pack", EXAMPLE, "-o", "kit.tpk", code=0)
        self.tpk("install", "kit.tpk", "--to", "target/deeper", code=0)
        found = self.tree("target/deeper")
        self.assertEqual(len([name for name in found if not name.endswith("/")]), 57)
        for name, entry in found.items():
            if entry is not None:
                self.assertEqual(entry, ((EXAMPLE / "files" / name).read_bytes(), 1714982400), name)

    def test_a_second_installation_writes_nothing(self):
        self.tpk("pack", EXAMPLE, "-o", "kit.tpk", code=0)
        first = self.json("install", "kit.tpk", "--to", "target")[-1]
        self.assertEqual((first["files"], first["written"], first["kept"]), (57, 57, 0))
        before = {path: path.stat().st_ctime_ns for path in (self.work / "target").rglob("*")}
        second = self.json("install", "kit.tpk", "--to", "target")[-1]
        self.assertEqual((second["files"], second["written"], second["kept"]), (57, 0, 57))
        after = {path: path.stat().st_ctime_ns for path in (self.work / "target").rglob("*")}
        self.assertEqual(before, after)

    def test_older_files_are_replaced_and_equal_and_newer_ones_kept(self):
        names = ("older", "same", "newer", "missing")
        self.make(*(kit.File(f"d\\{name}", b"kit", ticks(NOW)) for name in names))
        for name, time in (("older", OLD), ("same", NOW), ("newer", NEW)):
            self.write(f"target/d/{name}", "user", time)
        states, result = self.states()
        self.assertEqual(states, {f"d/{name}": name for name in names})
        self.assertEqual([result[name] for name in (*names, "blocked")], [1, 1, 1, 1, 0])
        dry = self.json("install", "kit.tpk", "--to", "target", "-n")
        self.assertEqual([line["state"] for line in dry[:-1]], list(names))
        self.assertFalse((self.work / "target/d/missing").exists(), "a dry run writes nothing")
        self.tpk("install", "kit.tpk", "--to", "target", code=0)
        self.assertEqual(self.tree("target"), {
            "d/": None, "d/older": (b"kit", NOW), "d/same": (b"user", NOW),
            "d/newer": (b"user", NEW), "d/missing": (b"kit", NOW)})
        self.assertEqual(set(self.states()[0].values()), {"same", "newer"})

    def test_the_plan_tells_what_is_in_the_way(self):
        self.make(kit.File("d\\folder", b"x"), kit.File("file\\x", b"x"), kit.File("ok\\x", b"x"),
                  kit.File("e\\..\\..\\x", b"x"), kit.File("l\\x", b"x"))
        (self.work / "target/d/folder").mkdir(parents=True)
        self.write("target/file", "x")
        (self.work / "target/l").symlink_to("nowhere")
        lines = self.json("plan", "kit.tpk", "--to", "target", code=2)
        reasons = {line["path"]: line.get("reason", "") for line in lines[:-1]}
        self.assertEqual(reasons["d/folder"], "a folder is in the way")
        self.assertEqual(reasons["file/x"], f"{self.work}/target/file is not a folder")
        self.assertEqual(reasons["l/x"], f"{self.work}/target/l is a link that leads nowhere")
        self.assertIn("leads out", reasons["e/../../x"])
        self.assertEqual(reasons["ok/x"], "")

    def test_what_the_plan_calls_blocked_makes_the_installation_fail(self):
        obstacles = {
            "folder": lambda: (self.work / "target/d/x").mkdir(parents=True),
            "file": lambda: self.write("target/d", "x"),
            "link": lambda: ((self.work / "target").mkdir(),
                             (self.work / "target/d").symlink_to("nowhere")),
        }
        self.make(kit.File("a\\first", b"x"), kit.File("d\\x", b"x"), kit.File("z\\last", b"x"))
        for name, build in obstacles.items():
            shutil.rmtree(self.work / "target", ignore_errors=True)
            build()
            before = self.tree("target")
            states, result = self.states(code=3)
            self.assertEqual(states["d/x"], "blocked", name)
            run = self.tpk("install", "kit.tpk", "--to", "target", code=3)
            self.assertIn("everything is as it was", run.err)
            self.assertEqual(self.tree("target"), before, name)

    def test_a_failure_undoes_everything(self):
        data = os.urandom(2_000_000)
        self.make(kit.File("new\\deep\\x", b"x"), kit.File("d\\older", b"kit", ticks(NOW)),
                  kit.File("e\\large", data), kit.File("z\\last", b"x"))
        self.write("target/d/older", "user", OLD)
        self.write("target/d/other", "user", OLD)
        before = self.tree("target")
        run = self.tpk("install", "kit.tpk", "--to", "target", code=3, preexec_fn=lambda:
                       resource.setrlimit(resource.RLIMIT_FSIZE, (1_000_000, 1_000_000)))
        self.assertIn("File too large", run.err)
        self.assertEqual(self.tree("target"), before)

    def test_a_failure_removes_a_target_that_was_not_there(self):
        self.make(kit.File("d\\large", os.urandom(2_000_000)))
        self.tpk("install", "kit.tpk", "--to", "one/two/target", code=3, preexec_fn=lambda:
                 resource.setrlimit(resource.RLIMIT_FSIZE, (1_000_000, 1_000_000)))
        self.assertEqual(sorted(os.listdir(self.work)), ["kit.tpk"])

    def test_a_damaged_end_undoes_everything_and_ends_with_2(self):
        self.make(kit.File("d\\a", b"kit", ticks(NEW)), kit.File("d\\b", os.urandom(500_000)))
        data = (self.work / "kit.tpk").read_bytes()
        self.write("target/d/a", "user", OLD)
        before = self.tree("target")
        # Stored blocks with more than is inflated ahead, and one of a kind that does not exist.
        files = [kit.File("d\\a", b"kit", ticks(NEW)), kit.File("d\\b", size=9_000_000)]
        corrupt = b"\0" + kit.stored(kit.image(kit.Kit([], files)))[1:]
        corrupt += (b"\0" + kit.stored(bytes(60_000))[1:]) * 130 + b"\x07"
        for damaged, words in ((data[:-1000], "it ends before its files do"),
                               (corrupt, "its compressed data is corrupt")):
            self.write("kit.tpk", damaged)
            run = self.tpk("install", "kit.tpk", "--to", "target", code=2)
            self.assertIn(words, run.err)
            self.assertEqual(self.tree("target"), before)

    def test_dangerous_names_need_permission(self):
        self.make(kit.File("d\\$x", b"x"))
        self.assertIn("--allow-dangerous",
                      self.tpk("install", "kit.tpk", "--to", "target", code=2).err)
        self.assertFalse((self.work / "target").exists())
        self.tpk("install", "kit.tpk", "--to", "target", "--allow-dangerous", code=0)
        self.assertEqual((self.work / "target/d/$x").read_bytes(), b"x")

    def test_a_name_that_no_locale_can_express_cannot_be_allowed(self):
        self.make(kit.File("d\\\ud83d.txt", b"x"))
        for arguments in ([], ["--allow-dangerous"]):
            run = self.tpk("install", "kit.tpk", "--to", "target", *arguments, code=2)
            self.assertIn("no locale can express", run.err)

    def test_no_shell_ever_sees_a_name(self):
        self.make(kit.File("d\\`touch oops`.txt", b"x"), kit.File("d\\$(touch oops).txt", b"x"))
        self.environment["PATH"] = ""
        self.tpk("install", "kit.tpk", "--to", "target", "--allow-dangerous", code=0)
        self.assertFalse((self.work / "oops").exists())
        self.assertEqual(len(os.listdir(self.work / "target/d")), 2)

    def test_a_kit_in_any_order_installs_the_same(self):
        files = [kit.File("a\\x", b"", offset=5, size=3), kit.File("a\\y", b"", offset=0, size=5),
                 kit.File("a\\z", b"helloabc", offset=0)]
        self.make(*files)
        self.tpk("install", "kit.tpk", "--to", "target", code=0)
        self.assertEqual({name: entry[0] for name, entry in self.tree("target").items() if entry},
                         {"a/x": b"abc", "a/y": b"hello", "a/z": b"helloabc"})

    def test_tables_beyond_what_is_read_in_passing(self):
        """More than 64 MiB of tables: the image goes to the disk."""
        name = "d\\" + "n" * 240 + "\\" + "m" * 240 + "\\"
        self.make(*(kit.File(f"{name}{index:08}", b"") for index in range(70_000)))
        self.assertEqual(self.json("list", "kit.tpk")[-1]["files"], 70_000)

    def test_an_image_beyond_the_limit_is_found_by_verify(self):
        """4 GiB of zeros in a few megabytes: a block that is repeated."""
        import zlib
        deflater = zlib.compressobj(9, zlib.DEFLATED, -15)
        head = deflater.compress(kit.image(kit.Kit([], [kit.File("a\\b", b"")])))
        head += deflater.flush(zlib.Z_FULL_FLUSH)
        block = deflater.compress(bytes(2**26)) + deflater.flush(zlib.Z_FULL_FLUSH)
        self.write("kit.tpk", head + block * 64 + b"\x03\x00")
        lines = self.json("verify", "kit.tpk", code=2)
        self.assertIn("image-too-large", [line.get("code") for line in lines])

    def test_memory_stays_small_for_a_large_kit(self):
        os.truncate(self.write("top/d/a"), 400_000_000)
        self.write("top/d/b", "x")
        self.tpk("pack", "top", "-o", "kit.tpk", "--level", "1", code=0)
        before = resource.getrusage(resource.RUSAGE_CHILDREN).ru_maxrss
        self.tpk("install", "kit.tpk", "--to", "target", code=0)
        if not SANITIZED:
            peak = resource.getrusage(resource.RUSAGE_CHILDREN).ru_maxrss
            self.assertLess(peak, max(before, 32 * 1024) + 1)
            self.assertLess(peak, 40 * 1024)

    def test_a_target_that_the_engine_cannot_name_is_refused_with_the_reason(self):
        self.make(kit.File("d\\a", b"kit", ticks(NEW)))
        for name in ("\U0001f600", "\U00020000/t"):
            for command in (["plan"], ["install", "-n"], ["install"]):
                run = self.tpk(*command, "kit.tpk", "--to", name, code=3)
                self.assertIn("above U+FFFF", run.err)
        self.assertEqual(list(self.tree(".")), ["kit.tpk"])

    def test_a_target_whose_name_ends_in_a_backslash_is_installed_into(self):
        self.make(kit.File("d\\a", b"kit", ticks(NEW)))
        self.tpk("install", "kit.tpk", "--to", "target\\", code=0)
        self.assertEqual(sorted(self.tree(".")), ["kit.tpk", "target\\/", "target\\/d/", "target\\/d/a"])

    def test_what_is_replaced_stays_on_the_volume_of_the_target(self):
        """With a temporary directory that is gone, an existing target still does."""
        self.make(kit.File("d\\a", b"kit", ticks(NEW)))
        self.write("target/d/a", "user", OLD)
        self.environment["TMPDIR"] = "/nonexistent"
        self.tpk("install", "kit.tpk", "--to", "target", code=0)
        self.assertEqual(self.tree("target"), {"d/": None, "d/a": (b"kit", NEW)})

    def test_a_temporary_directory_whose_name_is_no_text_is_not_needed(self):
        self.make(kit.File("d\\b", b"kit", ticks(NEW), offset=3), kit.File("d\\a", b"kit", ticks(NEW), offset=0))
        self.environment["TMPDIR"] = os.fsdecode(os.fsencode(self.root / "tmp") + b"\xff")
        os.mkdir(self.environment["TMPDIR"])
        for arguments in (["list", "kit.tpk"], ["diff", "kit.tpk", "kit.tpk"], ["install", "kit.tpk", "--to", "target"]):
            self.tpk(*arguments, code=0)

    def test_what_a_killed_run_left_is_undone_by_the_next(self):
        self.make(kit.File("d\\old", b"kit", ticks(NEW)), kit.File("d\\new", b"kit", ticks(NEW)))
        self.write("target/d/old", "user", OLD)
        self.write("target/d/kept", "user", OLD)
        before = self.tree("target")
        for verb in (["plan"], ["install", "-n"], ["install"]):
            self.tpk("install", "kit.tpk", "--to", "target", code=0)
            after = self.tree("target")
            # As if it had been killed behind its last file.
            self.write("target/.tpk-install/staged/0", "user", OLD)
            self.write("target/.tpk-install/journal", journal("r0:d/old", f"f0:3:{NEW}:d/old", f"f1:3:{NEW}:d/new"))
            killed = self.tree("target")
            *_, note, result = self.json(*verb, "kit.tpk", "--to", "target")
            if verb == ["install"]:
                self.assertEqual(note["type"], "note")
                self.assertIn("was interrupted; what it had done was undone", note["message"])
                self.assertEqual((result["written"], result["kept"]), (2, 0))
                self.assertEqual(self.tree("target"), after)
            else:
                self.assertIn("the next one undoes it first", note["message"])
                self.assertEqual(self.tree("target"), killed, "only looked at")
                self.write("cut.tpk", (self.work / "kit.tpk").read_bytes()[:-4])
                run = self.tpk("install", "cut.tpk", "--to", "target", code=2)
                self.assertIn("note: an installation into this folder was interrupted", run.err)
                self.assertEqual(self.tree("target"), before)

    def test_a_journal_that_makes_no_sense_stops_everything(self):
        self.make(kit.File("d\\new", b"kit"))
        self.write("target/d/new", "user", OLD)
        for nonsense in (b"", journal("f0:0:0:../new"), b"something else"):
            self.write("target/.tpk-install/journal", nonsense)
            before = self.tree("target")
            (error,) = self.json("install", "kit.tpk", "--to", "target", code=3)
            self.assertEqual(error["code"], "journal")
            self.assertIn("nothing was touched", error["hint"])
            self.assertEqual(self.tree("target"), before)
        shutil.rmtree(self.work / "target")

    def test_a_second_installation_into_the_same_folder_is_refused(self):
        self.make(kit.File("d\\new", b"kit"))
        self.write("target/.tpk-install/journal", journal("f0:4:1700000000:d/new"))
        self.write("target/d/new", "half")
        before = self.tree("target")
        with open(self.work / "target/.tpk-install/lock", "w") as lock:
            fcntl.flock(lock, fcntl.LOCK_EX)
            (error,) = self.json("install", "kit.tpk", "--to", "target/../target", code=3)
            self.assertEqual(error["code"], "busy")
            self.assertIn("another installation into this folder is running", error["message"])
            found = self.tree("target")
            del found[".tpk-install/lock"]
            self.assertEqual(found, before)
        self.tpk("install", "kit.tpk", "--to", "target", code=0)
        self.assertEqual(self.tree("target")["d/new"][0], b"kit")

    def test_without_room_for_a_journal_nothing_is_begun(self):
        self.make(kit.File("d\\old", b"kit", ticks(NEW)))
        self.write("target/d/old", "user", OLD)
        before = self.tree("target")
        run = self.tpk("install", "kit.tpk", "--to", "target", code=3, preexec_fn=lambda:
                       resource.setrlimit(resource.RLIMIT_FSIZE, (10, 10)))
        self.assertIn("journal.new: File too large", run.err)
        self.assertEqual(self.tree("target"), before)

    def test_a_kit_cannot_write_into_the_place_of_its_installation(self):
        self.make(kit.File(".tpk-install\\journal", b"x"))
        for arguments in ([], ["--allow-dangerous"]):
            run = self.tpk("install", "kit.tpk", "--to", "target", *arguments, code=2)
            self.assertIn("keeps", run.err)
            self.assertFalse((self.work / "target").exists())


class VerifyAgainst(ToolTest):
    def test_every_difference_is_named(self):
        files = [kit.File(f"d\\{name}", b"kit", ticks(NOW))
                 for name in ("same", "bytes", "size", "older", "newer", "missing", "folder", "part")]
        files[-1].time += 5
        self.write("kit.tpk", kit.write(kit.Kit([], files)))
        for name, data, time in (("same", "kit", NOW), ("bytes", "KIT", NOW), ("size", "kits", NOW),
                                 ("older", "kit", OLD), ("newer", "kit", NEW), ("part", "kit", NOW),
                                 ("extra", "x", NOW)):
            self.write(f"target/d/{name}", data, time)
        (self.work / "target/d/folder").mkdir()
        lines = self.json("verify", "kit.tpk", "--against", "target", code=2)
        self.assertEqual({line["path"]: line["difference"] for line in lines[:-1]}, {
            "d/bytes": "contents", "d/size": "contents", "d/older": "older", "d/newer": "newer",
            "d/missing": "missing", "d/folder": "unreadable"})
        self.assertEqual((lines[-1]["files"], lines[-1]["different"]), (8, 6))

    def test_what_was_installed_is_as_in_the_kit(self):
        self.tpk("pack", EXAMPLE, "-o", "kit.tpk", code=0)
        self.tpk("install", "kit.tpk", "--to", "target", code=0)
        self.tpk("verify", "kit.tpk", "--against", "target", code=0)
        path = self.work / "target/tables/loans.csv"
        data = bytearray(path.read_bytes())
        data[-1] ^= 1
        path.write_bytes(data)
        os.utime(path, (1714982400, 1714982400))
        lines = self.json("verify", "kit.tpk", "--against", "target", code=2)
        self.assertEqual(lines[0]["path"], "tables/loans.csv")


if __name__ == "__main__":
    unittest.main()
