"""Damages workbooks: every number gives another malformed file, always the same one."""

import io
import random
import re
import zipfile
from collections.abc import Callable

Members = dict[str, bytes]

# What to put in the place of something: broken syntax, other types, impossible numbers and references.
TOKENS = (
    b"<", b">", b'"', b"&", b"&#0;", b"-1", b"99999999999999999999", b"nan", b"1e999", b"", b"\xff\xfe", b"A0",
    b"XFD1048577", b"ZZZZ9", b"<f>1+1</f>", b"<f t='shared' si='0'/>", b"<f t='array' ref='A1'>x</f>", b"<v/>",
    b"<![CDATA[x]]>", b'<?xml version="1.0"?>',
)  # fmt: skip
TYPES = (b's"', b'b"', b'e"', b'd"', b'str"', b'inlineStr"', b'x"', b'"')


def unpack(data: bytes) -> Members:
    with zipfile.ZipFile(io.BytesIO(data)) as archive:
        return {name: archive.read(name) for name in archive.namelist()}


def pack(members: Members) -> bytes:
    buffer = io.BytesIO()
    with zipfile.ZipFile(buffer, "w") as archive:
        for name, content in members.items():
            archive.writestr(name, content)
    return buffer.getvalue()


def damaged(data: bytes, number: int) -> bytes:
    """A workbook's file, damaged in the way of this number."""
    chance = random.Random(number)
    how = number % 8
    if how == 0:
        return data[: chance.randrange(len(data))]
    if how == 1:
        flipped = bytearray(data)
        for _ in range(chance.randrange(1, 20)):
            flipped[chance.randrange(len(data))] = chance.randrange(256)
        return bytes(flipped)
    members = unpack(data)
    names = list(members) if chance.random() < 0.4 else [name for name in members if "sheet" in name]
    name = chance.choice(sorted(names))
    if how == 2:
        del members[name]
    else:
        members[name] = _KINDS[how - 3](members[name], chance)
    return pack(members)


def _replace_bytes(xml: bytes, chance: random.Random) -> bytes:
    at = chance.randrange(len(xml))
    return xml[:at] + chance.choice(TOKENS) + xml[at + chance.randrange(6) :]


def _replace_value(xml: bytes, chance: random.Random) -> bytes:
    old = chance.choice(re.findall(rb'"[^"]*"|>[^<]+<', xml))
    return xml.replace(old, old[:1] + chance.choice(TOKENS) + old[-1:], 1)


def _repeat_element(xml: bytes, chance: random.Random) -> bytes:
    old = chance.choice(re.findall(rb"<[^<>]+/>|<c [^>]*>.*?</c>|<row.*?</row>|<[^<>]+>", xml))
    return xml.replace(old, old * chance.choice((0, 2, 3)), 1)


def _change_type(xml: bytes, chance: random.Random) -> bytes:
    places = [match.end() for match in re.finditer(rb'<c [^>]*t="', xml)] or [len(xml) // 2]
    at = chance.choice(places)
    return xml[:at] + chance.choice(TYPES) + xml[xml.find(b'"', at) + 1 :]


def _merge_cells(xml: bytes, chance: random.Random) -> bytes:
    first, last = chance.randrange(1, 9), chance.randrange(1, 99)
    reference = chance.choice((b"A%d:G%d", b"B%d:B%d", b"%dA:%d", b"A%d:XFD%d")) % (first, last)
    merged = b'</sheetData><mergeCells><mergeCell ref="%s"/></mergeCells>' % reference
    return xml.replace(b"</sheetData>", merged)


_KINDS: list[Callable[[bytes, random.Random], bytes]]
_KINDS = [_replace_bytes, _replace_value, _repeat_element, _change_type, _merge_cells]
