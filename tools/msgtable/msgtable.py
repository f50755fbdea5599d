#!/usr/bin/env python3
"""Builds the module's message table block from its rows.

The block is what the library looks texts up in:
  offset 0     total size of the block in bytes
  offset 4     signature 646: the number of 32-bit words of header and index
  offset 8     644 index entries; each is an offset relative to the entry's own
               position, pointing at the row's zero-terminated UTF-16 text
  offset 2584  the texts

Usage: msgtable.py ROWS.txt OUT.cpp OUT.msg
  OUT.cpp holds the block as the library's built-in table.
  OUT.msg is the same block as a file, the starting point for a translated table.
"""
import struct
import sys

ROW_COUNT = 644
SIGNATURE = 2 + ROW_COUNT


def unescape(text, where):
    out = []
    i = 0
    while i < len(text):
        c = text[i]
        if c == "\\":
            if i + 1 >= len(text):
                sys.exit(f"{where}: backslash at end of text")
            n = text[i + 1]
            if n == "n":
                out.append("\n")
            elif n == "\\":
                out.append("\\")
            else:
                sys.exit(f"{where}: unknown escape \\{n}")
            i += 2
        else:
            out.append(c)
            i += 1
    return "".join(out)


def read_rows(path):
    rows = {}
    with open(path, encoding="utf-8") as f:
        for number, line in enumerate(f, 1):
            line = line.rstrip("\n")
            if not line or line.startswith("#"):
                continue
            where = f"{path}:{number}"
            row, sep, text = line.partition("\t")
            if not sep or not row.isdigit():
                sys.exit(f"{where}: expected ROW<TAB>TEXT")
            row = int(row)
            if row >= ROW_COUNT:
                sys.exit(f"{where}: row {row} is out of range")
            if row in rows:
                sys.exit(f"{where}: row {row} is given twice")
            rows[row] = unescape(text, where)
    return rows


def build_block(rows):
    header_size = 4 * SIGNATURE
    texts = bytearray()
    index = []
    for row in range(ROW_COUNT):
        entry_pos = 8 + 4 * row
        text_pos = header_size + len(texts)
        index.append(text_pos - entry_pos)
        texts += rows.get(row, "").encode("utf-16-le") + b"\0\0"
    while len(texts) % 4:
        texts += b"\0"
    total = header_size + len(texts)
    block = struct.pack("<II", total, SIGNATURE)
    block += b"".join(struct.pack("<i", off) for off in index)
    return block + bytes(texts)


def check_block(block, rows):
    """Reads the block back the way the library does, so that a fault of the builder
    fails the build rather than a lookup."""
    total, signature = struct.unpack_from("<II", block, 0)
    if total != len(block):
        sys.exit(f"message table: size word {total} but the block has {len(block)} bytes")
    if signature != SIGNATURE or 4 * signature != 8 + 4 * ROW_COUNT:
        sys.exit(f"message table: signature {signature}, expected {SIGNATURE}")
    for row in range(ROW_COUNT):
        entry = 8 + 4 * row
        (offset,) = struct.unpack_from("<i", block, entry)
        start = entry + offset
        if start < 4 * SIGNATURE or start >= len(block) or start % 2:
            sys.exit(f"message table: row {row} points outside the texts")
        end = start
        while block[end:end + 2] != b"\0\0":
            end += 2
            if end + 2 > len(block):
                sys.exit(f"message table: row {row} has no terminator")
        if block[start:end].decode("utf-16-le") != rows.get(row, ""):
            sys.exit(f"message table: row {row} reads back wrong")


def write_cpp(path, block):
    words = struct.unpack(f"<{len(block) // 4}I", block)
    lines = []
    for i in range(0, len(words), 8):
        lines.append("    " + ", ".join(f"0x{w:08x}u" for w in words[i:i + 8]) + ",")
    with open(path, "w", encoding="ascii") as f:
        f.write("// Generated from data/messages.txt; do not edit.\n")
        f.write("#include <cstddef>\n#include <cstdint>\n\n")
        f.write("#include <tessel_link/common/messages.h>\n\n")
        f.write("// The block's shape must be the one the lookup code was compiled for.\n")
        f.write(f"static_assert(Common::kMessageRowCount == {ROW_COUNT});\n")
        f.write(f"static_assert(Common::kMessageSignature == {SIGNATURE});\n")
        f.write(f"static_assert(Common::MessageId(0) == 8);\n")
        f.write(f"static_assert(Common::MessageId(Common::kMessageRowCount) == "
                f"4 * Common::kMessageSignature);\n\n")
        f.write("namespace Common::Detail {\n\n")
        f.write("// Stored as little-endian 32-bit words, which keeps the block aligned.\n")
        f.write(f"extern const std::uint32_t kBuiltInMessageBlock[{len(words)}];\n")
        f.write(f"const std::uint32_t kBuiltInMessageBlock[{len(words)}] = {{\n")
        f.write("\n".join(lines))
        f.write("\n};\n\n")
        f.write(f"extern const std::size_t kBuiltInMessageBlockSize;\n")
        f.write(f"const std::size_t kBuiltInMessageBlockSize = {len(block)};\n\n")
        f.write("}  // namespace Common::Detail\n")


def main():
    if len(sys.argv) != 4:
        sys.exit(__doc__)
    rows = read_rows(sys.argv[1])
    block = build_block(rows)
    check_block(block, rows)
    write_cpp(sys.argv[2], block)
    with open(sys.argv[3], "wb") as f:
        f.write(block)


if __name__ == "__main__":
    main()
