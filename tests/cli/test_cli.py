"""The qzimages program end to end: .npy and image files in, files out, exit statuses and messages; when a command
cannot do its work, every file stays byte for byte and nothing is left behind."""

import io
import os
import pty
import re
import struct
import subprocess

import numpy as np
import pytest
from PIL import Image

ROOT = os.path.join(os.path.dirname(__file__), "..", "..")
read = lambda path: np.asarray(Image.open(path))  # noqa: E731


def npy(path, a):
    np.save(path, a, allow_pickle=False)
    return path


def png(path):
    Image.fromarray(np.random.default_rng(0).integers(0, 256, (6, 8, 3), dtype=np.uint8)).save(path)
    return path


SRC, COLOURS = os.path.join(ROOT, "data", "chelsea.png"), "the number of colours must be an integer from 1 to 65536"


def identity(qz, d, a_path, n):  # imresize along dimension 1 with one weight of 1 per row: the input back
    w, x = npy(d / "w.npy", np.ones((1, n))), npy(d / "x.npy", np.arange(1.0, n + 1).reshape(1, n))
    return qz("call", "imresize", "-o", d, a_path, w, x, npy(d / "d.npy", np.array(1.0)), check=0) and np.load(d / "out0.npy")


# 64-bit integers, which imresize does not take, go through the same type table in the Python suite.
@pytest.mark.parametrize("dtype", ["f8", "f4", "i1", "u1", "i2", "u2", "i4", "u4", "c16", "c8", "?", "cint16", "cuint8"])
def test_every_dtype_order_and_byte_order_is_read_and_written(qz, tmp_path, dtype):
    v = np.random.default_rng(1).integers(-99, 99, (6, 4))  # taller than wide: an index checked against the wrong side fails
    a = (v + 1j * v[::-1]).astype(dtype) if dtype[0] == "c" and dtype[1].isdigit() else v.astype(dtype.lstrip("c"))
    if dtype.startswith("ci") or dtype.startswith("cu"):  # complex integers: a two-field record
        a = np.rec.fromarrays([a, a[::-1]], dtype=[("re", a.dtype), ("im", a.dtype)]).view(np.ndarray)
    for k, (order, endian) in enumerate([("C", "<"), ("F", "<"), ("C", ">"), ("F", ">")]):
        (d := tmp_path / str(k)).mkdir()
        f = npy(d / "a.npy", np.array(a.astype(a.dtype.newbyteorder(endian)), order=order))
        r = identity(qz, d, f, 6)
        want = a.astype(np.uint8) if dtype == "?" else a  # logical resamples as uint8
        assert r.dtype == want.dtype.newbyteorder("<") and r.flags.f_contiguous
        np.testing.assert_array_equal(r, want)


@pytest.mark.parametrize("shape,version,dims", [((), (1, 0), (1, 1)), ((5,), (2, 0), (1, 5)), ((4, 5, 1), (3, 0), (4, 5)),
                                                ((2, 1, 3), (1, 0), (2, 1, 3))])
def test_npy_shapes_and_format_versions(qz, tmp_path, shape, version, dims):
    np.lib.format.write_array(open(tmp_path / "a.npy", "wb"), np.full(shape, 0.25), version=version)
    assert identity(qz, tmp_path, tmp_path / "a.npy", dims[0]).shape == dims


def test_call_warnings_and_output_slots(qz, tmp_path):
    img, k = npy(tmp_path / "img.npy", np.zeros((3, 4, 3), np.uint8)), npy(tmp_path / "k.npy", np.array(4.0))
    for n, files in [(0, ["out0.npy"]), (1, ["out0.npy"]), (2, ["out0.npy", "out1.npy"])]:
        qz("call", "cq", "-n", n, "-o", tmp_path / f"n{n}", img, k, check=0)
        assert sorted(os.listdir(tmp_path / f"n{n}")) == files
    p = qz("call", "grayto8", "-o", tmp_path, npy(tmp_path / "z.npy", np.array([[0.5 + 1j, 1.0 - 2j]])), check=0)
    assert re.fullmatch(r"warning: ORRERY:images:grayto8:ignoringImaginaryPartOfInput: \S[^\n]*\n", p.stderr)


