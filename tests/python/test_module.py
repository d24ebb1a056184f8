"""The Python host: layouts that cross without a copy, results that match the
command-line host, every refusal of the Python layer, warnings and threads."""

import os
import subprocess
import threading
import warnings

import numpy as np
import pytest
from PIL import Image

import qzimages as q
from qzimages import _qzimages

NUMERIC = ["f8", "f4", "i1", "u1", "i2", "u2", "i4", "u4", "i8", "u8"]
HSV_TYPES = ["f8", "f4", "u1", "u2"]


def random_image(rng, shape, dtype):
    dtype = np.dtype(dtype)
    if dtype.kind == "f":
        return rng.uniform(-0.2, 1.2, shape).astype(dtype)
    info = np.iinfo(dtype)
    return rng.integers(info.min, info.max, shape, dtype=dtype, endpoint=True)


def copies():
    return _qzimages._input_copies()


def is_host_memory(a):
    """A result over the host's array: NumPy does not own it, a capsule does."""
    return not a.flags.owndata and type(a.base).__name__ == "PyCapsule"


@pytest.fixture
def photo(data_dir):
    return np.asarray(Image.open(os.path.join(data_dir, "chelsea.png")).convert("RGB"))


# ---- layouts ---------------------------------------------------------------------------


@pytest.mark.parametrize("dtype", NUMERIC)
def test_rgb2gray_reads_both_contiguous_layouts_in_place(dtype):
    img = random_image(np.random.default_rng(1), (13, 17, 3), dtype)
    fimg = np.asfortranarray(img)
    before = copies()
    c_out, f_out = q.rgb2gray(img), q.rgb2gray(fimg)
    assert copies() == before
    assert c_out.dtype == f_out.dtype == img.dtype and c_out.shape == f_out.shape == (13, 17)
    assert c_out.flags.c_contiguous and f_out.flags.f_contiguous
    assert is_host_memory(c_out) and is_host_memory(f_out)
    np.testing.assert_array_equal(c_out, f_out)


@pytest.mark.parametrize("dtype", HSV_TYPES)
def test_rgb2hsv_reads_both_contiguous_layouts_in_place(dtype):
    img = random_image(np.random.default_rng(2), (11, 9, 3), dtype)
    before = copies()
    c_out, f_out = q.rgb2hsv(img), q.rgb2hsv(np.asfortranarray(img))
    assert copies() == before
    expected = np.float32 if dtype == "f4" else np.float64
    assert c_out.dtype == f_out.dtype == expected and c_out.shape == (11, 9, 3)
    assert c_out.flags.c_contiguous and f_out.flags.f_contiguous and is_host_memory(c_out)
    np.testing.assert_array_equal(c_out, f_out)


def test_interleaved_rgb2hsv_keeps_the_nan_rules():
    # One NaN channel: a NaN hue with the sign bit, or 0 when the other two are
    # both 0 or both 1; V and S from the channels that are numbers.
    img = np.array([[[np.nan, 0.2, 0.6], [np.nan, 1.0, 1.0], [0.0, np.nan, 0.0]]])
    for out in (q.rgb2hsv(img), q.rgb2hsv(np.asfortranarray(img))):
        assert np.isnan(out[0, 0, 0]) and np.signbit(out[0, 0, 0])
        assert out[0, 1, 0] == 0 and out[0, 2, 0] == 0
        np.testing.assert_array_equal(out[0, :, 2], [0.6, 1.0, 0.0])
        assert out[0, 0, 1] == (0.6 - 0.2) / 0.6


@pytest.mark.parametrize(
    "make",
    [
        lambda a: a[:, ::2],  # strided
        lambda a: a.astype(a.dtype.newbyteorder(">")),  # foreign byte order
        lambda a: np.transpose(a, (1, 0, 2)).copy().transpose(1, 0, 2),  # neither C nor F
        lambda a: np.frombuffer(b"\0" + a.tobytes(), a.dtype, offset=1).reshape(a.shape),  # misaligned
    ],
    ids=["strided", "big-endian", "mixed-order", "misaligned"],
)
@pytest.mark.parametrize("fn", [q.rgb2gray, q.rgb2hsv])
def test_other_layouts_are_converted_once(fn, make):
    img = random_image(np.random.default_rng(3), (8, 10, 3), "u2")
    odd = make(img)
    expected = fn(np.ascontiguousarray(odd.astype("=u2")))
    before = copies()
    np.testing.assert_array_equal(fn(odd), expected)
    assert copies() == before + 1


