"""Writes a picture as the exact bytes of a file: 8-bit BMP with a palette of its own, RGBA PNG of a given size.

A picture is rows of (r, g, b, a) tuples as svg_raster.render() returns them: sRGB 0..255 with fractions, alpha 0..1.
"""

import struct
import zlib
from bisect import insort

PALETTE_SIZE = 256
_PIXELS_PER_METRE = 2835  # 72 dpi
_WEIGHTS = (2.0, 4.0, 3.0)  # how much the eye minds an error in red, green and blue
_MOST_ERROR = 3.0  # what dithering hands on; more would speckle where the palette has no colours around the wanted one


def bmp_with_palette(picture):
    """BMP: BITMAPFILEHEADER, BITMAPINFOHEADER, 256 palette entries, uncompressed rows from the bottom up."""
    palette = _choose_palette([pixel[:3] for row in picture for pixel in row])
    rows = _dither(picture, palette)
    width, height = len(picture[0]), len(picture)
    padding = bytes(-width % 4)
    pixels = b"".join(bytes(row) + padding for row in reversed(rows))
    colors = b"".join(bytes((b, g, r, 0)) for r, g, b in palette)
    start = 14 + 40 + len(colors)
    file_header = struct.pack("<2sIHHI", b"BM", start + len(pixels), 0, 0, start)
    info_header = struct.pack(
        "<IiiHHIIiiII", 40, width, height, 1, 8, 0, len(pixels), *[_PIXELS_PER_METRE] * 2, PALETTE_SIZE, 0
    )
    return file_header + info_header + colors + pixels


def _nearest(color, palette):
    r, g, b = color
    wr, wg, wb = _WEIGHTS
    distances = [wr * (r - x) * (r - x) + wg * (g - y) * (g - y) + wb * (b - z) * (b - z) for x, y, z in palette]
    return distances.index(min(distances))


def _choose_palette(colors):
    """Median cut, improved by moving every entry to the mean of the colours nearest to it; dark to light."""
    cells = {}
    for color in colors:
        total = cells.setdefault(tuple(int(v / 2) for v in color), [0.0, 0.0, 0.0, 0])
        for i in range(3):
            total[i] += color[i]
        total[3] += 1
    samples = [((r / n, g / n, b / n), n) for _, (r, g, b, n) in sorted(cells.items())]

    def box(members):
        spreads = []
        for i, weight in enumerate(_WEIGHTS):
            values = [color[i] for color, _ in members]
            spreads.append(weight * (max(values) - min(values)) ** 2)
        axis = spreads.index(max(spreads))
        return (spreads[axis] * sum(n for _, n in members) ** 0.7, axis, members)

    boxes = [box(samples)]
    while len(boxes) < PALETTE_SIZE:
        _, axis, members = boxes.pop()
        members = sorted(members, key=lambda sample: sample[0][axis])
        half, count, cut = sum(n for _, n in members) / 2, 0, 0
        while cut < len(members) - 1 and (cut == 0 or count + members[cut][1] <= half):
            count += members[cut][1]
            cut += 1
        for part in (members[:cut], members[cut:]):
            insort(boxes, box(part), key=lambda b: b[0])
    palette = [_mean(members) for _, _, members in boxes]
    for _ in range(10):
        groups = [[] for _ in palette]
        for sample in samples:
            groups[_nearest(sample[0], palette)].append(sample)
        palette = [_mean(group) if group else color for group, color in zip(groups, palette)]
    rounded = [tuple(round(v) for v in color) for color in palette]
    return sorted(rounded, key=lambda color: (2 * color[0] + 4 * color[1] + color[2], color))


def _mean(samples):
    count = sum(n for _, n in samples)
    return tuple(sum(color[i] * n for color, n in samples) / count for i in range(3))


