"""Files made to hurt a reader, from the fuzz findings: each is refused with
exit status 2 and a message naming what is wrong, before the reader takes
memory that the file's header claims but its data cannot back."""

import io
import struct
import zlib

import numpy as np
import pytest
from PIL import Image


def npy_v2(path, header):
    """A version 2.0 .npy file with the given header dictionary text and no data."""
    header += b" " * ((64 - (12 + len(header) + 1) % 64) % 64) + b"\n"
    path.write_bytes(b"\x93NUMPY\x02\x00" + struct.pack("<I", len(header)) + header)
    return path


@pytest.mark.parametrize(
    "header,reason",
    [
        (b"{'descr': False, 'fortran_order': False, 'shape': (1, 3), }", "descr must be a dtype string"),
        (b"{'descr': 8, 'fortran_order': False, 'shape': (1, 3), }", "descr must be a dtype string"),
        # A minus sign and Python 2's long suffix, without a digit.
        (b"{'descr': '<f8', 'fortran_order': False, 'shape': (-L,), }", "bad integer '-L'"),
        # Deep enough to overflow the stack of a recursive parser.
        (b"{'descr': " + b"[" * 1_000_000 + b"]" * 1_000_000 + b", 'fortran_order': False, 'shape': (), }",
         "nested more than"),
    ],
    ids=["descr-bool", "descr-int", "integer-without-digits", "nested-lists"],
)
def test_malformed_npy_headers_are_refused_with_the_reason(qz, tmp_path, header, reason):
    p = qz("call", "grayto8", "-o", tmp_path, npy_v2(tmp_path / "bad.npy", header), check=2)
    assert p.stderr.startswith("error: ") and reason in p.stderr


def jpeg_claiming(height, width, progressive):
    """A small real JPEG whose frame header claims another size."""
    f = io.BytesIO()
    rng = np.random.default_rng(5)
    Image.fromarray(rng.integers(0, 256, (16, 16, 3), dtype=np.uint8)).save(f, "JPEG", progressive=progressive)
    data = bytearray(f.getvalue())
    sof = data.index(b"\xff\xc2" if progressive else b"\xff\xc0")
    data[sof + 5:sof + 9] = struct.pack(">HH", height, width)
    return bytes(data)


def png_claiming(height, width):
    """A small real RGB PNG whose IHDR claims another size (checksum fixed)."""
    f = io.BytesIO()
    Image.fromarray(np.zeros((4, 4, 3), np.uint8)).save(f, "PNG")
    data = bytearray(f.getvalue())
    data[16:24] = struct.pack(">II", width, height)
    data[29:33] = struct.pack(">I", zlib.crc32(bytes(data[12:29])) & 0xFFFFFFFF)
    return bytes(data)


@pytest.mark.parametrize(
    "content,suffix,reason",
    [
        # Within the 65536 a side that both formats allow, far beyond the
        # pixel limit: a reader that sized its buffers from the header first
        # would ask for gigabytes.
        (jpeg_claiming(60000, 60000, False), ".jpg", "60000x60000 pixels is larger than the reader allows"),
        (jpeg_claiming(60000, 60000, True), ".jpg", "60000x60000 pixels is larger than the reader allows"),
        (png_claiming(60000, 60000), ".png", "60000x60000 pixels is larger than the reader allows"),
        # Within every limit, but more pixels than the file's bytes can
        # inflate to.
        (png_claiming(3000, 3000), ".png", "its header claims 3000x3000 pixels, more than its"),
        # Within every limit; the data ends after the first rows.
        (jpeg_claiming(4000, 4000, False), ".jpg", "truncated or damaged data"),
        (jpeg_claiming(4000, 4000, True), ".jpg", "truncated or damaged data"),
    ],
    ids=["jpeg-baseline-huge", "jpeg-progressive-huge", "png-huge", "png-more-than-its-data",
         "jpeg-baseline-truncated", "jpeg-progressive-truncated"],
)
def test_image_headers_claiming_more_than_the_file_holds_are_refused(qz, tmp_path, content, suffix, reason):
    path = tmp_path / f"claim{suffix}"
    path.write_bytes(content)
    p = qz("gray", path, "-o", tmp_path / "o.png", check=2)
    assert p.stderr.startswith("error: ") and str(path) in p.stderr and reason in p.stderr