def test_built_in_outputs_are_host_memory_and_outlive_their_inputs():
    img = random_image(np.random.default_rng(4), (6, 5, 3), "u1")
    cmap, index = q.cq(img, 8)
    rgb = q.ind2rgb8(index, cmap / 255.0)
    expected = rgb[1:, :, 0].copy()
    assert is_host_memory(rgb)
    view = rgb[1:, :, 0]
    del img, cmap, index, rgb
    np.testing.assert_array_equal(view, expected)  # the view keeps the host array alive


def test_f_ordered_inputs_cross_without_a_copy():
    rng = np.random.default_rng(5)
    gray = np.asfortranarray(rng.uniform(0, 1, (7, 9)))
    index = np.asfortranarray(rng.integers(0, 4, (7, 9), dtype=np.uint8))
    cmap = np.asfortranarray(rng.uniform(0, 1, (4, 3)))
    before = copies()
    q.grayto8(gray)
    q.ind2rgb8(index, cmap)
    assert copies() == before
    q.grayto8(np.ascontiguousarray(gray))
    assert copies() == before + 1


# ---- results equal to the command-line host ------------------------------------------


def cli_call(qz_cli, tmp_path, name, arrays, nargout=1):
    files = []
    for i, a in enumerate(arrays):
        files.append(tmp_path / f"in{i}.npy")
        np.save(files[-1], a, allow_pickle=False)
    out = tmp_path / "out"
    qz_cli("call", name, "-n", nargout, "-o", out, *files)
    return [np.load(out / f"out{k}.npy") if (out / f"out{k}.npy").exists() else None for k in range(max(nargout, 2))]


def random_calls(rng):
    img8 = random_image(rng, (23, 19, 3), "u1")
    t, length = 4, 11
    weights = rng.uniform(-0.3, 1.0, (t, length))
    indices = rng.integers(1, 24, (t, length)).astype(np.float64)
    return [
        ("rgb2gray", [random_image(rng, (9, 8, 3), "i2")], 1),
        ("rgb2gray", [random_image(rng, (9, 8, 3), "f4")], 1),
        ("rgb2hsv", [random_image(rng, (9, 8, 3), "u2")], 1),
        ("cq", [img8, np.array(12.0)], 2),
        ("ind2rgb8", [rng.uniform(-1, 9, (6, 7)), rng.uniform(-0.1, 1.1, (8, 3))], 1),
        ("ind2rgb8", [rng.integers(0, 300, (6, 7)).astype(np.uint16), rng.uniform(0, 1, (8, 3))], 1),
        ("grayto8", [rng.uniform(-0.5, 1.5, (5, 6)).astype(np.float32)], 1),
        ("grayto8", [rng.integers(0, 65536, (5, 6)).astype(np.uint16)], 1),
        ("imresize", [random_image(rng, (23, 6, 3), "i4"), weights, indices, np.array(1.0)], 1),
        ("imresize", [rng.normal(size=(5, 23)) + 1j * rng.normal(size=(5, 23)), weights, indices, np.array(2.0)], 1),
    ]


def test_results_equal_the_command_line_host(qz_cli, tmp_path):
    for n, (name, arrays, nargout) in enumerate(random_calls(np.random.default_rng(6))):
        folder = tmp_path / str(n)
        folder.mkdir()
        expected = cli_call(qz_cli, folder, name, arrays, nargout)
        got = q.call(name, *arrays, nargout=nargout)
        got = got if isinstance(got, tuple) else (got,)
        for k, g in enumerate(got):
            assert g.dtype == expected[k].dtype and g.shape == expected[k].shape, (name, k)
            np.testing.assert_array_equal(g, expected[k], err_msg=f"{name} output {k}")


