"""The qzimages program end to end: .npy and image files in, files out,
exit statuses and messages as a script relies on them."""

import os

import numpy as np
import pytest
from PIL import Image

NUMERIC = ["f8", "f4", "i1", "u1", "i2", "u2", "i4", "u4", "i8", "u8"]


def save(path, a):
    np.save(path, a, allow_pickle=False)
    return path


def rgb_image(rng, shape, dtype):
    if np.dtype(dtype).kind == "f":
        return rng.uniform(-0.2, 1.2, shape).astype(dtype)
    info = np.iinfo(dtype)
    return rng.integers(info.min, info.max, shape, dtype=dtype, endpoint=True)


# ---- .npy reading and writing ----------------------------------------------------


@pytest.mark.parametrize("dtype", NUMERIC)
def test_every_order_and_byte_order_reads_the_same_array(qz, tmp_path, dtype):
    rng = np.random.default_rng(1)
    a = rgb_image(rng, (5, 7, 3), dtype)
    variants = {
        "c_little": np.ascontiguousarray(a.astype(a.dtype.newbyteorder("<"))),
        "f_little": np.asfortranarray(a.astype(a.dtype.newbyteorder("<"))),
        "c_big": np.ascontiguousarray(a.astype(a.dtype.newbyteorder(">"))),
        "f_big": np.asfortranarray(a.astype(a.dtype.newbyteorder(">"))),
    }
    results = {}
    for name, v in variants.items():
        out = tmp_path / name
        out.mkdir()
        qz("call", "rgb2gray", "-o", out, save(tmp_path / f"{name}.npy", v), check=0)
        r = np.load(out / "out0.npy")
        assert r.dtype == np.dtype(dtype).newbyteorder("<") and r.shape == (5, 7)
        assert r.flags.f_contiguous
        results[name] = r
    for r in results.values():
        np.testing.assert_array_equal(r, results["c_little"])


def identity_filter(length):
    w = np.ones((1, length))
    x = np.arange(1, length + 1, dtype=np.float64).reshape(1, length)
    return w, x


@pytest.mark.parametrize(
    "dtype", ["f8", "f4", "i1", "u1", "i2", "u2", "i4", "u4", "c16", "c8", "?", "cint16", "cuint8"]
)
def test_arrays_come_back_unchanged_through_an_identity_resampling(qz, tmp_path, dtype):
    rng = np.random.default_rng(2)
    if dtype.startswith(("cint", "cuint")):  # complex integers: a two-field record
        base = np.dtype(dtype[1:])
        a = np.zeros((4, 6), dtype=[("re", base), ("im", base)])
        a["re"] = rgb_image(rng, (4, 6), base)
        a["im"] = rgb_image(rng, (4, 6), base)
    elif dtype == "?":
        a = rng.integers(0, 2, (4, 6)).astype(bool)
    elif dtype in ("c16", "c8"):
        a = (rng.normal(size=(4, 6)) + 1j * rng.normal(size=(4, 6))).astype(dtype)
    else:
        a = rgb_image(rng, (4, 6), dtype)
    w, x = identity_filter(4)
    for order in ("C", "F"):
        out = tmp_path / order
        out.mkdir()
        arr = np.ascontiguousarray(a) if order == "C" else np.asfortranarray(a)
        qz("call", "imresize", "-o", out, save(tmp_path / "a.npy", arr), save(tmp_path / "w.npy", w),
           save(tmp_path / "x.npy", x), save(tmp_path / "d.npy", np.array(1.0)), check=0)
        r = np.load(out / "out0.npy")
        expected = a.astype(np.uint8) if dtype == "?" else a  # logical images resample as uint8
        assert r.dtype == expected.dtype
        np.testing.assert_array_equal(r, expected)


@pytest.mark.parametrize("shape,dims", [((), (1, 1)), ((5,), (1, 5)), ((4, 5, 1), (4, 5)), ((2, 1, 3), (2, 1, 3))])
def test_shapes_map_to_host_dimensions(qz, tmp_path, shape, dims):
    a = np.full(shape, 0.25)
    w, x = identity_filter(dims[0])
    qz("call", "imresize", "-o", tmp_path, save(tmp_path / "a.npy", a), save(tmp_path / "w.npy", w),
       save(tmp_path / "x.npy", x), save(tmp_path / "d.npy", np.array(1.0)), check=0)
    assert np.load(tmp_path / "out0.npy").shape == dims


