"""The Python host: layouts, copies, agreement with the command-line host, refusals, errors and warnings; and the
dask batch example on a two-worker LocalCluster, which must write what a serial run writes."""

import json
import os
import subprocess
import warnings

import numpy as np
import pytest
from PIL import Image

import qzimages as q
from qzimages import _qzimages

rng = np.random.default_rng(1)
copies = _qzimages._input_copies


def image(shape, dtype):
    if np.dtype(dtype).kind == "f":
        return rng.uniform(-0.2, 1.2, shape).astype(dtype)
    return rng.integers(np.iinfo(dtype).min, np.iinfo(dtype).max, shape, dtype=dtype, endpoint=True)


def host_memory(a):
    """A result over the host's array: NumPy does not own it, a capsule does."""
    return not a.flags.owndata and type(a.base).__name__ == "PyCapsule"


def resize_5x40(a):  # one side shrunk, the other enlarged
    return q.resize(a, size=(5, 40))


# Each layout and the copies it takes, of wider and of one-byte elements.
LAYOUTS = [(np.ascontiguousarray, (0, 0)), (np.asfortranarray, (0, 0)), (lambda a: a.repeat(2, axis=1)[:, ::2], (1, 1)),
           (lambda a: a.astype(a.dtype.newbyteorder(">")), (1, 0)), (lambda a: a.transpose(1, 0, 2).copy().transpose(1, 0, 2), (1, 1)),
           (lambda a: np.frombuffer(b"\0" + a.tobytes(), a.dtype, offset=1).reshape(a.shape), (1, 0))]  # misaligned


@pytest.mark.parametrize("dtype", ["f8", "f4", "i1", "u1", "i2", "u2", "i4", "u4", "i8", "u8"])
def test_c_and_f_order_cross_in_place_other_layouts_once_all_with_the_same_bits(dtype):
    img = image((12, 17, 3), dtype)
    if img.dtype.kind == "f":  # one NaN channel: a signed NaN hue, or 0 when the others are both 0 or both 1
        img[0, :3] = [[np.nan, 0.2, 0.6], [np.nan, 1.0, 1.0], [0.0, np.nan, 0.0]]
    hsv = np.float32 if dtype == "f4" else np.float64
    for fn, want, shape in [(q.rgb2gray, img.dtype, (12, 17)), (q.rgb2hsv, hsv, (12, 17, 3)), (resize_5x40, img.dtype, (5, 40, 3))]:
        if fn is q.rgb2hsv and dtype not in ("f8", "f4", "u1", "u2") or fn is resize_5x40 and dtype in ("i8", "u8"):
            continue  # the classes rgb2hsv converts; imresize takes no 64-bit integers
        outs = []
        for make, n in LAYOUTS:
            before = copies()
            outs.append(fn(make(img)))
            assert copies() == before + n[img.itemsize == 1] and outs[-1].dtype == want and outs[-1].shape == shape
        assert outs[0].flags.c_contiguous and outs[1].flags.f_contiguous and host_memory(outs[0]) and host_memory(outs[1])
        for out in outs:  # NaN signs included
            np.testing.assert_array_equal(out.view(f"u{out.itemsize}"), outs[1].view(f"u{out.itemsize}"))


def test_results_outlive_their_inputs_and_other_built_ins_take_f_order_without_a_copy():
    cmap, index = q.cq(image((6, 5, 3), "u1"), 8)
    rgb = q.ind2rgb8(index, cmap / 255.0)
    view, want = rgb[1:, :, 0], rgb[1:, :, 0].copy()
    del cmap, index, rgb
    np.testing.assert_array_equal(view, want)  # the view keeps the host array alive
    gray, before = rng.uniform(0, 1, (7, 9)), copies()
    q.grayto8(np.asfortranarray(gray)), q.ind2rgb8(np.asfortranarray(gray * 2), np.asfortranarray(gray[:2, :3]))
    assert copies() == before and q.grayto8(gray) is not None and copies() == before + 1
    assert q.grayto8(np.zeros(5)).shape == (1, 5)  # a vector is one row, as on the command line


