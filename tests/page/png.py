# SPDX-FileCopyrightText: VQD_API contributors
# SPDX-License-Identifier: Apache-2.0
"""Reads PNG files of 8 or 16 bits a sample, without a palette and not interlaced."""
import collections
import struct
import zlib

Picture = collections.namedtuple("Picture", "width height channels rows")  # rows of samples


def decoded(content):
    if content[:8] != b"\x89PNG\r\n\x1a\n":
        raise ValueError("no PNG file")
    at, data, header = 8, b"", None
    while at < len(content):
        size, kind = struct.unpack_from(">I4s", content, at)
        body = content[at + 8:at + 8 + size]
        if zlib.crc32(kind + body) != struct.unpack_from(">I", content, at + 8 + size)[0]:
            raise ValueError(f"a wrong checksum of {kind}")
        if kind == b"IHDR":
            header = struct.unpack(">IIBBBBB", body)
        elif kind == b"IDAT":
            data += body
        at += 12 + size
    width, height, bits, colour_type, *rest = header
    if rest != [0, 0, 0]:
        raise ValueError("an unknown kind of PNG file")
    channels = {0: 1, 2: 3, 4: 2, 6: 4}[colour_type]
    step = channels * bits // 8
    rows = unfiltered(zlib.decompress(data), width * step, height, step)
    if bits == 16:
        rows = [struct.unpack(f">{width * channels}H", row) for row in rows]
    return Picture(width, height, channels, rows)


def unfiltered(data, size, height, step):
    if len(data) != (size + 1) * height:
        raise ValueError("rows are missing")
    rows, above = [], bytearray(size)
    for y in range(height):
        kind, row = data[y * (size + 1)], bytearray(data[y * (size + 1) + 1:(y + 1) * (size + 1)])
        if kind == 1:
            for i in range(step, size):
                row[i] = (row[i] + row[i - step]) & 255
        elif kind == 2:
            row = bytearray((a + b) & 255 for a, b in zip(row, above))
        elif kind == 3:
            for i in range(size):
                row[i] = (row[i] + ((row[i - step] if i >= step else 0) + above[i]) // 2) & 255
        elif kind == 4:
            for i in range(size):
                left, corner = (row[i - step], above[i - step]) if i >= step else (0, 0)
                up = above[i]
                guess = left + up - corner
                nearest = min((abs(guess - left), 0, left), (abs(guess - up), 1, up), (abs(guess - corner), 2, corner))[2]
                row[i] = (row[i] + nearest) & 255
        rows.append(row)
        above = row
    return rows