def npy_bytes(a=None, header=None):
    if header:  # a version 2.0 file with this header text and no data
        header += b" " * ((64 - (12 + len(header) + 1) % 64) % 64) + b"\n"
        return b"\x93NUMPY\x02\x00" + struct.pack("<I", len(header)) + header
    np.save(f := io.BytesIO(), a)
    return f.getvalue()


Z3, W2, ONE_RGB = np.zeros((4, 4, 3)), np.ones((1, 2)), "takes exactly one real M-by-N-by-3 array"


@pytest.mark.parametrize("name,inputs,reason", [
    ("nosuch", [Z3], "unknown built-in 'nosuch'"), ("rgb2gray", [None], "missing.npy: cannot open"),
    ("rgb2gray", [np.zeros(3, np.float16)], "unsupported dtype '<f2'"), ("rgb2gray", [npy_bytes(Z3)[:-5]], "truncated .npy data"),
    ("rgb2gray", [npy_bytes(Z3)[:20]], "truncated .npy header"), 
    ("rgb2gray", [npy_bytes(header=b"{'descr': 8, 'fortran_order': False, 'shape': (), }")], "descr must be a dtype"),
    ("rgb2gray", [npy_bytes(header=b"{'descr': '<f8', 'fortran_order': False, 'shape': (-L,), }")], "bad integer '-L'"),
    # Deep enough to overflow the stack of a recursive parser.
    ("rgb2gray", [npy_bytes(header=b"{'descr': " + b"[" * 10**6 + b"]" * 10**6 + b", 'fortran_order': False, 'shape': (), }")],
     "nested more than"),
    # What the built-ins take on trust: refused before they run.
    ("rgb2gray", [], ONE_RGB), ("rgb2gray", [Z3[..., 0]], ONE_RGB), ("rgb2hsv", [np.zeros((4, 5, 4))], ONE_RGB),
    ("rgb2gray", [Z3 * 1j], ONE_RGB), ("rgb2gray", [Z3 > 0], "numeric image, not a logical one"),
    ("imresize", [np.zeros((4, 4, 2)), W2, np.array([[1.0, 5.0]]), np.array(1.0)], "index 5.000000 is outside 1..4"),
    ("imresize", [Z3[..., 0], W2, np.array([[0.0, 1.0]]), np.array(2.0)], "outside 1..4"),
    ("imresize", [Z3[..., 0], W2, np.array([[np.nan, 1.0]]), np.array(2.0)], "outside 1..4"),
    # No weights at all, but 2^28 columns of them: a 2 GiB zero result.
    ("imresize", [np.zeros((1, 1)), np.zeros((0, 1 << 28)), np.zeros((0, 1 << 28)), np.array(2.0)], "more than 201326592 elements"),
])
def test_call_refusals_exit_2_and_write_nothing(qz, tmp_path, name, inputs, reason):
    files = [tmp_path / ("missing.npy" if a is None else f"in{i}.npy") for i, a in enumerate(inputs)]
    for f, a in zip(files, inputs):
        f.write_bytes(a) if isinstance(a, bytes) else a is None or npy(f, a)
    p = qz("call", name, "-o", tmp_path / "out", *files, check=2)
    assert p.stderr.startswith("error: ") and reason in p.stderr and not (tmp_path / "out").exists(), p.stderr


