#!/usr/bin/env python3
"""Renders SVG images and writes them as arrays of a C++ header.

    embed_images.py RSVG_CONVERT HEADER FORMAT IMAGE...

FORMAT is "png", or "pixels": four bytes for each pixel (alpha, red, green, blue), rows from the
top. An IMAGE is NAME=FILE:SIDE:COLOR[,COLOR...]: the array NAME contains the
image with SIDE by SIDE pixels. The first shape of the class ColorScheme-Text has the first color, the
second shape the second color, and so on. COLOR/COLOR is the color of a shape and of an outline around
it, which is a 32nd of the image wide.
"""

import pathlib
import struct
import subprocess
import sys
import tempfile
import zlib


def rendered(converter, file, side, colors):
    """Returns the image as PNG. The colors replace those of the shapes in the file."""
    shape = ".ColorScheme-Text"
    rules = "".join(f"{f'{shape} ~ ' * place}{shape} {{ {style(color)} }}\n"
                    for place, color in enumerate(colors))
    with tempfile.NamedTemporaryFile("w", suffix=".css") as sheet:
        sheet.write(rules)
        sheet.flush()
        return subprocess.run([converter, "--stylesheet", sheet.name, "-w", side, "-h", side, file],
                              check=True, capture_output=True).stdout


def style(color):
    """Returns the style of a shape. Half of the outline's width is hidden under the shape."""
    fill, _, outline = color.partition("/")
    rules = f"color: {fill} !important;"
    if outline:
        rules += (f" stroke: {outline}; stroke-width: 6.25%; stroke-linejoin: round;"
                  " paint-order: stroke;")
    return rules


def chunks(png):
    place = 8
    while place < len(png):
        size, kind = struct.unpack_from(">I4s", png, place)
        yield kind, png[place + 8:place + 8 + size]
        place += size + 12


def nearest(left, above, corner):
    """Returns the prediction of PNG's filter 4."""
    estimate = left + above - corner
    return min((left, above, corner), key=lambda value: abs(estimate - value))


def pixels(png):
    """Yields alpha, red, green and blue of every pixel of a PNG image with eight bits per channel."""
    header = next(data for kind, data in chunks(png) if kind == b"IHDR")
    width, height, *layout = struct.unpack(">IIBBBBB", header)
    assert layout == [8, 6, 0, 0, 0], "expected eight bits for each of red, green, blue and alpha"
    data = zlib.decompress(b"".join(data for kind, data in chunks(png) if kind == b"IDAT"))
    before = bytearray(4 * width)
    for row in range(height):
        start = row * (4 * width + 1)
        method, line = data[start], bytearray(data[start + 1:start + 1 + 4 * width])
        for i in range(len(line)):
            left, corner = (line[i - 4], before[i - 4]) if i >= 4 else (0, 0)
            line[i] = (line[i] + [0, left, before[i], (left + before[i]) // 2,
                                  nearest(left, before[i], corner)][method]) % 256
        for red, green, blue, alpha in struct.iter_unpack("4B", line):
            yield from (alpha, red, green, blue)
        before = line


def main(converter, header, form, *images):
    text = "// Written by cmake/embed_images.py.\n#pragma once\n\n#include <array>\n\n"
    text += "namespace zephyl::images {\n\n"
    for image in images:
        name, rest = image.split("=")
        file, side, colors = rest.rsplit(":", 2)
        png = rendered(converter, file, side, colors.split(","))
        data = list(pixels(png) if form == "pixels" else png)
        text += f"inline constexpr std::array<unsigned char, {len(data)}> {name} = {{\n"
        text += ",\n".join(",".join(map(str, data[i:i + 32])) for i in range(0, len(data), 32))
        text += "};\n\n"
    text += "}  // namespace zephyl::images\n"
    pathlib.Path(header).write_text(text)


main(*sys.argv[1:])
