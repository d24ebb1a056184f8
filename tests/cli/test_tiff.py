"""TIFF in and out: every layout the reader accepts, written by a minimal
encoder here (and by Pillow for the compressed kinds), read back through
resize at scale 1, which reproduces its input exactly; the writer's files
read back by Pillow; and damaged or unsupported files refused cleanly."""

import struct

import numpy as np
import pytest
from PIL import Image

rng = np.random.default_rng(5)
H, W = 23, 37  # not multiples of the 16-pixel tiles nor of the strip height

SHORT, LONG = 3, 4


def encode_tiff(a, bps, fmt=1, photometric=None, planar=1, rows_per_strip=7, tile=None, order="<", extra=0):
    """a: H x W x C array; fmt 1 unsigned, 2 signed, 3 float. Uncompressed."""
    h, w, c = a.shape
    photometric = (2 if c - extra >= 3 else 1) if photometric is None else photometric
    dtype = np.dtype({(1, 8): "u1", (1, 16): "u2", (2, 16): "i2", (3, 32): "f4", (1, 1): "u1"}[(fmt, bps)])
    dtype = dtype.newbyteorder(order)
    planes = [a] if planar == 1 else [a[..., k : k + 1] for k in range(c)]
    chunks = []
    for p in planes:
        if tile:
            for ty in range(0, h, tile):
                for tx in range(0, w, tile):
                    block = np.zeros((tile, tile, p.shape[2]), a.dtype)
                    part = p[ty : ty + tile, tx : tx + tile]
                    block[: part.shape[0], : part.shape[1]] = part
                    chunks.append(block.astype(dtype).tobytes())
        else:
            for y in range(0, h, rows_per_strip):
                chunks.append(p[y : y + rows_per_strip].astype(dtype).tobytes())
    e = order
    data = b"".join(chunks)
    offsets, pos = [], 8
    for ch in chunks:
        offsets.append(pos)
        pos += len(ch)
    entries = [(256, LONG, [w]), (257, LONG, [h]), (258, SHORT, [bps] * c), (259, SHORT, [1]),
               (262, SHORT, [photometric]), (277, SHORT, [c]), (284, SHORT, [planar]), (339, SHORT, [fmt] * c)]
    if tile:
        entries += [(322, LONG, [tile]), (323, LONG, [tile]), (324, LONG, offsets),
                    (325, LONG, [len(ch) for ch in chunks])]
    else:
        entries += [(273, LONG, offsets), (278, LONG, [rows_per_strip]), (279, LONG, [len(ch) for ch in chunks])]
    if extra:
        entries.append((338, SHORT, [2] * extra))
    entries.sort()
    ifd_at = 8 + len(data)
    spill_at = ifd_at + 2 + 12 * len(entries) + 4
    ifd, spill = b"", b""
    for tag, kind, values in entries:
        packed = struct.pack(e + ("H" if kind == SHORT else "I") * len(values), *values)
        if len(packed) <= 4:
            field = packed.ljust(4, b"\0")
        else:
            field = struct.pack(e + "I", spill_at + len(spill))
            spill += packed
        ifd += struct.pack(e + "HHI", tag, kind, len(values)) + field
    magic = b"II*\0" if order == "<" else b"MM\0*"
    return magic + struct.pack(e + "I", ifd_at) + data + struct.pack(e + "H", len(entries)) + ifd + b"\0\0\0\0" + spill


def samples(kind, channels):
    if kind == "u8":
        return rng.integers(0, 256, (H, W, channels)).astype(np.uint8)
    if kind == "u16":
        return rng.integers(0, 65536, (H, W, channels)).astype(np.uint16)
    return rng.random((H, W, channels)).astype(np.float32)


# name: (samples, encoder options)
LAYOUTS = {
    "gray8": (samples("u8", 1), dict(bps=8)),
    "gray16-big-endian": (samples("u16", 1), dict(bps=16, order=">")),
    "rgb8": (samples("u8", 3), dict(bps=8)),
    "rgb16": (samples("u16", 3), dict(bps=16)),
    "rgb16-separate-planes": (samples("u16", 3), dict(bps=16, planar=2)),
    "rgb8-tiled": (samples("u8", 3), dict(bps=8, tile=16)),
    "rgb8-tiled-separate": (samples("u8", 3), dict(bps=8, tile=16, planar=2)),
    "float32-gray": (samples("f32", 1), dict(bps=32, fmt=3)),
    "float32-rgb-one-strip": (samples("f32", 3), dict(bps=32, fmt=3, rows_per_strip=H)),
    "gray8-one-row-strips": (samples("u8", 1), dict(bps=8, rows_per_strip=1)),
}


@pytest.mark.parametrize("name", LAYOUTS)
def test_every_tiff_layout_is_read_exactly(qz, tmp_path, name):
    a, opts = LAYOUTS[name]
    src = tmp_path / f"{name}.tif"
    src.write_bytes(encode_tiff(a, **opts))
    out = tmp_path / "out.tif"
    qz("resize", src, "--scale", 1, "--method", "nearest", "-o", out, check=0)
    if a.shape[2] == 3 and a.dtype != np.uint8:
        # Pillow has no 16-bit or float RGB mode: check the luminance of what
        # was read (the weights are the built-in's) instead.
        qz("gray", out, "-o", tmp_path / "g.tif", check=0)
        want = a[..., 0] * 0.298936021293776 + a[..., 1] * 0.587043074451121 + a[..., 2] * 0.114020904255103
        np.testing.assert_allclose(np.asarray(Image.open(tmp_path / "g.tif")), want, rtol=1e-5, atol=0.5)
        return
    got = np.asarray(Image.open(out))
    np.testing.assert_array_equal(got, a[..., 0] if a.shape[2] == 1 else a)


