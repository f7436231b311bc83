"""A second reader and writer of kits, made from docs/kit-format.md alone.

It shares nothing with the system: where the two disagree, one of them or the document is wrong.
"""
import struct
import zlib
from dataclasses import dataclass, field


class Damaged(Exception):
    pass


@dataclass
class Product:
    language: str
    name: str = ""
    provider: str = ""
    description: str = ""
    surplus: bytes = b""


@dataclass
class File:
    name: str
    data: bytes = b""
    time: int = 133514067060000000  # 2024-02-03 04:05:06 UTC
    surplus: bytes = b""
    offset: int = None  # within the data area; None: after the file before
    size: int = None  # None: that of the data


@dataclass
class Kit:
    products: list = field(default_factory=list)
    files: list = field(default_factory=list)
    single: bool = False


# --- reading ----------------------------------------------------------------------------------


class Fields:
    def __init__(self, image, position=0, end=None):
        self.image, self.position = image, position
        self.end = len(image) if end is None else end

    def take(self, count):
        if self.position + count > self.end:
            raise Damaged(f"{count} bytes at {self.position} of {self.end}")
        self.position += count
        return self.image[self.position - count : self.position]

    def u32(self):
        return struct.unpack("<I", self.take(4))[0]

    def u64(self):
        return struct.unpack("<Q", self.take(8))[0]

    def text(self):
        return self.take(2 * self.u32()).decode("utf-16-le", "surrogatepass")

    def record(self):
        start = self.position
        size = self.u32()
        if size < 4 or start + size > self.end:
            raise Damaged(f"a record of {size} bytes at {start}")
        self.position = start + size
        return Fields(self.image, start + 4, start + size)


def inflate(kit):
    inflater = zlib.decompressobj(-15)
    try:
        return inflater.decompress(kit) + inflater.flush()
    except zlib.error as error:
        raise Damaged(str(error)) from error


def read_image(image):
    kit = Kit()
    fields = Fields(image)
    if fields.u32() == 0:
        kit.single = True
        kit.products.append(Product("en", fields.text(), fields.text(), fields.text()))
    else:
        for _ in range(fields.u32()):
            record = fields.record()
            kit.products.append(Product(*(record.text() for _ in range(4))))
    table = []
    for _ in range(fields.u32()):
        record = fields.record()
        table.append((record.text(), record.u64(), record.u32(), record.u32()))
    data = fields.position
    for name, time, offset, size in table:
        start = (data + offset) % 2**32
        if start + size > len(image):
            raise Damaged(f"{name} is outside the image")
        kit.files.append(File(name, image[start : start + size], time, offset=offset, size=size))
    return kit


def read(kit):
    return read_image(inflate(kit))


# --- writing ----------------------------------------------------------------------------------


def u32(value):
    return struct.pack("<I", value)


def text(value):
    units = value.encode("utf-16-le", "surrogatepass")
    return u32(len(units) // 2) + units


def record(body):
    return u32(4 + len(body)) + body


def image(kit):
    out = bytearray()
    if kit.single:
        product = kit.products[0]
        out += u32(0) + text(product.name) + text(product.provider) + text(product.description)
    else:
        out += u32(1) + u32(len(kit.products))
        for product in kit.products:
            texts = (product.language, product.name, product.provider, product.description)
            out += record(b"".join(map(text, texts)) + product.surplus)
    out += u32(len(kit.files))
    data = bytearray()
    for file in kit.files:
        offset = len(data) if file.offset is None else file.offset
        size = len(file.data) if file.size is None else file.size
        out += record(
            text(file.name) + struct.pack("<QII", file.time, offset, size) + file.surplus
        )
        data += file.data
    return bytes(out + data)


def deflate(data, level=6):
    deflater = zlib.compressobj(level, zlib.DEFLATED, -15)
    return deflater.compress(data) + deflater.flush()


def stored(data):
    """A deflate stream of stored blocks only: the same bytes with every library."""
    out = bytearray()
    for start in range(0, max(len(data), 1), 65535):
        block = data[start : start + 65535]
        last = start + 65535 >= len(data)
        out += struct.pack("<BHH", last, len(block), len(block) ^ 0xFFFF) + block
    return bytes(out)


def write(kit, level=6):
    return deflate(image(kit), level)