def test_each_built_in_gives_what_the_command_line_host_gives(qz, tmp_path):
    w, x = rng.uniform(-0.3, 1.0, (4, 11)), rng.integers(1, 24, (4, 11)).astype(np.float64)
    cint = np.rec.fromarrays([image((3, 23), "i2"), image((3, 23), "i2")], names="re,im").view(np.ndarray)
    calls = [("rgb2gray", [image((9, 8, 3), "i2")], 1), ("rgb2hsv", [image((9, 8, 3), "u2")], 1),
             ("cq", [image((23, 19, 3), "u1"), np.array(12.0)], 2), ("grayto8", [image((5, 6), "f4")], 1),
             ("ind2rgb8", [rng.uniform(-1, 9, (6, 7)), rng.uniform(-0.1, 1.1, (8, 3))], 1),
             # Indices within the 23 rows but not the 6 columns, and the other way round (0.5 truncates to 0: columns).
             ("imresize", [image((23, 6, 3), "i4"), w, x, np.array(1.0)], 1), ("imresize", [cint, w, x, np.array(0.5)], 1),
             ("imresize", [rng.normal(size=(5, 23)) + 1j * rng.normal(size=(5, 23)), w, x, np.array(2.0)], 1)]
    for n, (name, arrays, nargout) in enumerate(calls):
        files = [tmp_path / f"{n}_{i}.npy" for i in range(len(arrays))]
        [np.save(f, a, allow_pickle=False) for f, a in zip(files, arrays)]
        qz("call", name, "-n", nargout, "-o", tmp_path / str(n), *files, check=0)
        got = q.call(name, *arrays, nargout=nargout)
        for k, g in enumerate(got if nargout == 2 else [got]):
            want = np.load(tmp_path / str(n) / f"out{k}.npy")
            assert g.dtype == want.dtype and g.shape == want.shape, (name, k)
            np.testing.assert_array_equal(g, want, err_msg=f"{name} output {k}")
    for shape in [(31, 45, 3), (40, 1)]:  # resize of a PNG's rows in the decoder's pixel order
        Image.fromarray(img := image(shape, "u1")).save(tmp_path / "in.png")
        for args, request in ((["--scale", "2"], dict(scale=2)),
                              (["--size", "7x90", "--no-antialias"], dict(size=(7, 90), antialias=False))):
            qz("resize", tmp_path / "in.png", *args, "-o", tmp_path / "out.png", check=0)
            np.testing.assert_array_equal(np.asarray(Image.open(tmp_path / "out.png")), q.resize(np.asfortranarray(img), **request))


def test_named_functions_and_the_generic_call_agree():
    img = image((40, 50, 3), "u1")
    cmap, index = q.cq(img, 32)
    c_map, c_index, none = q.call("cq", img, 32.0, nargout=3)  # a slot the built-in left empty: None
    assert none is None and q.call("cq", img, 32.0, nargout=0).shape == cmap.shape
    [np.testing.assert_array_equal(a, b) for a, b in [(cmap, c_map), (index, c_index), (q.cq(img, 32, return_index=False), cmap)]]
    dmap, dithered = q.quantize(img, 16, dither=True)
    np.testing.assert_array_equal(dmap, q.quantize(img, 16)[0]), np.testing.assert_array_equal(dmap, q.cq(img, 16)[0])
    assert dithered.dtype == np.uint8 and int(dithered.max()) < len(dmap) and (dithered != q.cq(img, 16)[1]).any()


# The passes' order shows in the rounding of 8-bit samples between them.
@pytest.mark.parametrize("size,width_first", [((48, 40), True), ((12, 10), False), ((12, 30), False), ((30, 12), True)])
def test_resize_reduces_the_more_reduced_side_first_on_a_tie_the_height_when_shrinking(size, width_first):
    img = image((24, 20, 3), "u1")
    by_width, by_height = q.resize(q.resize(img, size=(24, size[1])), size=size), q.resize(q.resize(img, size=(size[0], 20)), size=size)
    assert not np.array_equal(by_width, by_height)
    for layout in (np.ascontiguousarray, np.asfortranarray):
        np.testing.assert_array_equal(q.resize(layout(img), size=size), by_width if width_first else by_height)


img8, ID = np.zeros((4, 4, 3), np.uint8), "ORRERY:images:"


