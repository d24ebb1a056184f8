"""Every PNG colour type and bit depth the readers accept, written by a
minimal encoder here (independent of the codec under test) and checked
through the gray subcommand."""

import struct
import zlib

import numpy as np
import pytest
from PIL import Image

W = (0.298936021293776, 0.587043074451121, 0.114020904255103)


def chunk(kind, data):
    body = kind + data
    return struct.pack(">I", len(data)) + body + struct.pack(">I", zlib.crc32(body) & 0xFFFFFFFF)


def pack_row(samples, depth):
    """Samples of one row, big-endian, packed at `depth` bits."""
    if depth == 16:
        return samples.astype(">u2").tobytes()
    if depth == 8:
        return samples.astype(np.uint8).tobytes()
    per = 8 // depth
    padded = np.zeros(-(-len(samples) // per) * per, np.uint8)
    padded[: len(samples)] = samples
    out = np.zeros(len(padded) // per, np.uint8)
    for k in range(per):
        out |= (padded[k::per] << (8 - depth * (k + 1))).astype(np.uint8)
    return out.tobytes()


def encode_png(path, samples, colour_type, depth, palette=None, trns=None):
    """samples: H x W x C integer array in the file's channel layout."""
    h, w = samples.shape[:2]
    flat = samples.reshape(h, -1)
    raw = b"".join(b"\x00" + pack_row(flat[y], depth) for y in range(h))
    data = b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", struct.pack(">IIBBBBB", w, h, depth, colour_type, 0, 0, 0))
    if palette is not None:
        data += chunk(b"PLTE", palette.astype(np.uint8).tobytes())
    if trns is not None:
        data += chunk(b"tRNS", trns)
    data += chunk(b"IDAT", zlib.compress(raw)) + chunk(b"IEND", b"")
    path.write_bytes(data)
    return path


def gray_of(rgb, depth):
    r, g, b = (rgb[..., c].astype(np.float64) for c in range(3))
    if depth == 8:
        return np.floor(r * W[0] + g * W[1] + (b * W[2] + 0.5)).astype(np.uint8)
    return np.floor((r * W[0] + g * W[1]) + b * W[2] + 0.5).astype(np.uint16)


rng = np.random.default_rng(11)
H, WIDTH = 5, 11  # odd width: sub-byte rows end mid-byte


def case(colour_type, depth, channels, **extra):
    top = (1 << depth) - 1
    samples = rng.integers(0, top + 1, (H, WIDTH, channels)).astype(np.uint16 if depth == 16 else np.uint8)
    return colour_type, depth, samples, extra


CASES = {
    "gray1": case(0, 1, 1), "gray2": case(0, 2, 1), "gray4": case(0, 4, 1), "gray8": case(0, 8, 1),
    "gray16": case(0, 16, 1), "gray8-alpha": case(4, 8, 2), "gray16-alpha": case(4, 16, 2),
    "rgb8": case(2, 8, 3), "rgb16": case(2, 16, 3), "rgba8": case(6, 8, 4), "rgba16": case(6, 16, 4),
    "rgb8-trns": case(2, 8, 3, trns=struct.pack(">HHH", 1, 2, 3)),
}
for depth in (1, 2, 4, 8):
    n = 1 << depth
    CASES[f"palette{depth}"] = (3, depth, rng.integers(0, n, (H, WIDTH, 1)).astype(np.uint8),
                                {"palette": rng.integers(0, 256, (n, 3))})
CASES["palette8-trns"] = (3, 8, rng.integers(0, 4, (H, WIDTH, 1)).astype(np.uint8),
                          {"palette": rng.integers(0, 256, (4, 3)), "trns": b"\x00\x80"})


@pytest.mark.parametrize("name", sorted(CASES))
def test_every_png_format_decodes_exactly(qz, tmp_path, name):
    colour_type, depth, samples, extra = CASES[name]
    src = encode_png(tmp_path / "in.png", samples, colour_type, depth, **extra)
    p = qz("gray", src, "-o", tmp_path / "out.png", check=0)
    has_alpha = colour_type in (4, 6) or "trns" in extra
    assert ("alpha channel dropped" in p.stderr) == has_alpha
    got = np.asarray(Image.open(tmp_path / "out.png"))
    if colour_type == 3:
        expected = gray_of(extra["palette"][samples[..., 0]], 8)
    elif colour_type in (0, 4):
        g = samples[..., 0].astype(np.uint32)
        expected = (g * (255 // ((1 << depth) - 1))).astype(np.uint8) if depth < 8 else samples[..., 0]
    else:
        expected = gray_of(samples[..., :3], depth)
    assert got.dtype == expected.dtype or (depth == 16 and got.dtype.kind in "iu")
    np.testing.assert_array_equal(got.astype(np.int64), expected.astype(np.int64))


def test_palette_indices_are_read_as_indices(qz, tmp_path):
    idx = rng.integers(0, 16, (H, WIDTH, 1)).astype(np.uint8)
    palette = rng.integers(0, 256, (16, 3))
    src = encode_png(tmp_path / "p.png", idx, 3, 4, palette=palette)
    qz("ind2rgb", src, "-o", tmp_path / "rgb.png", check=0)
    np.testing.assert_array_equal(np.asarray(Image.open(tmp_path / "rgb.png")), palette[idx[..., 0]])