def test_named_functions_equal_the_generic_call(photo):
    small = np.ascontiguousarray(photo[:60, :80])
    cmap, index = q.cq(small, 32)
    c_map, c_index = q.call("cq", small, 32.0, nargout=2)
    np.testing.assert_array_equal(cmap, c_map)
    np.testing.assert_array_equal(index, c_index)
    np.testing.assert_array_equal(q.cq(small, 32, return_index=False), cmap)
    np.testing.assert_array_equal(q.rgb2gray(small), q.call("rgb2gray", np.asfortranarray(small)))


def test_call_output_slots():
    img = random_image(np.random.default_rng(7), (4, 4, 3), "u1")
    only = q.call("cq", img, 3.0, nargout=0)  # the map is filled whatever is asked
    assert only.shape[1] == 3
    cmap, index, extra = q.call("cq", img, 3.0, nargout=3)
    assert extra is None and index.shape == (4, 4)


def test_cq_index_type_follows_the_number_of_colours():
    rng = np.random.default_rng(8)
    img = rng.integers(0, 256, (64, 64, 3), dtype=np.uint8)
    cmap, index = q.cq(img, 1000)
    assert cmap.shape[0] > 256 and index.dtype == np.uint16 and int(index.max()) < cmap.shape[0]


def psnr(a, b):
    return 10 * np.log10(255.0**2 / np.mean((a.astype(np.float64) - b) ** 2))


