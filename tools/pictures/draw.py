#!/usr/bin/env python3
"""Draws the wizard's pictures: the side picture of its pages, the icons of its messages, and the application icon.

The drawings are the SVG files beside this script (the application icon's is kept with its PNG); the results are
committed, so that a build needs no Python. Only the standard library is used and nothing depends on chance: the same
drawings give the same bytes.

    draw.py            draw all pictures anew
    draw.py NAME ...   draw only these (file names as under wizard/pictures)
    draw.py --check    draw all, compare with the committed files; exit status 1 if one differs

The committed files were packed by the zlib named below; another one may pack the same pixels into other bytes. Where
another one is in use, --check compares the pixels.
"""

import argparse
import concurrent.futures
import pathlib
import sys
import zlib

import encode
import svg_raster

HERE = pathlib.Path(__file__).resolve().parent
OUTPUT = HERE.parents[1] / "wizard" / "pictures"

REFERENCE_ZLIB = "1.2.13"

# result: drawing, width and height in pixels, encoding
PICTURES = {
    "side.bmp": (HERE / "side.svg", 158, 286, encode.bmp_with_palette),
    "error.png": (HERE / "error.svg", 125, 125, lambda picture: encode.png(picture, exact_size=15068)),
    "question.png": (HERE / "question.svg", 256, 256, lambda picture: encode.png(picture, exact_size=15113)),
    "setup-icon.png": (OUTPUT / "setup-icon.svg", 256, 256, encode.png),
}
ICON = "setup.icns"  # all sizes in one file
NAMES = [*PICTURES, ICON]


def draw(name):
    if name == ICON:
        return encode.icns(svg_raster.render_sizes(OUTPUT / "setup-icon.svg", encode.ICON_SIDES))
    drawing, width, height, encoded = PICTURES[name]
    return encoded(svg_raster.render(drawing, width, height))


def same_picture(drawn, committed):
    if drawn == committed or zlib.ZLIB_RUNTIME_VERSION == REFERENCE_ZLIB:
        return drawn == committed
    parts = [encode.icns_elements(data) or {None: data} for data in (drawn, committed)]
    if parts[0].keys() != parts[1].keys():
        return False
    contents = [{kind: encode.png_content(data) or data for kind, data in part.items()} for part in parts]
    return contents[0] == contents[1]


def main():
    parser = argparse.ArgumentParser(description="Draws the wizard's pictures.")
    parser.add_argument("--check", action="store_true", help="compare with the committed files, write nothing")
    parser.add_argument("names", nargs="*", metavar="NAME", help=", ".join(NAMES))
    arguments = parser.parse_args()
    unknown = set(arguments.names) - set(NAMES)
    if unknown:
        parser.error(f"no such picture: {', '.join(sorted(unknown))}")
    failed = False
    names = arguments.names or NAMES
    with concurrent.futures.ProcessPoolExecutor() as pool:
        drawn = list(pool.map(draw, names))
    for name, data in zip(names, drawn):
        path = OUTPUT / name
        if not arguments.check:
            path.write_bytes(data)
            print(f"{name}: {len(data)} bytes")
            continue
        same = path.exists() and same_picture(data, path.read_bytes())
        print(f"{name}: {'as drawn' if same else 'DIFFERS from its drawing'}")
        failed |= not same
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
