"""pack, init, extract, diff: what they take, what they refuse, and that kits are reproducible."""
import os
import random
import resource
import shutil
import unittest

import kit
from support import SANITIZED, SOURCE_ROOT, ToolTest

EXAMPLE = SOURCE_ROOT / "examples" / "brook-ledger"
FULL = 'format = 1\n[[product]]\nlanguage = "en"\nname = "N"\ndescription = "d/a.txt"\n'


class Pack(ToolTest):
    def packed(self, *arguments, code=0):
        self.tpk("pack", *arguments, "-o", "kit.tpk", "--force", code=code)
        return kit.read((self.work / "kit.tpk").read_bytes())

    def findings(self, *arguments, code=0):
        lines = self.json("pack", *arguments, "-o", "kit.tpk", code=code)
        return [(line["severity"], line["code"]) for line in lines if line["type"] == "finding"]

    def test_a_folder_without_manifest_takes_the_texts_from_options(self):
        self.write("top/d/b.txt", "b", time=1706933106)
        self.write("top/d/A.txt", "a", time=1)
        packed = self.packed("top", "--name", "Счёт", "--provider", "P", "--description", "d/b.txt")
        self.assertTrue(packed.single)
        self.assertEqual(packed.products, [kit.Product("en", "Счёт", "P", "d\\b.txt")])
        self.assertEqual([(file.name, file.data, file.time) for file in packed.files],
                         [("d\\A.txt", b"a", 116444736010000000),
                          ("d\\b.txt", b"b", 133514067060000000)])

    def test_a_manifest_in_the_folder_is_used_and_not_packed(self):
        self.write("top/kit.toml", FULL)
        self.write("top/d/a.txt", "a")
        packed = self.packed("top")
        self.assertEqual([file.name for file in packed.files], ["d\\a.txt"])
        self.assertEqual(packed.products[0].description, "d\\a.txt")
        self.assertEqual(len(self.packed("top/kit.toml").files), 1)
        self.assertEqual(len(self.packed("top", "--no-manifest").files), 2)
        run = self.tpk("pack", "top", "--name", "x", "-o", "y", code=1)
        self.assertIn("--no-manifest", run.err)

    def test_a_kit_in_its_own_folder_is_not_packed(self):
        self.write("top/d/a.txt", "a")
        for _ in range(2):
            self.tpk("pack", "top", "-o", "top/d/kit.tpk", "-f", code=0)
            names = [file.name for file in kit.read((self.work / "top/d/kit.tpk").read_bytes()).files]
            self.assertEqual(names, ["d\\a.txt"])

    def test_a_manifest_in_the_current_folder_needs_no_root(self):
        self.write("kit.toml", FULL)
        self.write("d/a.txt", "a")
        self.assertEqual([file.name for file in self.packed("kit.toml").files], ["d\\a.txt"])

    def test_what_a_killed_run_left_in_the_folder_is_not_packed(self):
        self.write("top/d/a.txt", "a")
        self.write("top/.tpk-abc123", "half a kit")
        self.tpk("pack", "top", "-o", "top/kit.tpk", code=0)
        names = [file.name for file in kit.read((self.work / "top/kit.tpk").read_bytes()).files]
        self.assertEqual(names, ["d\\a.txt"])

    def test_an_excluded_folder_is_not_looked_at(self):
        self.write("top/kit.toml", FULL + '[files]\nexclude = [".git/", "**/loop/"]\n')
        self.write("top/d/a.txt", "a")
        (self.work / "top/.git/refs").mkdir(parents=True)
        (self.work / "top/d/loop").symlink_to("..")
        self.assertEqual(self.findings("top"), [])

    def test_mistakes_in_a_manifest_are_all_told_with_their_places(self):
        self.write("top/kit.toml", 'format = 1\n[kit]\nfrom = "table"\n[files]\nexlude = []\n')
        run = self.tpk("pack", "top", "-o", "kit.tpk", code=1)
        self.assertIn('top/kit.toml:3:1: [kit] has no key "from"; did you mean "form"?', run.err)
        self.assertIn('top/kit.toml:5:1: [files] has no key "exlude"; did you mean "exclude"?',
                      run.err)

    def test_patterns_choose_and_rules_set_times(self):
        self.write("top/kit.toml", FULL + '[files]\ninclude = ["d/", "*.xml"]\nexclude = ["*.bak"]\n'
                   '[[time]]\nfiles = "*.xml"\ntime = "1601-01-01T00:00:01Z"\n')
        for name in ("d/a.txt", "d/a.bak", "x/y.xml", "x/y.txt"):
            self.write(f"top/{name}", "x", time=5)
        self.assertEqual([(file.name, file.time) for file in self.packed("top").files],
                         [("d\\a.txt", 116444736050000000), ("x\\y.xml", 10000000)])

    def test_every_level_unpacks_to_the_same(self):
        sizes = []
        for level in range(10):
            sizes.append(os.path.getsize(self.pack_example(level)))
            found = kit.read((self.work / f"{level}.tpk").read_bytes())
            self.assertEqual(len(found.files), 57)
        self.assertGreater(sizes[0], sizes[1])
        self.assertGreater(sizes[1], sizes[9])

    def pack_example(self, level):
        self.tpk("pack", EXAMPLE, "-o", f"{level}.tpk", "--level", level, code=0)
        return self.work / f"{level}.tpk"

    def test_the_findings_of_pack(self):
        self.write("top/kit.toml", FULL + '[files]\ninclude = ["**", "*.nothing"]\n')
        self.write("top/d/a.txt", "a")
        self.assertEqual(self.findings("top"), [("warning", "pattern-unused")])
        os.remove(self.work / "kit.tpk")
        (self.work / "top/e/empty").mkdir(parents=True)
        self.assertIn(("warning", "folder-empty"), self.findings("top"))
        self.assertEqual(self.tpk("pack", "top", "-o", "s.tpk", "--strict").code, 2)
        self.assertFalse((self.work / "s.tpk").exists())

    def test_names_that_no_kit_can_hold_are_errors(self):
        for name, code in ((b"a\\b.txt", "name-backslash"), (b"bad\xff.txt", "name-not-text"),
                           (b"say $HOME.txt", "name-shell"),
                           ("\U0001f600.txt".encode(), "name-not-text")):
            shutil.rmtree(self.work / "top", ignore_errors=True)
            (self.work / "top/d").mkdir(parents=True)
            with open(os.path.join(os.fsencode(self.work), b"top/d", name), "wb"):
                pass
            self.assertIn(("error", code), self.findings("top", code=2))
            self.assertFalse((self.work / "kit.tpk").exists())

    def test_names_that_are_no_text_are_found_once_each(self):
        self.write("top/d/a.txt")
        for name in (b"bad\xff.txt", b"bad\xfe.txt"):
            with open(os.path.join(os.fsencode(self.work), b"top/d", name), "wb"):
                pass
        self.assertEqual(self.findings("top", code=2), [("error", "name-not-text")] * 2)

    def test_four_gigabytes_are_too_much_and_found_out_at_once(self):
        path = self.write("top/d/sparse")
        os.truncate(path, 2**32)
        self.assertIn(("error", "image-too-large"), self.findings("top", code=2))

    def test_an_existing_kit_is_replaced_only_by_force(self):
        self.write("top/d/a.txt", "a")
        self.write("kit.tpk", "precious")
        run = self.tpk("pack", "top", "-o", "kit.tpk", code=1)
        self.assertIn("--force", run.err)
        self.assertEqual((self.work / "kit.tpk").read_bytes(), b"precious")
        self.tpk("pack", "top", "-o", "kit.tpk", "--force", code=0)
        kit.read((self.work / "kit.tpk").read_bytes())

    def test_a_dry_run_writes_nothing_and_finds_everything(self):
        self.write("top/a.txt", "a")
        lines = self.json("pack", "top", "-o", "kit.tpk", "-n")
        self.assertEqual(lines[0]["code"], "file-at-root")
        self.assertTrue(lines[-1]["dry_run"])
        self.assertFalse((self.work / "kit.tpk").exists())

    def test_what_cannot_be_read_or_written_ends_with_3(self):
        self.write("top/d/a.txt", "a")
        self.assertEqual(self.tpk("pack", "nowhere", "-o", "kit.tpk").code, 3)
        self.assertEqual(self.tpk("pack", "top", "-o", "nowhere/kit.tpk").code, 3)
        self.assertEqual(self.tpk("pack", "top", "-o", "top").code, 3)
        os.mkfifo(self.work / "top/d/pipe")
        self.assertIn("neither a file nor a folder",
                      self.tpk("pack", "top", "-o", "kit.tpk", code=3).err)

    def test_a_full_disk_leaves_nothing(self):
        self.write("top/d/a.bin", os.urandom(3_000_000))
        run = self.tpk("pack", "top", "-o", "kit.tpk", code=3, preexec_fn=lambda: resource.setrlimit(
            resource.RLIMIT_FSIZE, (1_000_000, 1_000_000)))
        self.assertIn("cannot write kit.tpk", run.err)
        self.assertFalse((self.work / "kit.tpk").exists())

    def test_source_date_epoch_limits_times(self):
        self.write("top/d/old.txt", "a", time=1000)
        self.write("top/d/new.txt", "a", time=2_000_000_000)
        self.environment["SOURCE_DATE_EPOCH"] = "1500000000"
        times = {file.name: file.time // 10**7 - 11644473600 for file in self.packed("top").files}
        self.assertEqual(times, {"d\\old.txt": 1000, "d\\new.txt": 1500000000})
        for wrong in ("", "x", "-1", "1e9", "99999999999999"):
            self.environment["SOURCE_DATE_EPOCH"] = wrong
            self.assertIn("SOURCE_DATE_EPOCH", self.tpk("pack", "top", "-o", "x", code=1).err)

    def test_the_same_files_make_the_same_kit_wherever_they_lie(self):
        self.environment["SOURCE_DATE_EPOCH"] = "1500000000"
        order = [f"d{n % 7}/ф{n}.txt" for n in range(60)]
        for top, umask, seed in (("one", 0o22, 1), ("two/deeper", 0o77, 2)):
            random.Random(seed).shuffle(order)  # the order in which a disk lists them
            before = os.umask(umask)
            for name in order:
                self.write(f"{top}/{name}", name * 50, time=1_600_000_000 + seed)
            os.umask(before)
            self.environment["HOME"] = str(self.root / "home" / str(seed))
            self.environment["TZ"] = "Asia/Tokyo" if seed == 2 else "UTC"
            self.tpk("pack", top, "-o", f"{seed}.tpk", code=0)
        self.assertEqual((self.work / "1.tpk").read_bytes(), (self.work / "2.tpk").read_bytes())

    def test_links_are_followed(self):
        self.write("elsewhere/x.txt", "x")
        (self.work / "top").mkdir()
        (self.work / "top/folder").symlink_to(self.work / "elsewhere")
        self.assertEqual([file.name for file in self.packed("top").files], ["folder\\x.txt"])

    def test_memory_stays_small_for_a_tree_of_a_gigabyte(self):
        for index in range(4):
            os.truncate(self.write(f"top/d/{index}"), 2**28)
        for index in range(3000):
            self.write(f"top/e{index % 50}/{index}.txt", "x" * 300)
        process = self.start("pack", "top", "-o", "kit.tpk", "--level", "1")
        process.communicate()
        self.assertEqual(process.returncode, 0)
        if not SANITIZED:
            peak = resource.getrusage(resource.RUSAGE_CHILDREN).ru_maxrss
            self.assertLess(peak, 64 * 1024)


class Init(ToolTest):
    def test_it_writes_a_manifest_that_pack_takes(self):
        shutil.copytree(EXAMPLE / "files", self.work / "brook")
        self.tpk("init", "brook", code=0)
        text = (self.work / "brook/kit.toml").read_text()
        for line in ('root = "."', 'language = "de"', 'name = "brook"',
                     'description = "about/about_ru.html"'):
            self.assertIn(line, text)
        self.tpk("pack", "brook", "-o", "kit.tpk", "--strict", code=0)
        self.assertEqual(len(kit.read((self.work / "kit.tpk").read_bytes()).files), 57)

    def test_the_manifest_may_lie_elsewhere(self):
        self.write("a/b/d/x.txt", "x")
        (self.work / "c").mkdir()
        self.tpk("init", "a/b", "-o", "c/kit.toml", code=0)
        self.assertIn('root = "../a/b"', (self.work / "c/kit.toml").read_text())
        self.tpk("pack", "c/kit.toml", "-o", "kit.tpk", code=0)

    def test_it_replaces_a_manifest_only_by_force_and_shows_it_on_a_dry_run(self):
        self.write("a/kit.toml", "precious")
        self.assertEqual(self.tpk("init", "a").code, 1)
        self.assertEqual((self.work / "a/kit.toml").read_text(), "precious")
        self.assertIn("format = 1", self.tpk("init", "a", "-n", "--force", code=0).out)
        self.assertEqual((self.work / "a/kit.toml").read_text(), "precious")
        self.tpk("init", "a", "--force", code=0)
        self.assertIn("format = 1", (self.work / "a/kit.toml").read_text())

    def test_a_dry_run_with_json_carries_the_manifest(self):
        self.write("a/d/x.txt", "x")
        (line,) = self.json("init", "a", "-n")
        self.tpk("init", "a", code=0)
        self.assertEqual(line["text"], (self.work / "a/kit.toml").read_text())

    def test_a_folder_whose_name_is_no_text_gets_a_manifest_all_the_same(self):
        folder = os.path.join(os.fsencode(self.work), b"bad\xff")
        os.makedirs(os.path.join(folder, b"d"))
        with open(os.path.join(folder, b"d/x.txt"), "wb"):
            pass
        self.tpk("init", os.fsdecode(folder), code=0)
        self.tpk("pack", os.fsdecode(folder), "-o", "kit.tpk", code=0)

    def test_a_name_with_quotes_is_quoted(self):
        self.write('say "hi"/d/x.txt', "x")
        self.tpk("init", 'say "hi"', code=0)
        self.assertIn(r'name = "say \"hi\""', (self.work / 'say "hi"/kit.toml').read_text())


class Extract(ToolTest):
    def setUp(self):
        super().setUp()
        self.write("top/d/a.txt", "a", time=1_600_000_000)
        self.write("top/e/f/b.bin", bytes(range(256)) * 40, time=1_600_000_001)
        self.write("top/e/empty", b"", time=1_600_000_002)
        self.tpk("pack", "top", "-o", "kit.tpk", "--name", "N", code=0)

    def test_extracting_and_packing_gives_the_identical_kit(self):
        for level in ("0", "1", "6", "9"):
            for source in (EXAMPLE, "top"):
                self.tpk("pack", source, "-o", "one.tpk", "-f", "--level", level, code=0)
                shutil.rmtree(self.work / "out", ignore_errors=True)
                self.tpk("extract", "one.tpk", "-o", "out", code=0)
                self.tpk("pack", "out", "-o", "two.tpk", "-f", code=0)
                self.assertEqual((self.work / "one.tpk").read_bytes(),
                                 (self.work / "two.tpk").read_bytes(), (level, source))

    def test_odd_times_and_names_survive(self):
        files = [kit.File("a*b?[c].txt", b"1", time=0), kit.File("d\\e.txt", b"2", time=2**64 - 1),
                 kit.File("d\\f.txt", b"3", time=133514067060000005)]
        products = [kit.Product("en", 'quo"te\\', "tab\t", "d\\e.txt"), kit.Product("ru", "Ручей")]
        self.write("odd.tpk", kit.write(kit.Kit(products, files)))
        self.tpk("extract", "odd.tpk", "-o", "out", code=0)
        self.tpk("pack", "out", "-o", "again.tpk", code=0)
        self.assertEqual((self.work / "odd.tpk").read_bytes(), (self.work / "again.tpk").read_bytes())

    def test_thousands_of_odd_times_survive(self):
        files = [kit.File(f"d{i // 100:03}\\{'long name ' * 8}{i:05}.txt", time=133514067060000001 + i)
                 for i in range(8000)]
        self.write("odd.tpk", kit.write(kit.Kit([kit.Product("en")], files)))
        self.tpk("extract", "odd.tpk", "-o", "out", code=0)
        self.assertGreater((self.work / "out/kit.toml").stat().st_size, 2**20)
        self.tpk("pack", "out", "-o", "again.tpk", code=0)
        self.assertEqual(kit.read((self.work / "odd.tpk").read_bytes()),
                         kit.read((self.work / "again.tpk").read_bytes()))

    def test_a_kit_from_another_tool_says_so(self):
        data = kit.image(kit.Kit([kit.Product("en")], [kit.File("a\\b", b"abc" * 1000)]))
        blocks = [data[at : at + 700] for at in range(0, len(data), 700)]
        foreign = b"".join(b"\0" + kit.stored(block)[1:] for block in blocks[:-1])
        self.write("other.tpk", foreign + kit.stored(blocks[-1]))
        self.assertIn("another tool", self.tpk("extract", "other.tpk", "-o", "b", code=0).err)

    def test_patterns_choose_files_and_leave_out_the_manifest(self):
        self.tpk("extract", "kit.tpk", "d/", "*.bin", "-o", "out", code=0)
        self.assertEqual(sorted(self.tree("out")), ["d/", "d/a.txt", "e/", "e/f/", "e/f/b.bin"])
        self.assertEqual(self.tpk("extract", "kit.tpk", "*.nothing", "-o", "x").code, 1)
        self.tpk("extract", "kit.tpk", "--plain", "-o", "plain", code=0)
        self.assertEqual(self.tree("plain"), self.tree("top"))

    def test_an_existing_folder_is_written_into_only_by_force(self):
        self.write("out/files/d/a.txt", "old")
        self.write("out/mine.txt", "mine")
        before = self.tree("out")
        self.assertIn("--force", self.tpk("extract", "kit.tpk", "-o", "out", code=1).err)
        self.assertEqual(self.tree("out"), before)
        self.tpk("extract", "kit.tpk", "-o", "out", "--force", code=0)
        after = self.tree("out")
        self.assertEqual(after["files/d/a.txt"][0], b"a")
        self.assertEqual(after["mine.txt"], before["mine.txt"])

    def test_what_is_in_the_way_is_found_before_anything_is_changed(self):
        for obstacle in ("out/files/e", "out/files/d/a.txt/x"):
            shutil.rmtree(self.work / "out", ignore_errors=True)
            self.write("out/files/d/b.txt", "b")
            self.write(obstacle, "in the way")
            before = self.tree("out")
            run = self.tpk("extract", "kit.tpk", "-o", "out", "--force", code=3)
            self.assertIn("is in its place", run.err)
            self.assertEqual(self.tree("out"), before)

    def test_a_new_folder_may_be_named_with_a_dot_at_its_end(self):
        for place in ("a/.", "b/./"):
            self.tpk("extract", "kit.tpk", "-o", place, code=0)
            self.assertIn("kit.toml", self.tree(place))

    def test_an_empty_folder_is_no_obstacle(self):
        (self.work / "out").mkdir()
        self.tpk("extract", "kit.tpk", "-o", "out/", code=0)
        self.assertIn("kit.toml", self.tree("out"))

    def test_a_dry_run_writes_nothing(self):
        self.tpk("extract", "kit.tpk", "-o", "out", "-n", code=0)
        self.assertFalse((self.work / "out").exists())

    def test_a_failure_leaves_nothing(self):
        data = (self.work / "kit.tpk").read_bytes()
        self.write("cut.tpk", data[: len(data) * 3 // 4])
        self.assertEqual(self.tpk("extract", "cut.tpk", "-o", "out").code, 2)
        self.assertFalse((self.work / "out").exists())
        run = self.tpk("extract", "kit.tpk", "-o", "out", code=3, preexec_fn=lambda:
                       resource.setrlimit(resource.RLIMIT_FSIZE, (5000, 5000)))
        self.assertIn("cannot extract e/f/b.bin: File too large", run.err)
        self.assertFalse((self.work / "out").exists())

    def test_dangerous_names_need_permission(self):
        self.write("bad.tpk", kit.write(kit.Kit([], [kit.File("d\\$x.txt", b"x"),
                                                     kit.File("e\\..\\f.txt", b"y")])))
        self.assertEqual(self.tpk("extract", "bad.tpk", "-o", "out").code, 2)
        self.assertFalse((self.work / "out").exists())
        self.tpk("extract", "bad.tpk", "-o", "out", "--plain", "--allow-dangerous", code=0)
        self.assertEqual((self.work / "out/d/$x.txt").read_bytes(), b"x")

    def test_a_name_from_the_root_of_the_disk_stays_below_the_folder(self):
        place = f"{self.work}/elsewhere/x"
        self.write("bad.tpk", kit.write(kit.Kit([], [kit.File(place.replace("/", "\\"), b"x")])))
        self.tpk("extract", "bad.tpk", "-o", "out", "--plain", "--allow-dangerous", code=0)
        self.assertFalse(os.path.exists(place))
        self.tpk("verify", "bad.tpk", "--against", "out", code=0)
        self.tpk("install", "bad.tpk", "--to", "target", "--allow-dangerous", code=0)
        self.assertEqual(self.tree("target"), self.tree("out"))
        self.tpk("verify", "bad.tpk", "--against", "target", code=0)


class Diff(ToolTest):
    def changes(self, before, after):
        self.write("a.tpk", kit.write(before))
        self.write("b.tpk", kit.write(after))
        lines = self.json("diff", "a.tpk", "b.tpk")
        self.assertEqual(lines[-1]["changes"], len(lines) - 1)
        self.assertEqual(self.tpk("diff", "a.tpk", "b.tpk", "--exit-code").code,
                         2 if len(lines) > 1 else 0)
        return lines[:-1]

    def test_it_tells_files_apart_by_bytes_and_time(self):
        T = 133514067060000000
        before = kit.Kit([kit.Product("en")], [kit.File("a\\same", b"x"), kit.File("a\\gone", b"x"),
                                              kit.File("a\\bytes", b"abc"), kit.File("a\\size", b"a"),
                                              kit.File("a\\time", b"x", T)])
        after = kit.Kit([kit.Product("en")], [kit.File("a\\time", b"x", T + 10**7),
                                             kit.File("a\\size", b"ab"), kit.File("a\\bytes", b"abd"),
                                             kit.File("a\\new", b""), kit.File("a\\same", b"x")])
        found = {line["path"]: line for line in self.changes(before, after)}
        self.assertEqual({path: line["change"] for path, line in found.items()}, {
            "a/gone": "removed", "a/new": "added", "a/bytes": "changed", "a/size": "changed",
            "a/time": "changed"})
        self.assertTrue(found["a/bytes"]["contents"])
        self.assertFalse(found["a/time"]["contents"])
        self.assertEqual(found["a/size"]["size"], [1, 2])
        run = self.tpk("diff", "a.tpk", "b.tpk", code=0)
        self.assertIn("same time: not installed over the old one", run.out)

    def test_it_tells_products_apart(self):
        before = kit.Kit([kit.Product("en", "A", "P", "d"), kit.Product("de", "A")], [])
        after = kit.Kit([kit.Product("en", "B", "P", "d"), kit.Product("ru", "A")], [])
        found = [(line["language"], line["field"], line["before"], line["after"])
                 for line in self.changes(before, after)]
        self.assertEqual(found, [("de", "language", "de", ""), ("de", "name", "A", ""),
                                 ("en", "name", "A", "B"),
                                 ("ru", "language", "", "ru"), ("ru", "name", "", "A")])

    def test_it_tells_broken_names_apart(self):
        found = self.changes(kit.Kit([], [kit.File("a\\\ud800")]), kit.Kit([], [kit.File("a\\\ud801")]))
        self.assertEqual([line["change"] for line in found], ["removed", "added"])

    def test_large_files_are_compared_to_their_ends(self):
        data = bytearray(os.urandom(5_000_000))
        before = kit.Kit([], [kit.File("a", bytes(data)), kit.File("b", b"x")])
        data[-1] ^= 1
        after = kit.Kit([], [kit.File("b", b"x"), kit.File("a", bytes(data))])
        (line,) = self.changes(before, after)
        self.assertEqual((line["path"], line["contents"]), ("a", True))


if __name__ == "__main__":
    unittest.main()