def test_npy_format_versions_two_and_three_are_read(qz, tmp_path):
    a = np.asfortranarray(np.arange(12, dtype=np.float64).reshape(2, 2, 3) / 12)
    for version in [(1, 0), (2, 0), (3, 0)]:
        path = tmp_path / f"v{version[0]}.npy"
        with open(path, "wb") as f:
            np.lib.format.write_array(f, a, version=version)
        out = tmp_path / f"out{version[0]}"
        out.mkdir()
        qz("call", "rgb2gray", "-o", out, path, check=0)
        assert np.load(out / "out0.npy").shape == (2, 2)


# ---- call: statuses and messages -----------------------------------------------------


def test_call_error_prints_the_identifier_and_writes_nothing(qz, tmp_path):
    img = save(tmp_path / "img.npy", np.zeros((2, 2, 3), np.uint8))
    p = qz("call", "cq", "-o", tmp_path, img, check=1)
    assert p.stderr.startswith("error: ORRERY:images:cq:twoInputsRequired: ")
    assert len(p.stderr.strip().splitlines()) == 1
    assert not (tmp_path / "out0.npy").exists()
    p = qz("call", "cq", "-n", 2, "-o", tmp_path, img, save(tmp_path / "k.npy", np.array(70000.0)), check=1)
    assert "ORRERY:images:cq:tooManyColors" in p.stderr


def test_call_warning_line_for_complex_grayto8(qz, tmp_path):
    a = save(tmp_path / "a.npy", np.array([[0.5 + 1j, 1.0 - 2j]]))
    p = qz("call", "grayto8", "-o", tmp_path, a, check=0)
    lines = p.stderr.strip().splitlines()
    assert len(lines) == 1 and lines[0].startswith("warning: ORRERY:images:grayto8:ignoringImaginaryPartOfInput: ")
    np.testing.assert_array_equal(np.load(tmp_path / "out0.npy"), np.array([[128, 255]], np.uint8))


def test_call_nargout_controls_the_second_output(qz, tmp_path):
    img = save(tmp_path / "img.npy", np.zeros((3, 4, 3), np.uint8))
    k = save(tmp_path / "k.npy", np.array(4.0))
    for n, files in [(0, {"out0.npy"}), (1, {"out0.npy"}), (2, {"out0.npy", "out1.npy"})]:
        out = tmp_path / f"n{n}"
        out.mkdir()
        qz("call", "cq", "-n", n, "-o", out, img, k, check=0)
        assert set(os.listdir(out)) == files


@pytest.mark.parametrize(
    "make",
    [
        lambda d: ("nosuchbuiltin", save(d / "a.npy", np.zeros(3))),
        lambda d: ("rgb2gray", d / "missing.npy"),
        lambda d: ("rgb2gray", save(d / "h.npy", np.zeros(3, np.float16))),
        lambda d: ("rgb2gray", save(d / "s.npy", np.array(["text"]))),
        lambda d: ("rgb2gray", (d / "bad.npy").write_bytes(b"\x93NUMPY\x01\x00\x10\x00{'descr': '<f8'") or d / "bad.npy"),
        lambda d: ("rgb2gray", (d / "trunc.npy").write_bytes(open(save(d / "ok.npy", np.zeros((4, 4, 3))), "rb").read()[:-5]) or d / "trunc.npy"),
    ],
    ids=["unknown-builtin", "missing-file", "float16", "strings", "malformed-header", "truncated-data"],
)
def test_call_usage_problems_exit_2_with_a_message(qz, tmp_path, make):
    name, path = make(tmp_path)
    p = qz("call", name, "-o", tmp_path, path, check=2)
    assert p.stderr.startswith("error: ") and len(p.stderr) > 10


# ---- image subcommands ----------------------------------------------------------------------


def write_png(path, array, mode=None):
    Image.fromarray(array, mode).save(path)
    return path