def _dither(picture, palette):
    """Palette indices by Floyd-Steinberg diffusion; every other row runs backwards, which leaves no drift."""
    width = len(picture[0])
    indices = []
    below = [[0.0] * 3 for _ in range(width + 2)]
    for y, row in enumerate(picture):
        errors, below = below, [[0.0] * 3 for _ in range(width + 2)]
        forward = y % 2 == 0
        step = 1 if forward else -1
        line = [0] * width
        for x in range(width) if forward else range(width - 1, -1, -1):
            wanted = [v + min(_MOST_ERROR, max(-_MOST_ERROR, e)) for v, e in zip(row[x], errors[x + 1])]
            line[x] = _nearest(wanted, palette)
            for i, got in enumerate(palette[line[x]]):
                error = (wanted[i] - got) / 16
                errors[x + 1 + step][i] += 7 * error
                below[x + 1 - step][i] += 3 * error
                below[x + 1][i] += 5 * error
                below[x + 1 + step][i] += error
        indices.append(line)
    return indices


_SIGNATURE = b"\x89PNG\r\n\x1a\n"
_LONGEST_STORED_BLOCK = 65535


def png(picture, exact_size=None, thorough=True):
    """PNG, 8 bits RGBA, not interlaced, as small as zlib makes it.

    With `exact_size` the file has exactly that many bytes: as many bytes from the first row on as it takes are stored
    instead of compressed. ValueError if the picture does not fit or no such number exists. Not `thorough`, it is made
    in one way instead of all, the one that suits most pictures.
    """
    lines = [bytes(v for pixel in row for v in _rounded(pixel)) for row in picture]
    header = struct.pack(">IIBBBBB", len(picture[0]), len(lines), 8, 6, 0, 0, 0)

    def file(data, stored, strategy):
        packed = _deflated(data, stored, strategy)
        chunks = ((b"IHDR", header), (b"sRGB", b"\0"), (b"IDAT", packed), (b"IEND", b""))
        return _SIGNATURE + b"".join(_chunk(*chunk) for chunk in chunks)

    filtered, strategies = (_filtered(lines), range(3)) if thorough else (_filtered(lines)[5:6], [zlib.Z_FILTERED])
    choices = [(file(data, 0, strategy), data, strategy) for data in filtered for strategy in strategies]
    choices.sort(key=lambda choice: len(choice[0]))
    if exact_size is None:
        return choices[0][0]
    for smallest, data, strategy in choices:
        # A stored byte adds a byte less what it took compressed: this comes to the size from below, or just beyond it.
        stored, result, most = 0, smallest, min(len(data), _LONGEST_STORED_BLOCK)
        while len(result) < exact_size and stored < most:
            stored = min(stored + exact_size - len(result), most)
            result = file(data, stored, strategy)
        for _ in range(100):
            if len(result) == exact_size:
                return result
            stored = max(0, stored - 1)
            result = file(data, stored, strategy)
    raise ValueError(f"the picture cannot be made {exact_size} bytes; compressed it takes {len(choices[0][0])}")


# What a macOS icon file holds, by type: a PNG of so many pixels a side. The second row is for screens of twice the
# density. The two smallest sizes are no PNG: those types show as noise on some systems.
_ICON_PNGS = {
    b"ic07": 128, b"ic08": 256, b"ic09": 512,
    b"ic11": 32, b"ic12": 64, b"ic13": 256, b"ic14": 512, b"ic10": 1024,
}  # fmt: skip
_ICON_PLANES = {(b"is32", b"s8mk"): 16, (b"il32", b"l8mk"): 32}
ICON_SIDES = sorted({*_ICON_PNGS.values(), *_ICON_PLANES.values()})


def icns(pictures):
    """The icon file of a macOS bundle; `pictures` has one of each size in ICON_SIDES."""
    elements = []
    for (colors, mask), side in _ICON_PLANES.items():
        planes = list(zip(*(_rounded(pixel) for row in pictures[side] for pixel in row)))
        elements.append((colors, b"".join(_packed(bytes(plane)) for plane in planes[:3])))
        elements.append((mask, bytes(planes[3])))
    pngs = {side: png(pictures[side], thorough=side < 512) for side in set(_ICON_PNGS.values())}
    elements += [(kind, pngs[side]) for kind, side in _ICON_PNGS.items()]
    contents = b"".join(struct.pack(">4sI", kind, 8 + len(data)) + data for kind, data in elements)
    return struct.pack(">4sI", b"icns", 8 + len(contents)) + contents