def test_image_subcommands_write_what_they_promise(qz, tmp_path):
    p = qz("quantize", SRC, "-k", 16, "-o", tmp_path / "q.png", "--map", tmp_path / "m.npy", check=0)
    colours, psnr = re.fullmatch(r"colours: (\d+)\nPSNR: ([0-9.]+) dB\n", p.stdout).groups()
    assert Image.open(tmp_path / "q.png").mode == "P" and 1 <= int(colours) <= 16 and float(psnr) > 20
    # Another reader sees the same picture, in the colours of the map.
    rgb, cmap = np.asarray(Image.open(tmp_path / "q.png").convert("RGB")), np.load(tmp_path / "m.npy")
    assert cmap.shape == (int(colours), 3) and cmap.dtype == np.float64 and np.abs(rgb - read(SRC).astype(float)).mean() < 12
    assert {tuple(c) for c in rgb.reshape(-1, 3)} <= {tuple(c) for c in np.round(cmap * 255)}
    Image.fromarray(np.array([[0, 65535, 257 * 100]], np.uint16)).save(tmp_path / "g16.png")
    qz("to8", tmp_path / "g16.png", "-o", tmp_path / "a.png", check=0)
    assert read(tmp_path / "a.png").tolist() == [[0, 255, 100]]
    Image.fromarray(np.array([[255, 100]], np.uint8)).save(tmp_path / "in.png")  # gray: three equal planes
    qz("hsv", tmp_path / "in.png", "-o", tmp_path / "p", "--npy", check=0)
    assert [read(tmp_path / f"p_{c}.png").tolist() for c in "hsv"] == [[[0, 0]], [[0, 0]], [[255, 100]]]
    assert np.load(tmp_path / "p.npy").shape == (1, 2, 3)
    for method in ["nearest", "bilinear", "bicubic", "lanczos2", "lanczos3", "box"]:  # scale 1 reproduces the input
        qz("resize", SRC, "--scale", 1, "--method", method, "-o", tmp_path / "r.png", check=0)
        np.testing.assert_array_equal(read(tmp_path / "r.png"), read(SRC))
    assert "PSNR" in qz("demo", "-o", tmp_path / "demo", check=0).stdout and Image.open(tmp_path / "demo/half.png").size == (300, 200)
    assert {"gray.png", "hsv_h.png", "quantized_16.png", "roundtrip_256.png", "double.png"} <= set(os.listdir(tmp_path / "demo"))


def test_version_is_the_project_version(qz):
    version = re.search(r"project\(qzimages VERSION ([0-9.]+)", open(os.path.join(ROOT, "CMakeLists.txt")).read()).group(1)
    assert qz("--version", check=0).stdout == f"qzimages {version}\n"


@pytest.fixture
def folder(tmp_path):
    """Three good images of three formats, with gradients and noise; three bad files."""
    (d := tmp_path / "in").mkdir()
    for name, h, w in [("a.png", 24, 31), ("c.jpg", 20, 20), ("d.tif", 9, 13)]:
        y, x = np.mgrid[0:h, 0:w]
        rgb = np.stack([x * 255 / w, y * 255 / h, (x + y) * 127 / (w + h)], axis=-1) + np.random.default_rng(h).normal(0, 12, (h, w, 3))
        Image.fromarray(np.clip(rgb, 0, 255).astype(np.uint8)).save(d / name)
    (d / "notes.png").write_bytes(b"this is not an image\n"), (d / "empty.jpg").write_bytes(b"")
    (d / "truncated.png").write_bytes((d / "a.png").read_bytes()[:300])
    return d


def summary(stderr):
    m = re.search(r"(\w+): (\d+) done, (\d+) failed, (\d+) files? in [0-9.]+ s\r?\n", stderr)
    return m and (m.group(1), int(m.group(2)), int(m.group(3)), int(m.group(4)))


def test_a_folder_of_good_and_bad_files(qz, folder, tmp_path):
    p = qz("quantize", "-k", 8, *sorted(folder.iterdir()), "-O", tmp_path / "out", check=1)
    assert summary(p.stderr) == ("quantize", 3, 3, 6) and sorted(os.listdir(tmp_path / "out")) == ["a.png", "c.png", "d.png"]
    assert "\r" not in p.stderr and "#" not in p.stderr  # no progress bar but on a terminal
    for name in ["empty.jpg", "notes.png", "truncated.png"]:
        assert re.search(rf"^error: {re.escape(str(folder / name))}: ", p.stderr, re.M), p.stderr
    for name in ["a.png", "c.jpg", "d.tif"]:  # as a run on that file alone writes it, report lines named
        single = qz("quantize", "-k", 8, folder / name, "-o", tmp_path / "alone.png", check=0)
        assert (tmp_path / "out" / (name[0] + ".png")).read_bytes() == (tmp_path / "alone.png").read_bytes()
        assert single.stderr == "" and f"{folder / name}: {single.stdout.splitlines()[-1]}\n" in p.stdout


@pytest.mark.parametrize("args,made", [
    (["gray"], ["a.png", "d.tif"]), (["resize", "--scale", "0.5"], ["a.png", "d.tif"]),
    (["hsv", "--npy"], ["a.npy", "a_h.png", "a_s.png", "a_v.png", "d.npy", "d_h.png", "d_s.png", "d_v.png"]),
])
def test_each_image_subcommand_names_its_outputs_after_the_inputs(qz, folder, tmp_path, args, made):
    p = qz(*args, folder / "a.png", folder / "d.tif", "-O", tmp_path / "out", check=0)
    assert summary(p.stderr)[1:] == (2, 0, 2) and sorted(os.listdir(tmp_path / "out")) == made


