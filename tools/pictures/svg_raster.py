"""Draws a small, strict subset of SVG at high resolution and reduces it to the final size.

The subset is what the wizard's drawings use: <g>, <path> (absolute M L H V C Z), <rect>, <circle>, <ellipse>, <use>;
solid and gradient fills (userSpaceOnUse), strokes with round caps and joins, <clipPath>, and a Gaussian blur on solid
shapes. Anything else is an error rather than a silent difference from what an SVG editor shows.

Shapes are composited as SVG viewers do it (sRGB values, premultiplied) on a canvas OVERSAMPLING times as fine as the
result, each with exact area coverage. The reduction averages in linear light, so that edges keep their weight; a wider
filter would only soften edges that are already free of stairs.
"""

import math
import re
import xml.etree.ElementTree as ElementTree
from itertools import accumulate
from operator import mul

OVERSAMPLING = 4
RAMP_STEPS = 2048  # resolution of a gradient's colour table
_SVG = "{http://www.w3.org/2000/svg}"
_IDENTITY = (1.0, 0.0, 0.0, 1.0, 0.0, 0.0)


def render(path, width, height):
    """Returns the drawing as `height` rows of `width` (r, g, b, a) tuples: sRGB 0..255 (not yet rounded), alpha 0..1.

    The file's viewBox must have the proportions of width x height.
    """
    return _reduce(_Drawing(path, width * OVERSAMPLING, height * OVERSAMPLING).canvas, OVERSAMPLING)