def test_gray_matches_the_built_in_and_keeps_16_bits(qz, tmp_path):
    rng = np.random.default_rng(3)
    rgb = rng.integers(0, 256, (9, 13, 3), dtype=np.uint8)
    qz("gray", write_png(tmp_path / "in.png", rgb), "-o", tmp_path / "g.png", check=0)
    got = np.asarray(Image.open(tmp_path / "g.png"))
    w = np.array([0.298936021293776, 0.587043074451121, 0.114020904255103])
    expected = np.floor(rgb[..., 0] * w[0] + rgb[..., 1] * w[1] + (rgb[..., 2] * w[2] + 0.5)).astype(np.uint8)
    np.testing.assert_array_equal(got, expected)


def test_alpha_is_dropped_with_a_note(qz, tmp_path):
    rgba = np.zeros((4, 4, 4), np.uint8)
    rgba[..., 0] = 200
    rgba[..., 3] = 17
    p = qz("gray", write_png(tmp_path / "a.png", rgba), "-o", tmp_path / "g.png", check=0)
    assert "alpha" in p.stderr


def test_resize_at_scale_one_reproduces_the_input(qz, tmp_path, data_dir):
    src = os.path.join(data_dir, "chelsea.png")
    for method in ["nearest", "bilinear", "bicubic", "lanczos2", "lanczos3", "box"]:
        out = tmp_path / f"{method}.png"
        qz("resize", src, "--scale", 1, "--method", method, "-o", out, check=0)
        np.testing.assert_array_equal(np.asarray(Image.open(out)), np.asarray(Image.open(src).convert("RGB")))


def test_resize_sizes(qz, tmp_path, data_dir):
    src = os.path.join(data_dir, "chelsea.png")
    qz("resize", src, "--scale", 0.5, "-o", tmp_path / "h.png", check=0)
    assert Image.open(tmp_path / "h.png").size == (226, 150)
    qz("resize", src, "--size", "64x80", "-o", tmp_path / "s.png", check=0)
    assert Image.open(tmp_path / "s.png").size == (80, 64)


def test_quantize_writes_a_palette_png_and_reports_psnr(qz, tmp_path, data_dir):
    p = qz("quantize", os.path.join(data_dir, "coffee.png"), "-k", 16, "-o", tmp_path / "q.png",
           "--map", tmp_path / "m.npy", check=0)
    q = Image.open(tmp_path / "q.png")
    assert q.mode == "P"
    colours = int(p.stdout.split("colours:")[1].split()[0])
    assert 1 <= colours <= 16
    assert float(p.stdout.split("PSNR:")[1].split()[0]) > 20
    m = np.load(tmp_path / "m.npy")
    assert m.shape == (colours, 3) and m.dtype == np.float64
    # The palette PNG expands back through ind2rgb to the same picture.
    qz("ind2rgb", tmp_path / "q.png", "-o", tmp_path / "back.png", check=0)
    np.testing.assert_array_equal(np.asarray(Image.open(tmp_path / "back.png")), np.asarray(q.convert("RGB")))