def test_quantize_dithers_onto_the_cq_map(photo):
    cmap, index = q.cq(photo, 16)
    plain_map, plain = q.quantize(photo, 16)
    np.testing.assert_array_equal(plain_map, cmap)
    np.testing.assert_array_equal(plain, index)
    dmap, dithered = q.quantize(photo, 16, dither=True)
    np.testing.assert_array_equal(dmap, cmap)
    assert dithered.shape == photo.shape[:2] and dithered.dtype == np.uint8 and int(dithered.max()) < len(cmap)
    rgb, plain_rgb = cmap[dithered], cmap[index]
    print(f"16 colours: PSNR {psnr(photo, plain_rgb):.2f} dB plain, {psnr(photo, rgb):.2f} dB dithered")

    # Diffusion keeps the picture's colour on average, also locally (8x8
    # blocks), where the plain mapping is off by its boxes' spread.
    def blocks(a):
        h, w = a.shape[0] // 8 * 8, a.shape[1] // 8 * 8
        return a[:h, :w].astype(np.float64).reshape(h // 8, 8, w // 8, 8, 3).mean(axis=(1, 3))

    assert np.abs(rgb.mean(axis=(0, 1)) - photo.mean(axis=(0, 1))).max() < 1.0
    assert np.abs(blocks(rgb) - blocks(photo)).mean() < 0.8 * np.abs(blocks(plain_rgb) - blocks(photo)).mean()
    with pytest.raises(ValueError, match="number of colours"):
        q.quantize(photo, 0, dither=True)
    with pytest.raises(q.Error):
        q.quantize(photo.astype(np.float64), 4, dither=True)


def test_complex_integer_arrays_use_the_two_field_dtype():
    dt = np.dtype([("re", "<i2"), ("im", "<i2")])
    a = np.zeros((3, 4), dt)
    a["re"] = np.arange(12).reshape(3, 4)
    a["im"] = -a["re"]
    w, x = np.ones((1, 3)), np.arange(1.0, 4.0).reshape(1, 3)
    out = q.imresize(a, w, x, 1.0)
    assert out.dtype.names == ("re", "im")
    np.testing.assert_array_equal(out["re"], a["re"])
    np.testing.assert_array_equal(out["im"], a["im"])


# ---- resize ----------------------------------------------------------------------------


def test_resize_at_scale_one_is_the_identity_and_sizes_follow(photo):
    np.testing.assert_array_equal(q.resize(photo, scale=1), photo)
    assert q.resize(photo, scale=0.5).shape == (150, 226, 3)
    assert q.resize(photo, size=(100, 40), method="lanczos3").shape == (100, 40, 3)
    assert q.resize(photo[:, :, 0], size=(7, 9), antialias=False).shape == (7, 9)
    assert q.resize(np.ones((4, 4), bool), scale=2).dtype == np.uint8


@pytest.mark.parametrize("dtype", ["u1", "u2", "i2", "f4", "f8", "?"])
@pytest.mark.parametrize("shape", [(37, 23, 3), (23, 37), (1, 9, 3), (9, 1)])
@pytest.mark.parametrize("request_", [dict(scale=0.5), dict(scale=2), dict(scale=1 / 3), dict(size=(11, 50)),
                                      dict(size=(60, 5))])
def test_resize_of_interleaved_rows_reads_in_place_and_matches_the_column_major_path(dtype, shape, request_):
    img = random_image(np.random.default_rng(4), shape, dtype) if dtype != "?" else \
        np.random.default_rng(4).integers(0, 2, shape).astype(bool)
    if "scale" in request_ and min(shape[:2]) * request_["scale"] < 1:
        with pytest.raises(ValueError, match="shorter than 1 pixel"):
            q.resize(img, **request_)
        return
    before = copies()
    c_out = q.resize(img, **request_)
    assert copies() == before
    assert c_out.flags.c_contiguous and is_host_memory(c_out)
    f_out = q.resize(np.asfortranarray(img), **request_)
    assert c_out.shape == f_out.shape and c_out.dtype == f_out.dtype
    np.testing.assert_array_equal(c_out, f_out)


@pytest.mark.parametrize("shape", [(31, 45, 3), (31, 45), (1, 40, 3), (40, 1, 3)])
def test_command_line_resize_reads_file_rows_in_place_with_the_column_major_result(qz_cli, tmp_path, shape):
    img = random_image(np.random.default_rng(5), shape, "u1")
    Image.fromarray(img).save(tmp_path / "in.png")
    for args, request_ in ((["--scale", "2"], dict(scale=2)), (["--size", "7x90"], dict(size=(7, 90)))):
        qz_cli("resize", tmp_path / "in.png", *args, "-o", tmp_path / "out.png")
        got = np.asarray(Image.open(tmp_path / "out.png"))
        np.testing.assert_array_equal(got, q.resize(np.asfortranarray(img), **request_))


def test_resize_equals_two_imresize_calls():
    img = random_image(np.random.default_rng(9), (12, 10), "f8")
    # Nearest at scale 2 doubles every sample: the filter is one tap per output.
    out = q.resize(img, scale=2, method="nearest")
    np.testing.assert_array_equal(out, np.repeat(np.repeat(img, 2, axis=0), 2, axis=1))


# ---- refusals ----------------------------------------------------------------------------

img8 = np.zeros((4, 4, 3), np.uint8)


@pytest.mark.parametrize(
    "call, error, text",
    [
        (lambda: q.rgb2gray("abc"), TypeError, "unsupported dtype"),
        (lambda: q.rgb2gray(None), TypeError, "unsupported dtype"),
        (lambda: q.rgb2gray(np.zeros((4, 4))), ValueError, "H x W x 3"),
        (lambda: q.rgb2gray(np.zeros((4, 4, 4))), ValueError, "H x W x 3"),
        (lambda: q.rgb2gray(np.zeros((4, 4, 3), bool)), TypeError, "bool"),
        (lambda: q.rgb2hsv(np.zeros((4, 4, 3), complex)), TypeError, "real"),
        (lambda: q.rgb2hsv(np.zeros((4, 4, 3), np.float16)), TypeError, "float16"),
        (lambda: q.grayto8(np.array([object()])), TypeError, "unsupported dtype"),
        (lambda: q.cq(img8, "16"), TypeError, "real number"),
        (lambda: q.cq(img8, None), TypeError, "real number"),
        (lambda: q.cq(img8, np.array([1.0, 2.0])), TypeError, "single number"),
        (lambda: q.cq(np.zeros((4, 4), np.uint8), 4), ValueError, "H x W x 3"),
        (lambda: q.resize(img8), TypeError, "exactly one of scale and size"),
        (lambda: q.resize(img8, scale=0.5, size=(2, 2)), TypeError, "exactly one of scale and size"),
        (lambda: q.resize(img8, scale=-1), ValueError, "positive"),
        (lambda: q.resize(img8, scale=float("nan")), ValueError, "positive"),
        (lambda: q.resize(img8, scale=1e6), ValueError, "65536"),
        (lambda: q.resize(img8, size=(0, 3)), ValueError, "at least 1x1"),
        (lambda: q.resize(img8, size=(2.5, 3)), TypeError, "two integers"),
        (lambda: q.resize(img8, size=5), TypeError, "pair"),
        (lambda: q.resize(img8, scale=2, method="cubic"), ValueError, "unknown method"),
        (lambda: q.resize(np.zeros((0, 4)), scale=2), ValueError, "empty"),
        (lambda: q.resize(np.zeros((4, 4, 2)), scale=2), ValueError, "H x W"),
        (lambda: q.call("blur", img8), ValueError, "unknown built-in"),
        (lambda: q.call("cq", img8, 2.0, nargout=-1), ValueError, "nargout"),
        (lambda: q.call("rgb2gray", np.zeros((4, 4))), ValueError, "M-by-N-by-3"),
        (lambda: q.call("rgb2hsv", img8, img8), ValueError, "M-by-N-by-3"),
        (lambda: q.imresize(img8, np.ones((1, 4)), np.full((1, 4), 5.0), 1.0), ValueError, "outside 1..4"),
        (lambda: q.imresize(img8, np.ones((1, 4)), np.zeros((1, 4)), 2.0), ValueError, "outside 1..4"),
    ],
)
def test_bad_python_arguments_are_refused_before_the_built_in(call, error, text):
    with pytest.raises(error, match=text) as info:
        call()
    assert not isinstance(info.value, q.Error)


@pytest.mark.parametrize(
    "call, identifier",
    [
        (lambda: q.call("cq", img8, 70000.0), "ORRERY:images:cq:tooManyColors"),
        (lambda: q.cq(img8.astype(np.uint16), 4), "ORRERY:images:cq:"),
        (lambda: q.call("cq", img8), "ORRERY:images:cq:twoInputsRequired"),
        (lambda: q.ind2rgb8(np.ones((2, 2)), np.ones((2, 4))), "ORRERY:images:ind2rgb8:invalidMapSize"),
        (lambda: q.ind2rgb8(np.ones((2, 2)), np.ones((0, 3))), "ORRERY:images:ind2rgb8:emptyMap"),
        (lambda: q.grayto8(np.zeros((2, 2), np.int8)), "ORRERY:images:grayto8:"),
        (lambda: q.call("imresize", img8), "ORRERY:images:resizeDim:notThreeArgs"),
    ],
)
def test_built_in_errors_raise_qzimages_error(call, identifier):
    with pytest.raises(q.Error) as info:
        call()
    assert isinstance(info.value, ValueError)
    assert info.value.identifier.startswith(identifier)
    assert str(info.value) and ":" not in str(info.value)[:1]


def test_complex_grayto8_warns_through_the_warnings_module():
    with warnings.catch_warnings(record=True) as caught:
        warnings.simplefilter("always")
        out = q.grayto8(np.array([[0.5 + 2j, 1.0 - 1j]]))
    np.testing.assert_array_equal(out, [[128, 255]])
    (w,) = caught
    assert issubclass(w.category, q.Warning) and issubclass(w.category, UserWarning)
    assert w.message.identifier == "ORRERY:images:grayto8:ignoringImaginaryPartOfInput"
    assert w.filename == __file__  # points at the caller's line
    with warnings.catch_warnings():
        warnings.simplefilter("error", q.Warning)
        with pytest.raises(q.Warning):
            q.grayto8(np.array([[0.5 + 2j]]))


# ---- what the built-ins leave to their callers, and the limits ---------------------------------


@pytest.mark.parametrize("dtype", ["i1", "i2", "i4", "i8", "u4", "u8", "?"])
def test_rgb2hsv_refuses_the_classes_the_built_in_returns_zeros_for(dtype):
    with pytest.raises(TypeError, match="rgb2hsv: .*(float64, float32, uint8 or uint16|bool)"):
        q.rgb2hsv(np.zeros((2, 2, 3), dtype))


@pytest.mark.parametrize("k", [float("inf"), float("nan"), 1e20, 2.5, 0, -1, 65537, np.float64(0.5)])
def test_cq_refuses_counts_other_than_integers_from_1_to_65536(k):
    with pytest.raises(ValueError, match="cq: the number of colours must be an integer from 1 to 65536") as info:
        q.cq(img8, k)
    assert not isinstance(info.value, q.Error)


def test_cq_accepts_the_limits_themselves():
    for k in (1, 65536, 16.0, np.int32(3)):
        cmap, _ = q.cq(img8, k)
        assert cmap.shape == (1, 3)


@pytest.mark.parametrize(
    "kwargs, cli",
    [
        ({"scale": 1e-300}, ["--scale", "1e-300"]),
        ({"scale": 1e-19}, ["--scale", "1e-19"]),
        ({"scale": 1e-8}, ["--scale", "1e-8"]),
        ({"scale": 1e300}, ["--scale", "1e300"]),
        ({"scale": 222}, ["--scale", "222"]),
        ({"size": (100000, 10)}, ["--size", "100000x10"]),
        ({"size": (9000, 9000)}, ["--size", "9000x9000"]),
        ({"size": (1, 0)}, ["--size", "1x0"]),
    ],
)
def test_resize_limits_are_those_of_the_command_line_host(request, tmp_path, data_dir, photo, kwargs, cli):
    with pytest.raises(ValueError) as info:
        q.resize(photo, **kwargs)
    exe = request.config.getoption("--qzimages") or os.environ.get("QZIMAGES")
    if not exe:
        pytest.skip("the command-line host is needed: give --qzimages PATH")
    p = subprocess.run([exe, "resize", os.path.join(data_dir, "chelsea.png"), *cli, "-o", str(tmp_path / "o.png")],
                       capture_output=True, text=True, timeout=60)
    assert p.returncode == 2 and str(info.value) == "resize: " + p.stderr.removeprefix("error: ").strip()


def test_resize_refuses_a_filter_beyond_the_limit_and_an_output_beyond_it():
    # The limits themselves are allowed: a side of 65536 pixels, exactly.
    assert q.resize(np.zeros((65536, 1), np.uint8), scale=1.0).shape == (65536, 1)
    # 1.1 million columns to one: 4.4 million bicubic taps.
    with pytest.raises(ValueError, match="filter taps for each, more than the limit of 4194304 weights"):
        q.resize(np.zeros((1, 1_100_000), np.uint8), size=(1, 1))
    # No weights at all, but 2^28 columns of them: a 2 GiB zero result.
    w = np.zeros((0, 1 << 28))
    for call in (lambda: q.imresize(np.zeros((1, 1)), w, w, 2.0), lambda: q.call("imresize", np.zeros((1, 1)), w, w, 2.0)):
        with pytest.raises(ValueError, match="more than 201326592 elements"):
            call()


# ---- threads ---------------------------------------------------------------------------


def test_concurrent_calls_give_the_serial_results(photo):
    rng = np.random.default_rng(10)
    images = [np.ascontiguousarray(photo[i * 20 : i * 20 + 120, i * 30 : i * 30 + 160]) for i in range(4)]
    images.append(rng.integers(0, 256, (90, 70, 3), dtype=np.uint8))

    def work(img):
        cmap, index = q.cq(img, 24)
        return [q.rgb2gray(img), q.rgb2hsv(np.asfortranarray(img)), cmap, index,
                q.ind2rgb8(index, cmap / 255.0), q.resize(img, scale=0.7), q.grayto8(img[:, :, 0] / 255.0)]

    serial = [work(img) for img in images]
    results = [None] * len(images)
    errors = []

    def run(i):
        try:
            for _ in range(3):
                got = work(images[i])
                for a, b in zip(got, serial[i]):
                    np.testing.assert_array_equal(a, b)
            results[i] = True
        except Exception as e:  # reported below, on the main thread
            errors.append(e)

    threads = [threading.Thread(target=run, args=(i,)) for i in range(len(images))]
    for t in threads:
        t.start()
    for t in threads:
        t.join()
    assert not errors, errors
    assert all(results)
