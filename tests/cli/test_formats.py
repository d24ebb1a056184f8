"""The image readers and writers against files from minimal encoders here and Pillow; files refused before decoding."""

import io
import struct
import zlib

import numpy as np
import pytest
from PIL import Image

rng = np.random.default_rng(11)
H, W = 23, 37  # odd: sub-byte PNG rows end mid-byte; not multiples of the 16-pixel TIFF tiles or the strips
read = lambda path: np.asarray(Image.open(path))  # noqa: E731
WEIGHTS = (0.298936021293776, 0.587043074451121, 0.114020904255103)


def gray_of(rgb):  # 8-bit: the blue term and the half added first, as the kernel does
    r, g, b = (rgb[..., c].astype(np.float64) * WEIGHTS[c] for c in range(3))
    return np.floor(r + g + (b + 0.5)) if rgb.dtype == np.uint8 else np.floor((r + g) + b + 0.5)


def chunk(kind, data):
    return struct.pack(">I", len(data)) + kind + data + struct.pack(">I", zlib.crc32(kind + data))


def png_case(colour_type, depth, channels, trns=b""):
    """A PNG of random samples and the gray image `gray` must make of it."""
    s = rng.integers(0, 4 if trns and colour_type == 3 else 2**depth, (H, W, channels)).astype("u2")
    bits = np.unpackbits(s.astype(">u2").reshape(H, -1, 1).view(np.uint8), axis=2)[..., 16 - depth :]
    raw = b"".join(b"\0" + row.tobytes() for row in np.packbits(bits.reshape(H, -1), axis=1))
    pal = rng.integers(0, 256, (2**depth, 3)).astype(np.uint8)
    data = b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", struct.pack(">IIBBBBB", W, H, depth, colour_type, 0, 0, 0))
    data += (chunk(b"PLTE", pal.tobytes()) if colour_type == 3 else b"") + (chunk(b"tRNS", trns) if trns else b"")
    data += chunk(b"IDAT", zlib.compress(raw)) + chunk(b"IEND", b"")
    if colour_type in (0, 4):  # gray widened to 8 bits by replicating its bits
        return data, s[..., 0] * (255 // (2**depth - 1)) if depth < 8 else s[..., 0], None
    rgb = pal[s[..., 0]] if colour_type == 3 else s[..., :3].astype("u1" if depth == 8 else "u2")
    return data, gray_of(rgb), rgb if colour_type == 3 else None


PNGS = {f"{kind}{d}": (t, d, c) for kind, t, c, depths in [("gray", 0, 1, (1, 2, 4, 8, 16)), ("palette", 3, 1, (1, 2, 4, 8)),
        ("gray-alpha", 4, 2, (8, 16)), ("rgb", 2, 3, (8, 16)), ("rgba", 6, 4, (8, 16))] for d in depths}
PNGS.update({"rgb8-trns": (2, 8, 3, struct.pack(">HHH", 1, 2, 3)), "palette8-trns": (3, 8, 1, b"\x00\x80")})


@pytest.mark.parametrize("name", PNGS)
def test_every_png_format_decodes_exactly(qz, tmp_path, name):
    (tmp_path / "in.png").write_bytes((case := png_case(*PNGS[name]))[0])
    p = qz("gray", tmp_path / "in.png", "-o", tmp_path / "out.png", check=0)
    assert ("alpha channel dropped" in p.stderr) == ("alpha" in name or "rgba" in name or "trns" in name)
    assert ((got := read(tmp_path / "out.png")).dtype != np.uint8) == (PNGS[name][1] == 16)  # 16 bits stay 16 bits
    np.testing.assert_array_equal(got, case[1])
    if case[2] is not None:  # a palette image's samples are indices to ind2rgb
        qz("ind2rgb", tmp_path / "in.png", "-o", tmp_path / "rgb.png", check=0)
        np.testing.assert_array_equal(read(tmp_path / "rgb.png"), case[2])


def encode_tiff(a, fmt=1, photometric=None, planar=1, rows=7, tile=0, order="<", extra=0):
    """a: H x W x C of its dtype's samples; fmt 1 unsigned, 2 signed, 3 float. Uncompressed."""
    h, w, c = a.shape
    planes = [p.astype(a.dtype.newbyteorder(order)) for p in ([a] if planar == 1 else np.split(a, c, axis=2))]
    if tile:
        planes = [np.pad(p, ((0, -h % tile), (0, -w % tile), (0, 0))) for p in planes]
        chunks = [p[y:y + tile, x:x + tile].tobytes() for p in planes for y in range(0, h, tile) for x in range(0, w, tile)]
        layout = [(322, 4, [tile]), (323, 4, [tile]), (324, 4, None), (325, 4, [len(ch) for ch in chunks])]
    else:
        chunks = [p[y:y + rows].tobytes() for p in planes for y in range(0, h, rows)]
        layout = [(273, 4, None), (278, 4, [rows]), (279, 4, [len(ch) for ch in chunks])]
    offsets = [8 + sum(len(ch) for ch in chunks[:i]) for i in range(len(chunks))]
    photometric = (2 if c - extra >= 3 else 1) if photometric is None else photometric
    entries = sorted(layout + [(256, 4, [w]), (257, 4, [h]), (258, 3, [a.itemsize * 8] * c), (259, 3, [1]),
                               (262, 3, [photometric]), (277, 3, [c]), (284, 3, [planar]), (339, 3, [fmt] * c)]
                     + ([(338, 3, [2] * extra)] if extra else []))
    data = b"".join(chunks)
    spill_at, ifd, spill = 8 + len(data) + 2 + 12 * len(entries) + 4, b"", b""
    for tag, kind, values in entries:
        packed = struct.pack(order + "HI"[kind - 3] * len(values or offsets), *(values or offsets))
        ifd += struct.pack(order + "HHI", tag, kind, len(values or offsets))
        ifd += packed.ljust(4, b"\0") if len(packed) <= 4 else struct.pack(order + "I", spill_at + len(spill))
        spill += b"" if len(packed) <= 4 else packed
    head = (b"II*\0" if order == "<" else b"MM\0*") + struct.pack(order + "I", 8 + len(data))
    return head + data + struct.pack(order + "H", len(entries)) + ifd + b"\0\0\0\0" + spill


U8, U16 = (lambda c: rng.integers(0, 256, (H, W, c)).astype(np.uint8)), (lambda c: rng.integers(0, 65536, (H, W, c)).astype(np.uint16))
F32 = lambda c: rng.random((H, W, c)).astype(np.float32)  # noqa: E731
# name: samples, how they are written, what is read back (None: the samples)
TIFFS = {
    "gray8": (U8(1), encode_tiff, None), "gray16-big-endian": (U16(1), lambda a: encode_tiff(a, order=">"), None),
    "gray8-white-is-zero": (U8(1), lambda a: encode_tiff(a, photometric=0), lambda a: 255 - a),
    "rgb8-tiled": (U8(3), lambda a: encode_tiff(a, tile=16), None),
    "rgb8-tiled-separate": (U8(3), lambda a: encode_tiff(a, tile=16, planar=2), None),
    "rgb16-separate": (U16(3), lambda a: encode_tiff(a, planar=2), gray_of),
    "rgba8-extra-sample": (U8(4), lambda a: encode_tiff(a, extra=1), lambda a: a[..., :3]),
    "float32-gray": (F32(1), lambda a: encode_tiff(a, fmt=3), None),
    "lzw-rgb8-by-pillow": (U8(3), lambda a: Image.fromarray(a).save(f := io.BytesIO(), "TIFF", compression="tiff_lzw")
                           or f.getvalue(), None),
}


@pytest.mark.parametrize("name", TIFFS)
def test_every_tiff_layout_is_read_and_written_exactly(qz, tmp_path, name):
    a, write, want = TIFFS[name]
    (tmp_path / "in.tif").write_bytes(write(a))
    # Pillow has no 16-bit RGB mode: the gray of what was read instead.
    args = ["gray"] if want is gray_of else ["resize", "--scale", 1]
    p = qz(*args, tmp_path / "in.tif", "-o", tmp_path / "out.tiff", check=0)
    assert ("alpha" in p.stderr) == name.startswith("rgba")
    got, want = read(tmp_path / "out.tiff"), (want(a) if want else a)
    assert Image.open(tmp_path / "out.tiff").format == "TIFF" and got.dtype.itemsize == a.itemsize
    np.testing.assert_array_equal(got, want[..., 0] if want.shape[-1] == 1 else want)
    if a.dtype == np.float32:  # float stays float, which a PNG cannot hold
        assert qz("resize", tmp_path / "in.tif", "--scale", 1, "-o", tmp_path / "f.png", check=2).stderr.startswith("error: ")


def claiming(fmt, height, width, progressive=False):
    """A small real image whose header claims another size."""
    Image.fromarray(U8(3)).save(f := io.BytesIO(), fmt, progressive=progressive)
    data = bytearray(f.getvalue())
    if fmt == "PNG":
        data[16:24], data[29:33] = struct.pack(">II", width, height), b""
        return bytes(data[:29] + struct.pack(">I", zlib.crc32(bytes(data[12:29]))) + data[29:])
    at = data.index(b"\xff\xc2" if progressive else b"\xff\xc0") + 5
    return bytes(data[:at] + struct.pack(">HH", height, width) + data[at + 4 :])


LARGE, SHORT, TIF = "60000x60000 pixels is larger than the reader allows", "truncated or damaged data", encode_tiff(U8(1))
BAD = {  # huge: within the 65536 a side the formats allow, far beyond the pixel limit; short: more than the data holds
    "huge.png": (claiming("PNG", 60000, 60000), LARGE), "huge.jpg": (claiming("JPEG", 60000, 60000), LARGE),
    "header-only.png": (claiming("PNG", 4, 4)[:33], ""),
    "huge.tif": (TIF.replace(struct.pack("<HHII", 256, 4, 1, W), struct.pack("<HHII", 256, 4, 1, 60000)), "more than its"),
    "too-large.tif": (encode_tiff(np.zeros((1, 70000, 1), np.uint8), rows=1), "larger than"),
    "short.png": (claiming("PNG", 3000, 3000), "its header claims 3000x3000 pixels, more than its"),
    "short.jpg": (claiming("JPEG", 4000, 4000), SHORT), "short-progressive.jpg": (claiming("JPEG", 4000, 4000, True), SHORT),
    "short.tif": (TIF[: len(TIF) // 2], ""), "header-only.tif": (TIF[:8], "TIFF"),
    "cmyk.tif": (encode_tiff(U8(4), photometric=5), "not supported"), "u32.tif": (encode_tiff(U16(1).astype("u4")), "32-bit unsigned"),
    "signed16.tif": (encode_tiff(U16(1).astype(np.int16), fmt=2), "not supported"),
    "float-white-is-zero.tif": (encode_tiff(F32(1), fmt=3, photometric=0), "not supported"),
}


@pytest.mark.parametrize("name", BAD)
def test_damaged_hostile_or_unsupported_images_are_refused(qz, tmp_path, name):
    (tmp_path / name).write_bytes(BAD[name][0])
    for args in (["gray"], ["resize", "--scale", 2]):
        p = qz(*args, tmp_path / name, "-o", tmp_path / "o.png", check=2)
        assert p.stderr.startswith(f"error: {tmp_path / name}: ") and BAD[name][1] in p.stderr, p.stderr
        assert not (tmp_path / "o.png").exists()
