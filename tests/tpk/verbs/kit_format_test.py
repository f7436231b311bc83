"""The example in docs/kit-format.md is what it says it is."""
import re
import unittest

import kit
from support import SOURCE_ROOT, ToolTest

DOCUMENT = (SOURCE_ROOT / "docs" / "kit-format.md").read_text()


def dump(name):
    """The bytes of a hex dump, checked for its own offsets and its right-hand column."""
    text = re.search(rf"```{name}\n(.*?)```", DOCUMENT, re.DOTALL).group(1)
    data = b""
    for line in text.splitlines():
        offset, row, shown = re.fullmatch(r"([0-9a-f]{4})  ((?:[0-9a-f]{2} ?)+) *\|(.*)\|", line).groups()
        assert int(offset, 16) == len(data), line
        row = bytes.fromhex(row)
        assert shown == "".join(chr(byte) if 32 <= byte < 127 else "." for byte in row), line
        data += row
    return data


class Example(ToolTest):
    def test_both_readers_find_what_the_document_says(self):
        image, data = dump("image"), dump("kit")
        self.assertEqual((len(image), len(data)), (136, 141))
        self.assertEqual(kit.inflate(data), image)
        expected = kit.Kit([kit.Product("en", "Brook", "Tarn", "a\\i.txt")],
                           [kit.File("a\\i.txt", b"Hi!\n", 133514067060000000, offset=0, size=4),
                            kit.File("b", b"", 0, offset=4, size=0)])
        self.assertEqual(kit.read(data), expected)
        self.write("kit.tpk", data)
        listed = [(line["name"], line["size"], line["time"])
                  for line in self.json("list", "kit.tpk")[:-1]]
        self.assertEqual(listed, [("a\\i.txt", 4, "2024-02-03T04:05:06Z"),
                                  ("b", 0, "1601-01-01T00:00:00Z")])
        self.tpk("install", "kit.tpk", "--to", "target", code=0)
        self.assertEqual((self.work / "target/a/i.txt").read_bytes(), b"Hi!\n")

    def test_the_tool_writes_the_image_of_the_example(self):
        self.write("top/a/i.txt", "Hi!\n", time=1706933106)
        self.write("top/b", "")
        self.write("top/kit.toml", 'format = 1\n[[product]]\nlanguage = "en"\nname = "Brook"\n'
                   'provider = "Tarn"\ndescription = "a/i.txt"\n'
                   '[[time]]\nfiles = "b"\ntime = "1601-01-01"\n')
        self.tpk("pack", "top", "-o", "kit.tpk", code=0)
        self.assertEqual(kit.inflate((self.work / "kit.tpk").read_bytes()), dump("image"))

    def test_every_field_lies_where_the_table_says(self):
        image = dump("image")
        rows = re.findall(r"\| ([0-9a-f]{4}) \| (.*?) \|", DOCUMENT)
        self.assertEqual(len(rows), 19)
        for offset, cell in rows:
            expected = b"".join(bytes.fromhex(part) for part in re.findall(r"`([0-9a-f ]+)`", cell))
            at = int(offset, 16)
            self.assertEqual(image[at : at + len(expected)], expected, offset)


if __name__ == "__main__":
    unittest.main()