def render_sizes(path, sides):
    """The square drawing in each size, as render() returns it, by the number of its rows: drawn once in the largest
    size, of which every other one is a part without remainder.
    """
    canvas = _Drawing(path, max(sides), max(sides)).canvas
    return {side: _reduce(canvas, max(sides) // side) for side in sides}


# --- Geometry -------------------------------------------------------------------------------------------------------


def _concat(m, n):
    """The transform that applies n first, then m; both are (a, b, c, d, e, f) as in SVG's matrix()."""
    return (
        m[0] * n[0] + m[2] * n[1],
        m[1] * n[0] + m[3] * n[1],
        m[0] * n[2] + m[2] * n[3],
        m[1] * n[2] + m[3] * n[3],
        m[0] * n[4] + m[2] * n[5] + m[4],
        m[1] * n[4] + m[3] * n[5] + m[5],
    )


def _apply(m, p):
    return (m[0] * p[0] + m[2] * p[1] + m[4], m[1] * p[0] + m[3] * p[1] + m[5])


def _inverse(m):
    det = m[0] * m[3] - m[1] * m[2]
    a, b, c, d = m[3] / det, -m[1] / det, -m[2] / det, m[0] / det
    return (a, b, c, d, -(a * m[4] + c * m[5]), -(b * m[4] + d * m[5]))


def _scale_of(m):
    return math.sqrt(abs(m[0] * m[3] - m[1] * m[2]))


def _parse_transform(text):
    result = _IDENTITY
    for name, arguments in re.findall(r"(\w+)\s*\(([^)]*)\)", text or ""):
        v = [float(x) for x in re.split(r"[\s,]+", arguments.strip())]
        if name == "translate":
            step = (1.0, 0.0, 0.0, 1.0, v[0], v[1] if len(v) > 1 else 0.0)
        elif name == "scale":
            step = (v[0], 0.0, 0.0, v[-1], 0.0, 0.0)
        elif name == "rotate":
            s, c = math.sin(math.radians(v[0])), math.cos(math.radians(v[0]))
            cx, cy = v[1:] if len(v) == 3 else (0.0, 0.0)
            step = (c, s, -s, c, cx - c * cx + s * cy, cy - s * cx - c * cy)
        elif name == "matrix":
            step = tuple(v)
        else:
            raise ValueError(f"transform {name} is not supported")
        result = _concat(result, step)
    return result


def _parse_path(data):
    """A path's subpaths, each (closed, [points]); a point is (x, y), a curve ("C", p1, p2, p3)."""
    tokens = re.findall(r"[A-Za-z]|-?[\d.]+(?:e-?\d+)?", data)
    subpaths, at, command = [], 0, None

    def number():
        nonlocal at
        at += 1
        return float(tokens[at - 1])

    position = (0.0, 0.0)
    while at < len(tokens):
        if tokens[at].isalpha():
            command = tokens[at]
            at += 1
        if command == "Z":
            subpaths[-1] = (True, subpaths[-1][1])
            command = None
            continue
        if command == "M":
            position = (number(), number())
            subpaths.append((False, [position]))
            command = "L"
            continue
        if command == "L":
            position = (number(), number())
            item = position
        elif command == "H":
            position = (number(), position[1])
            item = position
        elif command == "V":
            position = (position[0], number())
            item = position
        elif command == "C":
            curve = [(number(), number()) for _ in range(3)]
            item, position = ("C", *curve), curve[2]
        else:
            raise ValueError(f"path command {command} is not supported")
        subpaths[-1][1].append(item)
    return subpaths


_KAPPA = 0.5522847498307936  # control point distance at which a cubic comes closest to a quarter circle


def _rounded_rect(x, y, w, h, rx, ry):
    if rx == 0:
        return [(True, [(x, y), (x + w, y), (x + w, y + h), (x, y + h)])]
    kx, ky = rx * (1 - _KAPPA), ry * (1 - _KAPPA)
    r, b = x + w, y + h
    return [
        (
            True,
            [
                (x + rx, y),
                (r - rx, y),
                ("C", (r - kx, y), (r, y + ky), (r, y + ry)),
                (r, b - ry),
                ("C", (r, b - ky), (r - kx, b), (r - rx, b)),
                (x + rx, b),
                ("C", (x + kx, b), (x, b - ky), (x, b - ry)),
                (x, y + ry),
                ("C", (x, y + ky), (x + kx, y), (x + rx, y)),
            ],
        )
    ]


def _flatten(subpaths, transform):
    """The subpaths as (closed, [(x, y), ...]) in canvas pixels; chords stay within about 1/50 pixel of the curve."""
    result = []
    for closed, items in subpaths:
        points = []
        for item in items:
            if item[0] != "C":
                points.append(_apply(transform, item))
                continue
            p0 = points[-1]
            p1, p2, p3 = (_apply(transform, p) for p in item[1:])
            bend = max(
                math.hypot(p0[0] - 2 * p1[0] + p2[0], p0[1] - 2 * p1[1] + p2[1]),
                math.hypot(p1[0] - 2 * p2[0] + p3[0], p1[1] - 2 * p2[1] + p3[1]),
            )
            steps = 1 + math.ceil(math.sqrt(0.75 * bend / 0.02))
            for i in range(1, steps + 1):
                t = i / steps
                u = 1 - t
                a, b, c, d = u * u * u, 3 * u * u * t, 3 * u * t * t, t * t * t
                points.append(
                    (
                        a * p0[0] + b * p1[0] + c * p2[0] + d * p3[0],
                        a * p0[1] + b * p1[1] + c * p2[1] + d * p3[1],
                    )
                )
        distinct = [p for p, q in zip(points, points[1:] + points[:1]) if math.dist(p, q) > 1e-6]
        if not closed:
            distinct = [p for p, q in zip(points, points[1:]) if math.dist(p, q) > 1e-6] + points[-1:]
        result.append((closed, distinct))
    return result


def _arc(center, radius, start, sweep):
    """Points strictly inside the arc from angle `start` over `sweep` radians."""
    steps = max(1, math.ceil(abs(sweep) * math.sqrt(max(radius, 1.0)) * 2))
    return [
        (
            center[0] + radius * math.cos(start + sweep * i / steps),
            center[1] + radius * math.sin(start + sweep * i / steps),
        )
        for i in range(1, steps)
    ]


def _offset_side(points, radius, closed):
    """The polyline moved by `radius` to its left, corners rounded on the outer side."""
    count = len(points)
    segments = count if closed else count - 1
    angles = []
    for i in range(segments):
        (x0, y0), (x1, y1) = points[i], points[(i + 1) % count]
        angles.append(math.atan2(y1 - y0, x1 - x0) - math.pi / 2)
    side = []
    for i in range(count):
        before = angles[i - 1] if closed or i > 0 else angles[0]
        after = angles[i] if i < segments else angles[-1]
        x, y = points[i]
        side.append((x + radius * math.cos(before), y + radius * math.sin(before)))
        turn = (after - before + math.pi) % (2 * math.pi) - math.pi
        if turn > 0.02:
            side += _arc((x, y), radius, before, turn)
        side.append((x + radius * math.cos(after), y + radius * math.sin(after)))
    return side


def _stroke_outline(polylines, radius):
    """Closed outlines that cover the strokes of 2 * radius pixels along the polylines, with round caps and joins."""
    outlines = []
    for closed, points in polylines:
        left, right = _offset_side(points, radius, closed), _offset_side(points[::-1], radius, closed)
        if closed:
            outlines += [left, right]
            continue
        end = math.atan2(left[-1][1] - points[-1][1], left[-1][0] - points[-1][0])
        start = math.atan2(right[-1][1] - points[0][1], right[-1][0] - points[0][0])
        outlines.append(
            left + _arc(points[-1], radius, end, math.pi) + right + _arc(points[0], radius, start, math.pi)
        )
    return outlines


# --- Coverage -------------------------------------------------------------------------------------------------------


class _Mask:
    """Coverage 0..1 of a rectangle of canvas pixels whose first column and row are x and y."""

    def __init__(self, x, y, rows):
        self.x, self.y, self.rows = x, y, rows

    @classmethod
    def of_outlines(cls, outlines):
        """Exact area coverage. Winding numbers add up and are cut at one: an outline within another and turning the
        other way is a hole, overlapping outlines that turn the same way are a union."""
        xs = [p[0] for outline in outlines for p in outline]
        ys = [p[1] for outline in outlines for p in outline]
        left, top = math.floor(min(xs)), math.floor(min(ys))
        width, height = math.ceil(max(xs)) - left, math.ceil(max(ys)) - top
        deltas = [[0.0] * (width + 2) for _ in range(height + 1)]
        for outline in outlines:
            for p, q in zip(outline, outline[1:] + outline[:1]):
                _add_edge(deltas, p[0] - left, p[1] - top, q[0] - left, q[1] - top)
        return cls(left, top, [[min(1.0, abs(v)) for v in accumulate(row)] for row in deltas[:height]])

    def blurred(self, deviation):
        """Three box blurs, which come close to a Gaussian of this standard deviation (pixels)."""
        radius = max(1, round((math.sqrt(4 * deviation * deviation + 1) - 1) / 2))
        pad = 3 * radius
        rows = self.rows
        for _ in range(2):  # blur along the rows and transpose, twice
            rows = [list(row) for row in zip(*[_blur_row(row, radius, pad) for row in rows])]
        return _Mask(self.x - pad, self.y - pad, rows)

    def times(self, other):
        """This mask where `other` covers; None covers everything."""
        if other is None:
            return self
        rows = []
        for y, row in enumerate(self.rows, self.y):
            cover = other.span(y, self.x, self.x + len(row))
            rows.append([a * b for a, b in zip(row, cover)])
        return _Mask(self.x, self.y, rows)

    def span(self, y, start, end):
        """Coverage of the pixels start..end of row y, zero outside the mask."""
        if not 0 <= y - self.y < len(self.rows):
            return [0.0] * (end - start)
        row = self.rows[y - self.y]
        first, last = max(start, self.x), min(end, self.x + len(row))
        if first >= last:
            return [0.0] * (end - start)
        return [0.0] * (first - start) + row[first - self.x : last - self.x] + [0.0] * (end - last)


def _blur_row(row, radius, pad):
    row = [0.0] * pad + row + [0.0] * pad
    box = 2 * radius + 1
    for _ in range(3):
        sums = [0.0] * (radius + 1) + list(accumulate(row))
        sums += [sums[-1]] * radius
        row = [(b - a) / box for a, b in zip(sums, sums[box:])]
    return row


def _add_edge(deltas, x0, y0, x1, y1):
    """Adds one edge to rows of coverage differences (their running sum is the signed area to the edge's right)."""
    if y0 == y1:
        return
    sign = 1.0
    if y0 > y1:
        x0, y0, x1, y1, sign = x1, y1, x0, y0, -1.0
    slope = (x1 - x0) / (y1 - y0)
    x = x0
    for row in range(int(y0), math.ceil(y1)):
        delta = deltas[row]
        height = min(row + 1.0, y1) - max(float(row), y0)
        next_x = x + slope * height
        signed = height * sign
        low, high = (x, next_x) if x < next_x else (next_x, x)
        low = max(low, 0.0)
        first = int(low)
        if high <= first + 1:
            right_part = signed * (0.5 * (low + high) - first)  # what this column lacks, the next one has
            delta[first] += signed - right_part
            delta[first + 1] += right_part
        else:
            density = signed / (high - low)
            crossed, previous = 0.0, 0.0  # height crossed left of this column; what the running sum holds so far
            for column in range(first, math.ceil(high)):
                enter, leave = max(column, low), min(column + 1.0, high)
                here = density * (leave - enter)
                area = crossed + here * (column + 1.0 - 0.5 * (enter + leave))
                delta[column] += area - previous
                crossed, previous = crossed + here, area
            delta[math.ceil(high)] += crossed - previous
        x = next_x


# --- Painting -------------------------------------------------------------------------------------------------------


class _Canvas:
    """Premultiplied sRGB planes: planes[c][y][x], c = red, green, blue, alpha, all 0..1."""

    def __init__(self, width, height):
        self.width, self.height = width, height
        self.planes = [[[0.0] * width for _ in range(height)] for _ in range(4)]

    def paint(self, mask, paint):
        """Lays the paint over the canvas where the mask covers."""
        start = max(0, mask.x)
        end = min(self.width, mask.x + max(map(len, mask.rows), default=0))
        if start >= end:
            return
        for y in range(max(0, mask.y), min(self.height, mask.y + len(mask.rows))):
            cover = mask.span(y, start, end)
            if not any(cover):
                continue
            sources, opacity = paint.row(y, start, end)
            alpha = list(map(mul, cover, opacity))
            for plane, source in zip(self.planes, sources):
                row = plane[y]
                row[start:end] = [d + (s - d) * a for d, s, a in zip(row[start:end], source, alpha)]


class _Solid:
    def __init__(self, color, opacity):
        self._values, self._opacity = (*color, 1.0), opacity

    def row(self, y, start, end):
        return [[v] * (end - start) for v in self._values], [self._opacity] * (end - start)


class _Gradient:
    """Colours along t in 0..1, where t is a function of a point in the element's user space."""

    def __init__(self, node, to_user, opacity):
        self._to_user = to_user
        if node.tag == _SVG + "linearGradient":
            x1, y1, x2, y2 = (float(node.get(k)) for k in ("x1", "y1", "x2", "y2"))
            length2 = (x2 - x1) ** 2 + (y2 - y1) ** 2
            dx, dy = (x2 - x1) / length2, (y2 - y1) / length2
            self._t = lambda us, vs: [(u - x1) * dx + (v - y1) * dy for u, v in zip(us, vs)]
        else:
            cx, cy, r = (float(node.get(k)) for k in ("cx", "cy", "r"))
            self._t = lambda us, vs: [math.sqrt((u - cx) ** 2 + (v - cy) ** 2) / r for u, v in zip(us, vs)]
        stops = []
        for stop in node:
            _reject_unknown(stop, {"offset", "stop-color", "stop-opacity"})
            color = _parse_color(stop.get("stop-color"))
            stops.append((float(stop.get("offset")), (*color, float(stop.get("stop-opacity", "1")))))
        ramp = [_color_at(stops, i / RAMP_STEPS) for i in range(RAMP_STEPS + 1)]
        self._red, self._green, self._blue, alpha = (list(channel) for channel in zip(*ramp))
        self._alpha = [a * opacity for a in alpha]

    def row(self, y, start, end):
        a, b, c, d, e, f = self._to_user
        v = y + 0.5
        us = [a * (x + 0.5) + c * v + e for x in range(start, end)]
        vs = [b * (x + 0.5) + d * v + f for x in range(start, end)]
        at = [min(RAMP_STEPS, max(0, int(t * RAMP_STEPS + 0.5))) for t in self._t(us, vs)]
        colors = [[ramp[i] for i in at] for ramp in (self._red, self._green, self._blue)]
        return [*colors, [1.0] * len(at)], [self._alpha[i] for i in at]


def _color_at(stops, t):
    if t <= stops[0][0]:
        return stops[0][1]
    for (t0, c0), (t1, c1) in zip(stops, stops[1:]):
        if t <= t1:
            part = (t - t0) / (t1 - t0)
            return tuple(a + (b - a) * part for a, b in zip(c0, c1))
    return stops[-1][1]


def _parse_color(text):
    if not re.fullmatch(r"#[0-9a-fA-F]{6}", text):
        raise ValueError(f"colour {text}: only #rrggbb is supported")
    return tuple(int(text[i : i + 2], 16) / 255 for i in (1, 3, 5))


# --- The document ---------------------------------------------------------------------------------------------------

_STYLE = {"fill", "fill-opacity", "stroke", "stroke-opacity", "stroke-width", "filter", "id"}
_ATTRIBUTES = {
    "g": {"transform", "clip-path", "id"},
    "path": _STYLE | {"d"},
    "rect": _STYLE | {"x", "y", "width", "height", "rx"},
    "circle": _STYLE | {"cx", "cy", "r"},
    "ellipse": _STYLE | {"cx", "cy", "rx", "ry"},
}


def _reject_unknown(node, known):
    unknown = set(node.attrib) - known
    if unknown:
        raise ValueError(f"<{node.tag}>: {', '.join(sorted(unknown))} not supported")


class _Drawing:
    def __init__(self, path, width, height):
        root = ElementTree.parse(path).getroot()
        left, top, view_width, view_height = (float(v) for v in root.get("viewBox").split())
        scale = width / view_width
        if abs(height / view_height - scale) > 1e-9:
            raise ValueError(f"{path}: the viewBox has other proportions than the picture")
        if (root.get("stroke-linecap"), root.get("stroke-linejoin")) != ("round", "round"):
            raise ValueError(f"{path}: the root must ask for round line caps and joins")
        self._by_id = {node.get("id"): node for node in root.iter() if node.get("id")}
        self.canvas = _Canvas(width, height)
        self._draw_children(root, (scale, 0.0, 0.0, scale, -left * scale, -top * scale), None)

    def _draw_children(self, parent, transform, clip):
        for child in parent:
            if child.tag in (ElementTree.Comment, _SVG + "defs", _SVG + "title"):
                continue
            child = self._resolved(child)
            name = child.tag.removeprefix(_SVG)
            if name not in _ATTRIBUTES:
                raise ValueError(f"<{name}> is not supported")
            _reject_unknown(child, _ATTRIBUTES[name])
            if name == "g":
                inner = _concat(transform, _parse_transform(child.get("transform")))
                self._draw_children(child, inner, self._clip(child, inner, clip))
            else:
                self._draw_shape(child, transform, clip)

    def _resolved(self, node):
        """What a <use> stands for: the shape it names, with the style it adds; any other node as it is."""
        if node.tag != _SVG + "use":
            return node
        target = self._by_id[node.get("href").removeprefix("#")]
        added = {key: value for key, value in node.attrib.items() if key != "href"}
        if target.tag == _SVG + "g" and added:
            raise ValueError("a <use> of a group cannot style it")
        shape = ElementTree.Element(target.tag, {**target.attrib, **added})
        shape.extend(target)
        return shape

    def _clip(self, group, transform, outer):
        """The outer clip, narrowed by the group's own."""
        if not group.get("clip-path"):
            return outer
        shapes = [self._resolved(child) for child in self._reference(group.get("clip-path"))]
        outlines = [points for shape in shapes for _, points in _flatten(_subpaths(shape), transform)]
        return _Mask.of_outlines(outlines).times(outer)

    def _draw_shape(self, node, transform, clip):
        polylines = _flatten(_subpaths(node), transform)
        if node.get("fill", "#000000") != "none":
            self._fill(node, "fill", [points for _, points in polylines], transform, clip)
        if node.get("stroke", "none") != "none":
            radius = float(node.get("stroke-width", "1")) * _scale_of(transform) / 2
            self._fill(node, "stroke", _stroke_outline(polylines, radius), transform, clip)

    def _fill(self, node, role, outlines, transform, clip):
        mask = _Mask.of_outlines(outlines)
        value, opacity = node.get(role, "#000000"), float(node.get(role + "-opacity", "1"))
        if value.startswith("url("):
            paint = _Gradient(self._reference(value), _inverse(transform), opacity)
        else:
            paint = _Solid(_parse_color(value), opacity)
        if node.get("filter"):
            if not isinstance(paint, _Solid) or "none" not in (node.get("fill"), node.get("stroke", "none")):
                raise ValueError("only shapes of one solid colour can be blurred")
            (blur,) = self._reference(node.get("filter"))
            mask = mask.blurred(float(blur.get("stdDeviation")) * _scale_of(transform))
        self.canvas.paint(mask.times(clip), paint)

    def _reference(self, text):
        return self._by_id[re.fullmatch(r"url\(#([\w-]+)\)", text).group(1)]


def _subpaths(node):
    name = node.tag.removeprefix(_SVG)
    value = lambda key: float(node.get(key, "0"))  # noqa: E731
    if name == "path":
        return _parse_path(node.get("d"))
    if name == "rect":
        rx = value("rx")
        return _rounded_rect(value("x"), value("y"), value("width"), value("height"), rx, rx)
    rx, ry = (value("r"), value("r")) if name == "circle" else (value("rx"), value("ry"))
    return _rounded_rect(value("cx") - rx, value("cy") - ry, 2 * rx, 2 * ry, rx, ry)


# --- Reduction ------------------------------------------------------------------------------------------------------


def _to_linear(v):
    return v / 12.92 if v <= 0.04045 else ((v + 0.055) / 1.055) ** 2.4


def _to_srgb(v):
    return 12.92 * v if v <= 0.0031308 else 1.055 * v ** (1 / 2.4) - 0.055


def _averaged(rows, n):
    """Every n rows averaged into one, and the result transposed."""
    return list(zip(*([sum(column) / n for column in zip(*rows[y : y + n])] for y in range(0, len(rows), n))))


def _reduce(canvas, n):
    steps = 8192
    linear = [_to_linear(i / steps) for i in range(steps + 1)]
    alpha = canvas.planes[3]
    light_planes = []
    for plane in canvas.planes[:3]:
        light = []
        for row, alphas in zip(plane, alpha):
            light.append([linear[int(v / a * steps + 0.5)] * a if a > 1e-9 else 0.0 for v, a in zip(row, alphas)])
        light_planes.append(light)
    red, green, blue, alpha = (_averaged(_averaged(plane, n), n) for plane in (*light_planes, alpha))
    clamp = lambda v: min(1.0, max(0.0, v))  # noqa: E731
    picture = []
    for rows in zip(red, green, blue, alpha):
        pixels = []
        for r, g, b, a in zip(*rows):
            if a < 0.5 / 255:
                pixels.append((0.0, 0.0, 0.0, 0.0))
            else:
                pixels.append((*(255 * _to_srgb(clamp(v / a)) for v in (r, g, b)), clamp(a)))
        picture.append(pixels)
    return picture
