#!/usr/bin/env python3
"""Makes ZIP archives with real tools for the reader's tests.

Usage: make_archives.py OUTDIR

Writes archives into OUTDIR and a manifest OUTDIR/manifest.txt with one line per member,
in the order of the archive's directory:
    ARCHIVE<TAB>NAME<TAB>CONTENT
where CONTENT is the file (relative to OUTDIR) that holds the member's bytes; an archive
that must not open has one line "ARCHIVE<TAB>-<TAB>-". Python's zipfile is always used;
Debian's zip and unzip only when they are installed: the line "#no-zip" says they are not.
"""
import io
import os
import random
import shutil
import subprocess
import sys
import zipfile


def content(size, seed):
    rng = random.Random(seed)
    words = [b"archive ", b"member ", b"stored ", b"deflated\n", b"table ", b"\x00\xff"]
    out = bytearray()
    while len(out) < size:
        out += rng.choice(words)
        if rng.random() < 0.2:
            out += bytes([rng.randrange(256)])
    return bytes(out[:size])


class Unseekable(io.RawIOBase):
    """A stream that cannot seek, so zipfile writes data descriptors."""

    def __init__(self):
        self.data = bytearray()

    def writable(self):
        return True

    def write(self, b):
        self.data += b
        return len(b)

    def tell(self):
        return len(self.data)

    def seek(self, *args):
        raise OSError("not seekable")

    def seekable(self):
        return False


def main():
    out = sys.argv[1]
    os.makedirs(os.path.join(out, "content"), exist_ok=True)
    manifest = []
    members = [
        ("readme.txt", content(1000, 1)),
        ("empty.bin", b""),
        ("docs/", b""),
        ("docs/guide.txt", content(150000, 2)),
        ("data/random.bin", random.Random(3).randbytes(70000)),
        ("one", b"1"),
    ]
    paths = {}
    for i, (name, data) in enumerate(members):
        path = os.path.join("content", str(i))
        with open(os.path.join(out, path), "wb") as f:
            f.write(data)
        paths[name] = path

    def record(archive, names):
        for name in names:
            manifest.append(f"{archive}\t{name}\t{paths[name]}")

    def python_zip(archive, compression, comment=b"", prefix=b""):
        buffer = io.BytesIO()
        with zipfile.ZipFile(buffer, "w", compression) as z:
            for name, data in members:
                z.writestr(name, data)
            z.comment = comment
        with open(os.path.join(out, archive), "wb") as f:
            f.write(prefix + buffer.getvalue())

    python_zip("py_stored.zip", zipfile.ZIP_STORED)
    python_zip("py_deflated.zip", zipfile.ZIP_DEFLATED)
    python_zip("py_prefixed.zip", zipfile.ZIP_DEFLATED, prefix=bytes(range(100)))
    python_zip("py_comment_65513.zip", zipfile.ZIP_DEFLATED, comment=b"c" * 65513)
    python_zip("py_comment_65535.zip", zipfile.ZIP_DEFLATED, comment=b"c" * 65535)
    for archive in ("py_stored.zip", "py_deflated.zip", "py_prefixed.zip", "py_comment_65513.zip"):
        record(archive, [name for name, _ in members])
    manifest.append("py_comment_65535.zip\t-\t-")

    # Written to a stream that cannot seek: every entry has a data descriptor.
    stream = Unseekable()
    with zipfile.ZipFile(stream, "w", zipfile.ZIP_DEFLATED) as z:
        for name, data in members:
            if not name.endswith("/"):
                with z.open(name, "w") as w:
                    w.write(data)
    with zipfile.ZipFile(io.BytesIO(bytes(stream.data))) as z:
        if not all(info.flag_bits & 0x08 for info in z.infolist()):
            sys.exit("zipfile wrote no data descriptors")
    with open(os.path.join(out, "py_descriptor.zip"), "wb") as f:
        f.write(stream.data)
    record("py_descriptor.zip", [name for name, _ in members if not name.endswith("/")])

    if shutil.which("zip") is None or shutil.which("unzip") is None:
        manifest.append("#no-zip")
    else:
        tree = os.path.join(out, "tree")
        for name, data in members:
            target = os.path.join(tree, name)
            if name.endswith("/"):
                os.makedirs(target, exist_ok=True)
            else:
                os.makedirs(os.path.dirname(target) or tree, exist_ok=True)
                with open(target, "wb") as f:
                    f.write(data)
        names = [name for name, _ in members]

        def run_zip(archive, options):
            path = os.path.abspath(os.path.join(out, archive))
            subprocess.run(["zip", "-q", "-X", "-D", *options, path, *[n for n in names if not n.endswith("/")]],
                           cwd=tree, check=True)
            return path

        run_zip("zip_stored.zip", ["-0"])
        run_zip("zip_deflated.zip", ["-9"])
        record("zip_stored.zip", [n for n in names if not n.endswith("/")])
        record("zip_deflated.zip", [n for n in names if not n.endswith("/")])
        # Streamed into a pipe, which cannot seek: sizes follow the data in a descriptor.
        # The one member is named "-"; -fz- keeps the archive classic (no ZIP64 records).
        with open(os.path.join(out, "content", "stdin"), "wb") as f:
            f.write(content(40000, 4))
        with open(os.path.join(out, "content", "stdin"), "rb") as source:
            streamed = subprocess.run(["zip", "-q", "-fz-", "-", "-"], stdin=source,
                                      stdout=subprocess.PIPE, check=True).stdout
        with open(os.path.join(out, "zip_streamed.zip"), "wb") as f:
            f.write(streamed)
        with zipfile.ZipFile(io.BytesIO(streamed)) as z:
            if not z.infolist()[0].flag_bits & 0x08:
                sys.exit("zip wrote no data descriptor")
        manifest.append("zip_streamed.zip\t-\tcontent/stdin")
        # Foreign data in front, the offsets left as they were.
        with open(os.path.join(out, "zip_prefixed.zip"), "wb") as f:
            f.write(b"#" * 100)
            with open(os.path.join(out, "zip_deflated.zip"), "rb") as z:
                f.write(z.read())
        record("zip_prefixed.zip", [n for n in names if not n.endswith("/")])
        # unzip agrees that the archives it can read are sound.
        for archive in ("zip_stored.zip", "zip_deflated.zip", "zip_streamed.zip", "py_deflated.zip"):
            subprocess.run(["unzip", "-tqq", os.path.join(out, archive)], check=True)

    with open(os.path.join(out, "manifest.txt"), "w", encoding="utf-8") as f:
        f.write("\n".join(manifest) + "\n")


if __name__ == "__main__":
    main()