def icns_elements(data):
    """The contents by type of a file written by icns(); None if the data is none."""
    if data[:4] != b"icns":
        return None
    elements, at = {}, 8
    while at < len(data):
        kind, size = struct.unpack(">4sI", data[at : at + 8])
        elements[kind] = data[at + 8 : at + size]
        at += size
    return elements


def _packed(plane):
    """Runs of 3 to 130 equal bytes as their length and the byte, all others as they are in pieces of up to 128."""
    result, literal, at = bytearray(), bytearray(), 0

    def end_literal():
        for start in range(0, len(literal), 128):
            piece = literal[start : start + 128]
            result.extend([len(piece) - 1, *piece])
        literal.clear()

    while at < len(plane):
        run = 1
        while run < 130 and at + run < len(plane) and plane[at + run] == plane[at]:
            run += 1
        if run >= 3:
            end_literal()
            result.extend([run + 125, plane[at]])
        else:
            literal.extend(plane[at : at + run])
        at += run
    end_literal()
    return bytes(result)


def _rounded(pixel):
    alpha = round(255 * pixel[3])
    return (*(round(v) for v in pixel[:3]), alpha) if alpha else (0, 0, 0, 0)


def _chunk(kind, data):
    return struct.pack(">I", len(data)) + kind + data + struct.pack(">I", zlib.crc32(kind + data))


def _deflated(data, stored, strategy):
    """A zlib stream whose first block holds `stored` bytes as they are."""
    block = struct.pack("<BHH", 0, stored, stored ^ 0xFFFF) + data[:stored] if stored else b""
    packer = zlib.compressobj(9, zlib.DEFLATED, -15, 9, strategy)
    return b"\x78\xda" + block + packer.compress(data[stored:]) + packer.flush() + struct.pack(">I", zlib.adler32(data))


def _filtered(lines):
    """The rows filtered for compression: each filter for all of them, then two ways to choose one for each row."""
    rows = [_all_filters(line, above) for line, above in zip(lines, [bytes(len(lines[0]))] + lines)]
    choices = [b"".join(row[kind] for row in rows) for kind in range(5)]
    return choices + [b"".join(min(row, key=cost) for row in rows) for cost in (_roughness, _deflated_size)]


def _roughness(line):
    return sum(min(v, 256 - v) for v in line[1:])


def _deflated_size(line):
    return len(zlib.compress(line, 9))


def _all_filters(line, above):
    """The row under each of PNG's five filters, the filter's number in front."""
    left, corner = bytes(4) + line[:-4], bytes(4) + above[:-4]
    predicted = (
        bytes(len(line)),
        left,
        above,
        bytes((a + b) >> 1 for a, b in zip(left, above)),
        bytes(map(_paeth, left, above, corner)),
    )
    return [bytes([kind]) + bytes((v - p) & 255 for v, p in zip(line, guess)) for kind, guess in enumerate(predicted)]


def _paeth(left, above, corner):
    estimate = left + above - corner
    return min((left, above, corner), key=lambda v: abs(estimate - v))


def png_content(data):
    """Header and rows of pixels of a file written by png(), however packed; None if the data is no PNG."""
    if data[: len(_SIGNATURE)] != _SIGNATURE:
        return None
    chunks, at = {}, len(_SIGNATURE)
    while at < len(data):
        (length,) = struct.unpack(">I", data[at : at + 4])
        chunks[data[at + 4 : at + 8]] = data[at + 8 : at + 8 + length]
        at += 12 + length
    width, height = struct.unpack(">II", chunks[b"IHDR"][:8])
    filtered, line_size = zlib.decompress(chunks[b"IDAT"]), 1 + 4 * width
    rows, above = [], bytes(line_size + 3)
    for start in range(0, height * line_size, line_size):
        kind, *values = filtered[start : start + line_size]
        line = bytearray(4)  # a transparent pixel left of the first one
        for i, value in enumerate(values):
            a, b, c = line[i], above[i + 4], above[i]
            line.append((value + (0, a, b, (a + b) >> 1, _paeth(a, b, c))[kind]) & 255)
        rows.append(bytes(line[4:]))
        above = line
    return chunks[b"IHDR"], rows