@pytest.mark.parametrize("mode,compression", [("L", "raw"), ("L", "tiff_lzw"), ("RGB", "tiff_deflate"),
                                              ("RGB", "packbits"), ("I;16", "tiff_lzw"), ("F", "tiff_deflate")])
def test_pillow_written_compressed_tiffs_are_read_exactly(qz, tmp_path, mode, compression):
    kind = {"L": "u8", "RGB": "u8", "I;16": "u16", "F": "f32"}[mode]
    a = samples(kind, 3 if mode == "RGB" else 1)
    img = Image.fromarray(a if mode == "RGB" else a[..., 0], mode)
    img.save(tmp_path / "in.tif", compression=compression)
    qz("resize", tmp_path / "in.tif", "--scale", 1, "-o", tmp_path / "out.tif", check=0)
    np.testing.assert_array_equal(np.asarray(Image.open(tmp_path / "out.tif")), np.asarray(img))


def test_white_is_zero_gray_is_inverted_and_alpha_dropped(qz, tmp_path):
    a = samples("u8", 1)
    (tmp_path / "w.tif").write_bytes(encode_tiff(a, bps=8, photometric=0))
    qz("gray", tmp_path / "w.tif", "-o", tmp_path / "w.png", check=0)
    np.testing.assert_array_equal(np.asarray(Image.open(tmp_path / "w.png")), 255 - a[..., 0])
    rgba = samples("u8", 4)
    (tmp_path / "a.tif").write_bytes(encode_tiff(rgba, bps=8, extra=1))
    p = qz("resize", tmp_path / "a.tif", "--scale", 1, "-o", tmp_path / "a.png", check=0)
    assert "alpha" in p.stderr
    np.testing.assert_array_equal(np.asarray(Image.open(tmp_path / "a.png")), rgba[..., :3])


def test_float_tiff_through_to8_and_resize(qz, tmp_path):
    f = np.array([[0.0, 0.25, 0.5, 1.0, 2.0, -1.0, np.nan]], np.float32)
    Image.fromarray(f, "F").save(tmp_path / "f.tif")
    qz("to8", tmp_path / "f.tif", "-o", tmp_path / "f8.png", check=0)
    np.testing.assert_array_equal(np.asarray(Image.open(tmp_path / "f8.png")), [[0, 64, 128, 255, 255, 0, 0]])
    ramp = np.tile(np.linspace(0, 1, 40, dtype=np.float32), (30, 1))
    Image.fromarray(ramp, "F").save(tmp_path / "r.tif")
    qz("resize", tmp_path / "r.tif", "--size", "15x20", "-o", tmp_path / "half.tif", check=0)
    half = np.asarray(Image.open(tmp_path / "half.tif"))
    assert half.dtype == np.float32 and half.shape == (15, 20)
    np.testing.assert_allclose(half[7], np.linspace(0, 1, 40)[0::2] + 0.5 / 39, atol=2e-3)
    p = qz("resize", tmp_path / "r.tif", "--scale", 0.5, "-o", tmp_path / "half.png")
    assert p.returncode == 2 and "TIFF" in p.stderr and not (tmp_path / "half.png").exists()


def test_written_tiffs_keep_class_and_size(qz, tmp_path):
    rgb = samples("u8", 3)
    Image.fromarray(rgb).save(tmp_path / "in.png")
    qz("gray", tmp_path / "in.png", "-o", tmp_path / "g.tiff", check=0)
    qz("gray", tmp_path / "in.png", "-o", tmp_path / "g.png", check=0)
    g = Image.open(tmp_path / "g.tiff")
    assert g.mode == "L" and g.size == (W, H)
    np.testing.assert_array_equal(np.asarray(g), np.asarray(Image.open(tmp_path / "g.png")))
    g16 = samples("u16", 1)[..., 0]
    Image.fromarray(g16).save(tmp_path / "g16.png")
    qz("resize", tmp_path / "g16.png", "--scale", 1, "-o", tmp_path / "g16.tif", check=0)
    np.testing.assert_array_equal(np.asarray(Image.open(tmp_path / "g16.tif")), g16)


def bad_files():
    good = encode_tiff(samples("u8", 1), bps=8)
    huge = bytearray(good)
    ifd = struct.unpack("<I", good[4:8])[0]
    # The first entry is the width: claim 60000 pixels across.
    struct.pack_into("<I", huge, ifd + 2 + 8, 60000)
    return {
        "truncated": (good[: len(good) // 2], "error"),
        "header-only": (good[:8], "TIFF"),
        "claims-more-than-it-holds": (bytes(huge), "more than its"),
        "too-large": (encode_tiff(np.zeros((1, 70000, 1), np.uint8), bps=8, rows_per_strip=1), "larger than"),
        "signed-16": (encode_tiff(samples("u16", 1).astype(np.int16), bps=16, fmt=2), "not supported"),
        "cielab": (encode_tiff(samples("u8", 3), bps=8, photometric=8), "not supported"),
        "cmyk": (encode_tiff(samples("u8", 4), bps=8, photometric=5), "not supported"),
        "float-white-is-zero": (encode_tiff(samples("f32", 1), bps=32, fmt=3, photometric=0), "not supported"),
    }


@pytest.mark.parametrize("name", bad_files().keys())
def test_damaged_or_unsupported_tiffs_are_refused_cleanly(qz, tmp_path, name):
    content, reason = bad_files()[name]
    src = tmp_path / "bad.tif"
    src.write_bytes(content)
    p = qz("gray", src, "-o", tmp_path / "o.png")
    assert p.returncode == 2 and p.stderr.startswith(f"error: {src}: ") and reason in p.stderr, p.stderr
    assert not (tmp_path / "o.png").exists()