def test_to8_on_16_bit_png_and_npy(qz, tmp_path):
    u = np.arange(0, 65536, 257 * 7 + 3, dtype=np.uint16).reshape(1, -1)
    Image.fromarray(u.astype(np.uint16)).save(tmp_path / "g16.png")
    qz("to8", tmp_path / "g16.png", "-o", tmp_path / "o.png", check=0)
    got = np.asarray(Image.open(tmp_path / "o.png"))
    np.testing.assert_array_equal(got, ((u.astype(np.int64) * 2 + 257) // 514).astype(np.uint8))
    qz("to8", save(tmp_path / "d.npy", np.array([[0.0, 0.5, 1.0, np.nan]])), "-o", tmp_path / "d.png", check=0)
    np.testing.assert_array_equal(np.asarray(Image.open(tmp_path / "d.png")), [[0, 128, 255, 0]])


def test_hsv_writes_three_planes_and_optionally_the_array(qz, tmp_path):
    rgb = np.zeros((2, 3, 3), np.uint8)
    rgb[0, 0] = (255, 0, 0)
    qz("hsv", write_png(tmp_path / "in.png", rgb), "-o", tmp_path / "p", "--npy", check=0)
    for c in "hsv":
        assert Image.open(tmp_path / f"p_{c}.png").size == (3, 2)
    hsv = np.load(tmp_path / "p.npy")
    np.testing.assert_array_equal(hsv[0, 0], [0.0, 1.0, 1.0])


@pytest.mark.parametrize(
    "content,suffix",
    [(b"this is not an image\n", ".png"), (b"\x89PNG\r\n\x1a\n\x00\x00\x00\x0dIHDR", ".png"), (b"\xff\xd8\xff\xe0\x00\x10JFIF", ".jpg"), (b"", ".png")],
    ids=["text-named-png", "truncated-png", "truncated-jpeg", "empty"],
)
def test_bad_image_files_give_a_clear_message(qz, tmp_path, content, suffix):
    path = tmp_path / f"bad{suffix}"
    path.write_bytes(content)
    for args in (["gray", path, "-o", tmp_path / "o.png"], ["resize", path, "--scale", "2", "-o", tmp_path / "o.png"]):
        p = qz(*args)
        assert p.returncode == 2 and p.stderr.startswith("error: ") and str(path) in p.stderr


def test_truncated_real_files_fail_cleanly(qz, tmp_path, data_dir):
    for name in ["coffee.png", "hubble_deep_field.jpg"]:
        data = open(os.path.join(data_dir, name), "rb").read()
        path = tmp_path / name
        path.write_bytes(data[: len(data) // 2])
        p = qz("gray", path, "-o", tmp_path / "o.png")
        assert p.returncode == 2 and "error:" in p.stderr


def test_missing_unwritable_and_bad_options(qz, tmp_path, data_dir):
    src = os.path.join(data_dir, "chelsea.png")
    assert qz("gray", tmp_path / "none.png", "-o", tmp_path / "o.png").returncode == 2
    assert qz("gray", src, "-o", "/nonexistent-dir/o.png").returncode == 2
    for bad in (["resize", src, "--scale", "-1", "-o", tmp_path / "o.png"],
                ["resize", src, "--scale", "abc", "-o", tmp_path / "o.png"],
                ["resize", src, "--size", "10by10", "-o", tmp_path / "o.png"],
                ["resize", src, "--method", "sinc", "--scale", "2", "-o", tmp_path / "o.png"],
                ["resize", src, "-o", tmp_path / "o.png"],
                ["quantize", src, "-k", "many", "-o", tmp_path / "o.png"],
                ["call", "rgb2gray", "-n", "-3"],
                ["frobnicate"]):
        p = qz(*bad)
        assert p.returncode == 2, (bad, p.stderr)
        assert p.stderr.strip(), bad


def test_demo_writes_its_pictures_and_a_table(qz, tmp_path):
    p = qz("demo", "-o", tmp_path / "demo", check=0)
    for f in ["gray.png", "hsv_h.png", "quantized_16.png", "quantized_256.png", "roundtrip_256.png", "half.png",
              "double.png", "gray8_from_double.png"]:
        assert (tmp_path / "demo" / f).exists(), f
    assert "PSNR" in p.stdout and "imresize" in p.stdout
    half = Image.open(tmp_path / "demo" / "half.png")
    assert half.size == (300, 200)


@pytest.mark.parametrize(
    "name,arrays",
    [
        ("rgb2gray", []),
        ("rgb2gray", [np.zeros((4, 5))]),
        ("rgb2hsv", [np.zeros((4, 5, 4))]),
        ("rgb2hsv", [np.zeros((2, 2, 3)), np.zeros((2, 2, 3))]),
        ("rgb2gray", [np.zeros((2, 2, 3), np.complex128)]),
        ("rgb2gray", [np.zeros((2, 2, 3), bool)]),
        ("imresize", [np.zeros((4, 4)), np.ones((1, 2)), np.array([[1.0, 5.0]]), np.array(1.0)]),
        ("imresize", [np.zeros((4, 4)), np.ones((1, 2)), np.array([[0.0, 1.0]]), np.array(2.0)]),
        ("imresize", [np.zeros((4, 4)), np.ones((1, 2)), np.array([[np.nan, 1.0]]), np.array(2.0)]),
    ],
    ids=["gray-no-input", "gray-2d", "hsv-4-planes", "hsv-two-inputs", "gray-complex", "gray-logical", "resize-index-past-end",
         "resize-index-zero", "resize-index-nan"],
)
def test_call_refuses_what_a_built_in_would_take_on_trust(qz, tmp_path, name, arrays):
    files = [save(tmp_path / f"in{i}.npy", a) for i, a in enumerate(arrays)]
    p = qz("call", name, "-o", tmp_path, *files, check=2)
    assert p.stderr.startswith("error: ")
    assert not (tmp_path / "out0.npy").exists()