@pytest.mark.parametrize("call,error,text", [
    (lambda: q.rgb2hsv(img8.astype(np.float16)), TypeError, "unsupported dtype float16"),
    (lambda: q.rgb2gray(np.zeros((4, 4, 4))), ValueError, "H x W x 3"), (lambda: q.rgb2gray(img8 > 0), TypeError, "bool"),
    (lambda: q.cq(img8[..., 0], 4), ValueError, "cq: expected an H x W x 3 image, got shape (4, 4)"),
    # rgb2hsv returns zeros for the classes it does not convert.
    (lambda: q.rgb2hsv(img8.astype("i4")), TypeError, "rgb2hsv: the image must be float64, float32, uint8 or uint16, not int32"),
    (lambda: q.cq(img8, "16"), TypeError, "real number"), (lambda: q.cq(img8, np.ones(2)), TypeError, "single number"),
    (lambda: q.cq(img8, float("nan")), ValueError, "cq: the number of colours must be an integer from 1 to 65536, not nan"),
    (lambda: q.resize(img8), TypeError, "exactly one of scale and size"), (lambda: q.resize(img8, size=5), TypeError, "pair"),
    (lambda: q.resize(img8, scale=float("inf")), ValueError, "resize: the scale must be a positive finite number, not inf"),
    (lambda: q.resize(img8, size=(2.5, 3)), TypeError, "two integers"), (lambda: q.resize(img8 * 1j, scale=2), TypeError, "real"),
    (lambda: q.resize(img8, scale=2, method="cubic"), ValueError, "unknown method"),
    (lambda: q.resize(np.zeros((0, 4)), scale=2), ValueError, "empty"), (lambda: q.rgb2hsv(img8 * 1j), TypeError, "real"),
    (lambda: q.resize(np.zeros((4, 4, 2)), scale=2), ValueError, "H x W"),
    (lambda: q.call("blur", img8), ValueError, "unknown built-in"), (lambda: q.call("cq", img8, 2.0, nargout=-1), ValueError, "nargout"),
    # 2.2 million bicubic taps for each of the two outputs.
    (lambda: q.resize(np.zeros((1, 1_100_000), np.uint8), size=(1, 2)), ValueError, "4194304 weights in all; resize in steps"),
    # Indices of another class are the built-in's to refuse, not read as doubles.
    (lambda: q.imresize(img8, np.ones((1, 4)), np.ones((1, 4), np.float32), 1.0), q.Error, ID + "resizeDim:badIndices"),
    # A built-in's own refusal, from a named function or the generic call: qzimages.Error, a ValueError with the identifier.
    (lambda: q.cq(img8.astype("u2"), 4), q.Error, ID + "cq:"), (lambda: q.call("imresize", img8), q.Error, ID + "resizeDim:notThreeArgs"),
])
def test_bad_arguments_raise_type_or_value_errors_and_built_in_refusals_qzimages_error(call, error, text):
    with pytest.raises(error) as info:
        call()
    assert isinstance(info.value, q.Error) == (error is q.Error)
    assert info.value.identifier.startswith(text) and issubclass(error, ValueError) if error is q.Error else text in str(info.value)


def test_complex_grayto8_warns_through_the_warnings_module():
    with pytest.warns(q.Warning) as caught:
        np.testing.assert_array_equal(q.grayto8(np.array([[0.5 + 2j, 1.0 - 1j]])), [[128, 255]])
    (w,) = caught
    assert issubclass(w.category, UserWarning) and w.filename == __file__
    assert w.message.identifier == "ORRERY:images:grayto8:ignoringImaginaryPartOfInput"
    with warnings.catch_warnings(), pytest.raises(q.Warning):
        warnings.simplefilter("error", q.Warning)
        q.grayto8(np.array([[0.5 + 2j]]))