def test_standard_input_and_output_and_the_progress_bar_on_a_terminal_only(qz, folder, tmp_path):
    def pipe(*args, data=open(SRC, "rb").read()):  # more than one 64 KiB read
        return subprocess.run([qz.exe, *map(str, args)], input=data, capture_output=True, timeout=60)

    qz("gray", SRC, "-o", tmp_path / "g.png", check=0)
    assert pipe("gray", "-", "-o", "-").stdout == (tmp_path / "g.png").read_bytes()
    p = pipe("quantize", "-k", "4", "-", "-o", "-")  # the report lines then go to standard error
    assert p.returncode == 0 and p.stdout.startswith(b"\x89PNG") and b"PSNR" in p.stderr
    p = pipe("gray", "-", "-o", "-", data=b"junk")  # nothing on standard output unless the command succeeds
    assert p.returncode == 2 and p.stderr.startswith(b"error: standard input: ") and p.stdout == b""
    master, slave = pty.openpty()
    assert subprocess.run([qz.exe, "gray", *sorted(folder.iterdir()), "-O", tmp_path / "t"], stderr=slave, timeout=60).returncode == 1
    os.close(slave)
    shown = os.read(master, 1 << 16).decode()
    assert "[" + "#" * 30 + "] 6/6 files, 3 failed" in shown and "\r" in shown and summary(shown)[1:] == (3, 3, 6)


def snapshot(folder):
    """Every file and folder under `folder`, hidden ones included, with the bytes of each file."""
    return {os.path.relpath(p := os.path.join(d, n), folder): open(p, "rb").read() if os.path.isfile(p) else "folder"
            for d, dirs, files in os.walk(folder) for n in dirs + files}


@pytest.fixture
def scene(folder):
    """Beside the folder of images: inputs, and outputs already there (a name ending in / is a folder)."""
    d = folder.parent
    png(d / "in.png"), npy(d / "img.npy", np.zeros((2, 2, 3), np.uint8))
    npy(d / "k2.npy", np.array(2.0)), npy(d / "k70000.npy", np.array(70000.0))
    for name in ["q.png", "p_h.png", "p_s.png/", "out/out0.npy", "out/out1.npy/", "demo/gray.png", "demo/double.png/", "in/sub/a.jpg"]:
        (d / name).parent.mkdir(exist_ok=True)
        (d / name).mkdir() if name.endswith("/") else (d / name).write_bytes(b"old " + name.encode())
    return d


