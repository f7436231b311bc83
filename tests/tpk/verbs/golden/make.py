"""Makes the golden kits beside it. Each is named by what is in it or what is wrong with it.

The compressed data is stored blocks only, so that the bytes do not depend on any library and the
contents can be read in a hex dump.
"""
import sys
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[1]))
from kit import File, Kit, Product, image, stored, u32  # noqa: E402

TIME = 133514067060000000
EN = Product("en", "Brook Ledger", "Tarnbridge Paperworks", "about\\en.txt")
ABOUT = File("about\\en.txt", b"About.\n")


def with_files(*files, products=(EN,)):
    return image(Kit(list(products), [ABOUT, *files]))


def with_names(*names):
    return with_files(*(File(name, b"x") for name in names))


def changed(data, at, value):
    return data[:at] + u32(value) + data[at + 4 :]


PLAIN = with_files(File("forms\\invoice.xml", b"<invoice/>\n"))
FIRST_FILE = len(image(Kit([EN], [])))  # where the first file record begins

IMAGES = {
    # Sound kits.
    "three_languages": image(
        Kit(
            [
                EN,
                Product("de", "Brook Ledger", "Tarnbridge Paperworks", "about\\de.txt"),
                Product("ru", "Ручей", "Тарнбридж", ""),
            ],
            [ABOUT, File("about\\de.txt", "Über.\n".encode()), File("forms\\счёт.xml", b"<s/>")],
        )
    ),
    "single_product": image(
        Kit([Product("en", "Brook Ledger", "", "about\\en.txt")], [ABOUT], single=True)
    ),
    "single_product_without_texts": image(Kit([Product("en")], [ABOUT], single=True)),
    "no_products": image(Kit([], [ABOUT])),
    "no_files": image(Kit([EN], [])),
    "empty_file": with_files(File("forms\\empty.xml", b"")),
    "surplus_in_records": image(
        Kit(
            [Product("en", "Brook Ledger", "", "about\\en.txt", surplus=b"later")],
            [File("about\\en.txt", b"About.\n", surplus=b"more"), File("b\\c.txt", b"c")],
        )
    ),
    "layout_seven": changed(PLAIN, 0, 7),
    "shared_data": with_files(File("copy\\en.txt", b"", offset=0, size=7)),
    "files_out_of_order": image(
        Kit([EN], [File("about\\en.txt", b"About.\n", offset=3), File("a\\b.txt", b"abc", offset=0)])
    ),
    # Dangerous names.
    "name_empty": with_names(""),
    "name_with_empty_part": with_names("a\\\\b.txt"),
    "name_of_a_folder": with_names("a\\b\\"),
    "name_absolute": with_names("\\etc\\passwd"),
    "name_drive": with_names("C:\\boot.ini"),
    "name_climbs": with_names("a\\..\\..\\b.txt"),
    "name_climbs_with_slashes": with_names("a/../../b.txt"),
    "name_dot": with_names("a\\.\\b.txt"),
    "name_shell": with_names("a\\`id`.txt", "a\\$HOME.txt", 'a\\say "hi".txt'),
    "name_reserved": with_names(".tpk-install\\journal", ".TPK-install\\x", "a\\.tpk-install\\x"),
    "name_zero": with_names("a\\b\0.txt"),
    "name_long": with_names("a\\" + "x" * 256),
    "name_longest": with_names("a\\" + "x" * 255),
    "name_duplicate": with_names("a\\b.txt", "a\\b.txt"),
    "name_file_and_folder": with_names("a\\b", "a\\b\\c.txt"),
    "name_half_a_pair": with_names("a\\\ud83d.txt"),
    "name_beyond_ffff": with_names("a\\\U0001f600.txt"),
    # Names that deserve a look.
    "name_case": with_names("a\\Readme.txt", "A\\README.txt"),
    "name_control": with_names("a\\\x1b[2Jb.txt"),
    "name_slash": with_names("a/b.txt"),
    "file_at_root": with_names("a.txt", "b.txt"),
    # Data.
    "data_outside": with_files(File("a\\b.txt", b"abc", size=400)),
    "data_outside_wraps": with_files(File("a\\b.txt", b"abc", offset=0xFFFFFFFF)),
    "data_unused": with_files(File("a\\b.txt", b"abcdef", size=3)),
    # Products.
    "language_missing_en": with_files(products=[Product("de", "Brook", "", "")]),
    "language_unknown": with_files(products=[EN, Product("xx", "Brook", "", "")]),
    "product_beyond_ffff": with_files(products=[EN, Product("de", "Brook \U0001f600", "", "")]),
    "language_twice": with_files(products=[EN, Product("EN", "Other", "", "")]),
    "description_missing": image(Kit([EN], [File("a\\b.txt", b"abc")])),
    "description_climbs": with_files(products=[Product("en", "B", "", "..\\x.txt")]),
    # Times.
    "time_part": with_files(File("a\\b.txt", b"abc", time=TIME + 5)),
    "time_late": with_files(File("a\\b.txt", b"abc", time=2**64 - 1)),
    "time_of_the_beginning": with_files(File("a\\b.txt", b"abc", time=0)),
    # Damaged tables.
    "cut_in_layout": PLAIN[:3],
    "cut_in_products": PLAIN[:40],
    "cut_in_files": PLAIN[: FIRST_FILE + 10],
    "cut_in_data": PLAIN[:-5],
    "product_count_huge": changed(PLAIN, 4, 0xFFFFFFFF),
    "product_record_too_small": changed(PLAIN, 8, 3),
    "product_record_smaller_than_texts": changed(PLAIN, 8, 20),
    "product_text_huge": changed(PLAIN, 12, 0x7FFFFFFF),
    "file_count_huge": changed(PLAIN, FIRST_FILE - 4, 0xFFFFFFFF),
    "file_record_huge": changed(PLAIN, FIRST_FILE, 0xFFFFFFFF),
    "file_record_too_small": changed(PLAIN, FIRST_FILE, 3),
    "file_name_huge": changed(PLAIN, FIRST_FILE + 4, 0x80000000),
}


def kits():
    kits = {name: stored(data) for name, data in IMAGES.items()}
    kits["stream_empty"] = b""
    kits["stream_corrupt"] = b"\x07" + kits["three_languages"][1:]
    kits["stream_cut_off"] = stored(PLAIN)[:-5]
    kits["stream_trailing"] = stored(PLAIN) + b"behind"
    kits["not_a_kit"] = b"PK\x03\x04 this is something else altogether\n" * 3
    return kits


if __name__ == "__main__":
    for name, data in kits().items():
        (Path(__file__).parent / f"{name}.tpk").write_bytes(data)
