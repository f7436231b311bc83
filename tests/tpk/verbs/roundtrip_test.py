"""Random kits and random trees: the tool and the second reader must agree on all of them."""
import shutil
import unittest

import kit
from support import ToolTest, seeded

CHARACTERS = "abcXYZ019 ._-()[]{}!#%&+,;=@^~'äöüßéñçøşžčњиёћғөүჰ漢字ひらガナ한국"
ROUNDS = 40


class RandomKits(ToolTest):
    def setUp(self):
        super().setUp()
        self.random = seeded()

    def part(self):
        while True:
            text = "".join(self.random.choices(CHARACTERS, k=self.random.randint(1, 12)))
            if text not in (".", ".."):
                return text

    def data(self):
        size = self.random.choice([0, 1, 100, 5000, 40_000, 300_000])
        size = self.random.randint(0, size)
        if self.random.random() < 0.5:
            return self.random.randbytes(size)
        return (self.part() * 30_000).encode()[:size]

    def names(self, count):
        """Names without conflicts: no file is a folder of another, also in other letters."""
        names = {}
        for _ in range(count):
            folders = [self.part() + "_d" for _ in range(self.random.randint(0, 3))]
            name = "\\".join([*folders, self.part() + "_f"])
            names[name.lower()] = name
        return list(names.values())

    def random_kit(self):
        made = kit.Kit(single=self.random.random() < 0.3)
        if made.single:
            made.products = [kit.Product("en", self.part(), self.part(), "")]
        else:
            for language in self.random.sample(["en", "de", "ru", "xx", "EN2"],
                                               self.random.randint(0, 4)):
                made.products.append(kit.Product(language, self.part(), self.part(), "", surplus=(
                    self.random.randbytes(self.random.randint(0, 9)))))
        size = 0
        for name in self.names(self.random.randint(0, 25)):
            # Times of this millennium and the next, whole seconds as a disk keeps them.
            time = 10**7 * (self.random.randint(0, 3_000_000_000) + 11644473600)
            file = kit.File(name, self.data(), time,
                            self.random.randbytes(self.random.randint(0, 5)))
            if size and self.random.random() < 0.1:  # shares bytes of the files before it
                file.data = b""
                file.offset = self.random.randrange(size)
                file.size = self.random.randint(0, size - file.offset)
            size += len(file.data)
            made.files.append(file)
        return made

    def test_the_tool_reads_what_the_second_writer_writes(self):
        for _ in range(ROUNDS):
            data = kit.write(self.random_kit(), self.random.randint(0, 9))
            self.write("kit.tpk", data)
            expected = kit.read(data)
            listed = self.json("list", "kit.tpk")[:-1]
            self.assertEqual([line["name"] for line in listed], [f.name for f in expected.files])
            self.assertEqual([line["size"] for line in listed], [f.size for f in expected.files])
            info = self.json("info", "kit.tpk")
            self.assertEqual(
                [(line["language"], line["name"], line["provider"]) for line in info[:-1]],
                [(p.language, p.name, p.provider) for p in expected.products])
            self.assertEqual(info[-1]["form"], "single" if expected.single else "table")
            errors = [line for line in self.json("verify", "kit.tpk")[:-1]
                      if line["severity"] == "error"]
            self.assertEqual(errors, [])
            self.tpk("install", "kit.tpk", "--to", "installed", code=0)
            self.tpk("extract", "kit.tpk", "--plain", "-o", "extracted", code=0)
            wanted = {f.name.replace("\\", "/"): (f.data, f.time // 10**7 - 11644473600)
                      for f in expected.files}
            for place in ("installed", "extracted"):
                found = {name: entry for name, entry in self.tree(place).items() if entry}
                self.assertEqual(found, wanted, place)
                shutil.rmtree(self.work / place, ignore_errors=True)

    def test_the_second_reader_reads_what_the_tool_writes(self):
        for _ in range(ROUNDS):
            shutil.rmtree(self.work / "top", ignore_errors=True)
            (self.work / "top").mkdir()
            wanted = {}
            for name in self.names(self.random.randint(0, 25)):
                data, time = self.data(), self.random.randint(0, 3_000_000_000)
                self.write("top/" + name.replace("\\", "/"), data, time)
                wanted[name] = (data, (time + 11644473600) * 10**7)
            product = kit.Product("en", self.part(), self.part(), self.part())
            self.tpk("pack", "top", "-o", "kit.tpk", "-f", "--level", self.random.randint(0, 9),
                     "--name", product.name, "--provider=" + product.provider,
                     "--description=" + product.description, code=0)
            found = kit.read((self.work / "kit.tpk").read_bytes())
            self.assertEqual(found.products, [product])
            self.assertEqual({f.name: (f.data, f.time) for f in found.files}, wanted)
            names = [f.name.encode("utf-16-be") for f in found.files]
            self.assertEqual(names, sorted(names), "sorted by code units")

    def test_damaged_kits_end_in_order(self):
        """Any byte may be wrong: the run ends with 0 or 2, and leaves nothing behind."""
        made = kit.image(self.random_kit())
        for _ in range(ROUNDS):
            data = bytearray(made)
            for _ in range(self.random.randint(1, 4)):
                data[self.random.randrange(min(len(data), 400))] = self.random.randrange(256)
            packed = bytearray(kit.stored(bytes(data)))
            if self.random.random() < 0.3:
                del packed[self.random.randrange(len(packed)) :]
            self.write("kit.tpk", bytes(packed))
            for verb in ("list", "verify", "info"):
                self.assertIn(self.tpk(verb, "kit.tpk").code, (0, 2))
            run = self.tpk("install", "kit.tpk", "--to", "target")
            self.assertIn(run.code, (0, 2, 3), run)
            if run.code != 0:
                self.assertFalse((self.work / "target").exists(), run)
            shutil.rmtree(self.work / "target", ignore_errors=True)


if __name__ == "__main__":
    unittest.main()