def test_nearest_and_the_limits_themselves_are_accepted():
    img = image((12, 10), "f8")  # nearest at scale 2: one tap per output, every sample twice; bool comes back as uint8
    for a, want in [(img, img.dtype), (img > 0.5, np.uint8)]:
        assert (got := q.resize(a, scale=2, method="nearest")).dtype == want
        np.testing.assert_array_equal(got, a.repeat(2, 0).repeat(2, 1))
    assert [q.cq(img8, k)[0].shape for k in (1, 65536, 16.0, np.int32(3))] == [(1, 3)] * 4
    for shape, request, want in [((4, 4), dict(scale=0.25), (1, 1)), ((65536, 1), dict(scale=1.0), (65536, 1)),
                                 ((1, 65536), dict(scale=1.0), (1, 65536)), ((1, 1), dict(size=(65536, 1)), (65536, 1)),
                                 ((1, 1), dict(size=(1, 65536)), (1, 65536)), ((1, 1), dict(size=(8192, 8192)), (8192, 8192))]:
        assert q.resize(np.zeros(shape, np.uint8), **request).shape == want


@pytest.mark.parametrize("request_,option,reason", [
    (dict(scale=-1), ["--scale", "-1"], "the scale must be a positive finite number, not -1"),
    (dict(scale=1e-8), ["--scale", "1e-8"], "scale 1e-08 makes the 300-pixel side 3e-06 pixels long, shorter than 1 pixel"),
    (dict(scale=222), ["--scale", "222"], "scale 222 makes the 300-pixel side 66600 pixels long, more than the limit of 65536"),
    (dict(size=(100000, 10)), ["--size", "100000x10"], "the output of 100000x10 pixels is more than the limit of 65536 pixels a"),
    (dict(size=(10, 100000)), ["--size", "10x100000"], "more than the limit of 65536 pixels a side"),
    (dict(size=(9000, 9000)), ["--size", "9000x9000"], "more than the limit of 67108864 pixels in all"),
    (dict(size=(1, 0)), ["--size", "1x0"], "at least 1x1, not 1x0"),
])
def test_resize_limits_are_those_of_the_command_line_host(qz, tmp_path, photo, request_, option, reason):
    with pytest.raises(ValueError, match=reason) as info:
        q.resize(photo, **request_)
    Image.fromarray(photo).save(tmp_path / "in.png")
    p = qz("resize", tmp_path / "in.png", *option, "-o", tmp_path / "o.png", check=2)
    assert str(info.value) == "resize: " + p.stderr.removeprefix("error: ").strip()


def test_cluster_results_equal_a_serial_run_and_bad_input_is_reported(request, tmp_path, photo):
    module_dir = request.config.getoption("--module-dir") or os.environ.get("QZIMAGES_MODULE_DIR") or pytest.skip("give --module-dir")
    env = dict(os.environ, PYTHONPATH=os.path.abspath(module_dir) + os.pathsep + os.environ.get("PYTHONPATH", ""))
    script = os.path.join(os.path.dirname(__file__), "..", "..", "examples", "batch_dask.py")

    def run(*args):
        return subprocess.run(["/usr/bin/python3", script, *map(str, args)], capture_output=True, text=True, timeout=240, env=env)

    (src := tmp_path / "in").mkdir()
    Image.fromarray(photo[:120, :160]).save(src / "a.png"), Image.fromarray(photo[100:220, 200:360]).save(src / "b.jpg")
    (src / "notes.txt").write_text("not an image"), (src / "broken.png").write_bytes(b"\x89PNG\r\n\x1a\n garbage")
    par = run(src, tmp_path / "par", "--workers", 2, "--colors", 32, "--scale", 0.5)
    ser = run(src, tmp_path / "ser", "--serial", "--colors", 32, "--scale", 0.5)
    for p in (par, ser):
        assert p.returncode == 1 and "broken.png: cannot read the image" in p.stderr and "2 of 3 images" in p.stdout, p.stderr
    # The manifests hold a digest of every output's pixels.
    manifest = json.loads((tmp_path / "par" / "manifest.json").read_text())
    assert manifest == json.loads((tmp_path / "ser" / "manifest.json").read_text())
    good = [e for e in manifest["images"] if "error" not in e]
    assert [e["input"] for e in good] == ["a.png", "b.jpg"] and all(1 <= e["colors"] <= 32 for e in good)
    assert Image.open(tmp_path / "par" / "a_x0.5.png").size == (80, 60) and Image.open(tmp_path / "par" / "a_q32.png").mode == "P"