# A command run among those files and the reason it gives.
@pytest.mark.parametrize("args,reason", [
    ([], "A subcommand is required"), (["frobnicate"], "unknown subcommand 'frobnicate' (one of: gray, hsv,"),
    (["gray", "in.png", "--bogus"], "--bogus"), (["gray", "none.png"], "none.png: cannot open: No such file"),
    (["gray", "in.png", "-o", "/nonexistent-dir/o.png"], "the folder /nonexistent-dir does not exist"),
    (["gray", "in.png", "-o", ""], "output path is empty"), (["call", "cq", "-n", "65"], "not '65'"),
    (["call", "cq", "-n", "0x2"], "-n: the number of outputs must be a whole number from 0 to 64, not '0x2'"),
    (["resize", "in.png"], "give --scale S"), (["resize", "in.png", "--size", "-5x10"], "not HxW"),
    (["resize", "in.png", "--scale", "0x10"], "'0x10' is not a decimal"), (["resize", "in.png", "--scale", "inf"], "'inf' is not"),
    (["resize", "in.png", "--method", "sinc", "--scale", "2"], "--method: sinc"),
    # -o names the output of one input, -O a folder for any number; every output is named before any input is read.
    (["gray", "in/a.png", "in/c.jpg", "-o", "x.png"], "-O"), (["gray", "-", "in/c.jpg", "-O", "out"], "standard input"),
    (["gray", "in/a.png", "-o", "x.png", "-O", "out"], "-O"), (["gray", "in/a.png", "in/sub/a.jpg", "-O", "out"], "a.png"),
    (["quantize", "-k", "4", "in/a.png", "in/c.jpg", "--map", "m.npy", "-O", "out"], "--map"),
    # Outputs that cannot all be written: none is. A built-in's refusal, named by its identifier, exits 1.
    (["quantize", "in.png", "-k", 4, "-o", "q.png", "--map", "nodir/m.npy"], "nodir"),
    (["quantize", "in.png", "-k", 4, "-o", "q.png", "--map", "./q.png"], "named twice"),
    (["hsv", "in.png", "-o", "p"], "p_s.png: is a folder"), (["demo", "-o", "demo"], "double.png: is a folder"),
    (["call", "cq", "-n", 2, "-o", "out", "img.npy", "k2.npy"], "out1.npy: is a folder"),
    (["call", "cq", "-o", "out", "img.npy", "k70000.npy"], "ORRERY:images:cq:tooManyColors: "),
] + [(["quantize", "in.png", "-k", k], COLOURS) for k in ["0", "-1", "2.5", "65537", "1e20", "nan", "inf", "0x10", "many"]])
def test_a_refused_command_names_the_problem_on_one_line_and_leaves_every_file_as_it_was(qz, scene, args, reason):
    before = snapshot(scene)
    p = qz(*args, *(["-o", "o.png"] if len(args) > 1 and not {"-o", "-O"} & set(args) else []), cwd=scene)
    assert p.returncode == (1 if reason.startswith("ORRERY:") else 2) and p.stderr.startswith("error: ") and reason in p.stderr
    assert p.stderr.count("\n") == 1 and snapshot(scene) == before, p.stderr


@pytest.mark.skipif(os.geteuid() != 0, reason="mounting a small file system needs root")
def test_a_full_disk_leaves_the_old_file(qz, tmp_path):
    (small := tmp_path / "small").mkdir()
    if subprocess.run(["mount", "-t", "tmpfs", "-o", "size=64k", "tmpfs", small], capture_output=True).returncode:
        pytest.skip("cannot mount a tmpfs here")
    try:
        before = snapshot(png(small / "o.png").parent)  # the 902x600 result does not fit in 64 KiB
        p = qz("resize", SRC, "--scale", 2, "-o", small / "o.png", check=2)
        assert "o.png: cannot write: No space left on device" in p.stderr and snapshot(small) == before
    finally:
        subprocess.run(["umount", small], check=True)


def test_outputs_replace_files_in_place_keeping_links_and_permissions(qz, tmp_path):
    a = png(tmp_path / "a.png")
    qz("gray", a, "-o", a, check=0)  # the input itself: read before it is replaced
    assert read(a).shape == (6, 8)
    os.chmod(a, 0o600), os.symlink("a.png", tmp_path / "link.png")
    qz("to8", npy(tmp_path / "d.npy", np.full((2, 3), 0.5)), "-o", tmp_path / "link.png", check=0)
    # A link stays a link to the replaced file, which keeps its mode; a new file gets what the umask allows.
    assert os.path.islink(tmp_path / "link.png") and read(a).tolist() == [[128] * 3] * 2 and os.stat(a).st_mode & 0o777 == 0o600
    os.umask(mask := os.umask(0))
    qz("gray", a, "-o", tmp_path / "new.png", check=0)
    assert os.stat(tmp_path / "new.png").st_mode & 0o777 == 0o666 & ~mask
    assert sorted(os.listdir(tmp_path)) == ["a.png", "d.npy", "link.png", "new.png"]


def test_only_regular_files_of_bounded_size_are_read(qz, tmp_path):
    os.mkfifo(tmp_path / "fifo.png")
    with open(tmp_path / "huge.png", "wb") as f:
        f.truncate((1 << 30) + 1)  # sparse: takes no room
    for path, reason in [(tmp_path / "fifo.png", "not a regular file"), (tmp_path, "is a folder, not a file"),
                         (tmp_path / "huge.png", "1073741825 bytes is more than the readers take (1073741824 bytes)")]:
        p = qz("gray", path, "-o", tmp_path / "o", check=2, timeout=20)  # .npy files are read by the same code
        assert p.stderr.startswith(f"error: {path}: ") and reason in p.stderr, p.stderr
