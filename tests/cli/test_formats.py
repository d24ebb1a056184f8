"""The image readers and writers against files written by pypng, tifffile and Pillow; files refused before decoding."""

import io
import struct
import zlib

import numpy as np
import png
import pytest
import tifffile
from PIL import Image

rng = np.random.default_rng(11)
H, W = 23, 37  # odd: sub-byte PNG rows end mid-byte; not multiples of the 16-pixel TIFF tiles or the strips
read = lambda path: np.asarray(Image.open(path))  # noqa: E731
WEIGHTS = (0.298936021293776, 0.587043074451121, 0.114020904255103)


def gray_of(rgb):  # 8-bit: the blue term and the half added first, as the kernel does
    r, g, b = (rgb[..., c].astype(np.float64) * WEIGHTS[c] for c in range(3))
    return np.floor(r + g + (b + 0.5)) if rgb.dtype == np.uint8 else np.floor((r + g) + b + 0.5)


def png_case(name, channels, depth, transparent=None):
    """A PNG of random samples and the gray image `gray` must make of it; `transparent`: the gray or RGB value
    shown as transparent, or the alpha of the first palette entries."""
    palette = name.startswith("palette")
    s = rng.integers(0, 4 if palette and transparent else 2**depth, (H, W, channels)).astype("u2")
    pal = rng.integers(0, 256, (2**depth, 3)).astype(np.uint8)
    # Palette entries with an alpha make the tRNS chunk.
    options = (dict(palette=[tuple(c) + tuple(transparent or ())[i : i + 1] for i, c in enumerate(pal.tolist())]) if palette
               else dict(greyscale=channels < 3, alpha=channels in (2, 4), transparent=transparent))
    png.Writer(W, H, bitdepth=depth, **options).write(f := io.BytesIO(), s.reshape(H, -1).tolist())
    if not palette and channels < 3:  # gray widened to 8 bits by replicating its bits
        return f.getvalue(), s[..., 0] * (255 // (2**depth - 1)) if depth < 8 else s[..., 0], None
    rgb = pal[s[..., 0]] if palette else s[..., :3].astype("u1" if depth == 8 else "u2")
    return f.getvalue(), gray_of(rgb), rgb if palette else None


PNGS = {f"{kind}{d}": (c, d) for kind, c, depths in [("gray", 1, (1, 2, 4, 8, 16)), ("palette", 1, (1, 2, 4, 8)),
        ("gray-alpha", 2, (8, 16)), ("rgb", 3, (8, 16)), ("rgba", 4, (8, 16))] for d in depths}
PNGS.update({"rgb8-trns": (3, 8, (1, 2, 3)), "palette8-trns": (1, 8, (0, 128))})


@pytest.mark.parametrize("name", PNGS)
def test_every_png_format_decodes_exactly(qz, tmp_path, name):
    (tmp_path / "in.png").write_bytes((case := png_case(name, *PNGS[name]))[0])
    p = qz("gray", tmp_path / "in.png", "-o", tmp_path / "out.png", check=0)
    assert ("alpha channel dropped" in p.stderr) == ("alpha" in name or "rgba" in name or "trns" in name)
    assert ((got := read(tmp_path / "out.png")).dtype != np.uint8) == (PNGS[name][1] == 16)  # 16 bits stay 16 bits
    np.testing.assert_array_equal(got, case[1])
    if case[2] is not None:  # a palette image's samples are indices to ind2rgb
        qz("ind2rgb", tmp_path / "in.png", "-o", tmp_path / "rgb.png", check=0)
        np.testing.assert_array_equal(read(tmp_path / "rgb.png"), case[2])


def tiff(a, planarconfig="contig", **options):
    """a: H x W x C of its dtype's samples, uncompressed, in strips of 7 rows unless tiled."""
    a = np.moveaxis(a, -1, 0) if planarconfig == "separate" else a[..., 0] if a.shape[-1] == 1 else a
    options.setdefault("photometric", "rgb" if a.ndim == 3 else "minisblack")
    tifffile.imwrite(f := io.BytesIO(), a, planarconfig=planarconfig, rowsperstrip=7, compression=None, **options)
    return f.getvalue()


U8, U16 = (lambda c: rng.integers(0, 256, (H, W, c)).astype(np.uint8)), (lambda c: rng.integers(0, 65536, (H, W, c)).astype(np.uint16))
F32 = lambda c: rng.random((H, W, c)).astype(np.float32)  # noqa: E731
# name: samples, how they are written, what is read back (None: the samples)
TIFFS = {
    "gray8": (U8(1), tiff, None), "gray16-big-endian": (U16(1), lambda a: tiff(a, byteorder=">"), None),
    "gray8-white-is-zero": (U8(1), lambda a: tiff(a, photometric="miniswhite"), lambda a: 255 - a),
    "rgb8-tiled": (U8(3), lambda a: tiff(a, tile=(16, 16)), None),
    "rgb8-tiled-separate": (U8(3), lambda a: tiff(a, tile=(16, 16), planarconfig="separate"), None),
    "rgb16-separate": (U16(3), lambda a: tiff(a, planarconfig="separate"), None),
    "rgba8-extra-sample": (U8(4), lambda a: tiff(a, extrasamples=["unassalpha"]), lambda a: a[..., :3]),
    "float32-gray": (F32(1), tiff, None),
    "lzw-rgb8-by-pillow": (U8(3), lambda a: Image.fromarray(a).save(f := io.BytesIO(), "TIFF", compression="tiff_lzw")
                           or f.getvalue(), None),
}


@pytest.mark.parametrize("name", TIFFS)
def test_every_tiff_layout_is_read_and_written_exactly(qz, tmp_path, name):
    a, write, want = TIFFS[name]
    (tmp_path / "in.tif").write_bytes(write(a))
    p = qz("resize", tmp_path / "in.tif", "--scale", 1, "-o", tmp_path / "out.tiff", check=0)
    assert ("alpha" in p.stderr) == name.startswith("rgba")
    got, want = tifffile.imread(tmp_path / "out.tiff"), (want(a) if want else a)
    assert got.dtype == a.dtype
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


LARGE, SHORT, TIF = "60000x60000 pixels is larger than the reader allows", "truncated or damaged data", tiff(U8(1))
BAD = {  # huge: within the 65536 a side the formats allow, far beyond the pixel limit; short: more than the data holds
    "huge.png": (claiming("PNG", 60000, 60000), LARGE), "huge.jpg": (claiming("JPEG", 60000, 60000), LARGE),
    "header-only.png": (claiming("PNG", 4, 4)[:33], ""),
    "huge.tif": (TIF.replace(struct.pack("<HHII", 256, 4, 1, W), struct.pack("<HHII", 256, 4, 1, 60000)), "more than its"),
    "too-large.tif": (tiff(np.zeros((1, 70000, 1), np.uint8)), "larger than"),
    "short.png": (claiming("PNG", 3000, 3000), "its header claims 3000x3000 pixels, more than its"),
    "short.jpg": (claiming("JPEG", 4000, 4000), SHORT), "short-progressive.jpg": (claiming("JPEG", 4000, 4000, True), SHORT),
    "short.tif": (TIF[: len(TIF) // 2], "truncated TIFF"), "header-only.tif": (TIF[:8], "TIFF"),
    "cmyk.tif": (tiff(U8(4), photometric="separated"), "not supported"), "u32.tif": (tiff(U16(1).astype("u4")), "32-bit unsigned"),
    "signed16.tif": (tiff(U16(1).astype(np.int16)), "not supported"),
    "float-white-is-zero.tif": (tiff(F32(1), photometric="miniswhite"), "not supported"),
}


@pytest.mark.parametrize("name", BAD)
def test_damaged_hostile_or_unsupported_images_are_refused(qz, tmp_path, name):
    (tmp_path / name).write_bytes(BAD[name][0])
    for args in (["gray"], ["resize", "--scale", 2]):
        p = qz(*args, tmp_path / name, "-o", tmp_path / "o.png", check=2)
        assert p.stderr.startswith(f"error: {tmp_path / name}: ") and BAD[name][1] in p.stderr, p.stderr
        assert not (tmp_path / "o.png").exists()
