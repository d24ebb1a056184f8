"""What the program guarantees when a command cannot do its work: the files
that were there stay byte for byte, nothing new is left behind, inputs are
read only from regular files, and requests beyond the limits are refused with
a message that names the problem and the limit."""

import os
import re
import subprocess

import numpy as np
import pytest
from PIL import Image

ROOT = os.path.join(os.path.dirname(__file__), "..", "..")


def png(path, shape=(6, 8, 3), seed=0):
    Image.fromarray(np.random.default_rng(seed).integers(0, 256, shape, dtype=np.uint8)).save(path)
    return path


def npy(path, a):
    np.save(path, a, allow_pickle=False)
    return path


def snapshot(folder):
    """Every file and folder under `folder`, hidden ones included, with the bytes of each file."""
    out = {}
    for dirpath, dirs, files in os.walk(folder):
        for d in dirs:
            out[os.path.relpath(os.path.join(dirpath, d), folder)] = "folder"
        for f in files:
            p = os.path.join(dirpath, f)
            out[os.path.relpath(p, folder)] = "fifo" if not os.path.isfile(p) else open(p, "rb").read()
    return out


# ---- a failing command changes nothing ---------------------------------------------------


def quantize_map_into_missing_folder(d):
    png(d / "q.png", seed=1)
    return ["quantize", png(d / "in.png"), "-k", 4, "-o", d / "q.png", "--map", d / "nodir" / "m.npy"], "nodir"


def hsv_second_plane_is_a_folder(d):
    png(d / "p_h.png", seed=1)
    (d / "p_s.png").mkdir()
    return ["hsv", png(d / "in.png"), "-o", d / "p"], "p_s.png: is a folder"


def call_second_output_is_a_folder(d):
    (d / "out").mkdir()
    npy(d / "out" / "out0.npy", np.arange(3.0))
    (d / "out" / "out1.npy").mkdir()
    img, k = npy(d / "img.npy", np.zeros((2, 2, 3), np.uint8)), npy(d / "k.npy", np.array(2.0))
    return ["call", "cq", "-n", 2, "-o", d / "out", img, k], "out1.npy: is a folder"


def same_file_twice(d):
    png(d / "q.png", seed=1)
    return ["quantize", png(d / "in.png"), "-k", 4, "-o", d / "q.png", "--map", f"{d}/./q.png"], "named twice"


def built_in_refuses_after_planning(d):
    (d / "out").mkdir()
    npy(d / "out" / "out0.npy", np.arange(3.0))
    img, k = npy(d / "img.npy", np.zeros((2, 2, 3), np.uint8)), npy(d / "k.npy", np.array(70000.0))
    return ["call", "cq", "-o", d / "out", img, k], "tooManyColors"


def call_into_a_new_folder_fails(d):
    return ["call", "cq", "-o", d / "new" / "deeper", npy(d / "img.npy", np.zeros((2, 2, 3), np.uint8))], "twoInputs"


def demo_one_output_is_a_folder(d):
    (d / "demo").mkdir()
    png(d / "demo" / "gray.png", shape=(4, 4))
    (d / "demo" / "double.png").mkdir()
    return ["demo", "-o", d / "demo"], "double.png: is a folder"


def empty_output_path(d):
    return ["gray", png(d / "in.png"), "-o", ""], "output path is empty"


@pytest.mark.parametrize(
    "setup",
    [quantize_map_into_missing_folder, hsv_second_plane_is_a_folder, call_second_output_is_a_folder, same_file_twice,
     built_in_refuses_after_planning, call_into_a_new_folder_fails, demo_one_output_is_a_folder, empty_output_path],
)
def test_a_failing_command_leaves_every_file_as_it_was(qz, tmp_path, setup):
    args, reason = setup(tmp_path)
    before = snapshot(tmp_path)
    p = qz(*args)
    assert p.returncode in (1, 2) and p.stderr.startswith("error: ") and reason in p.stderr, p.stderr
    assert snapshot(tmp_path) == before


@pytest.mark.skipif(os.geteuid() != 0, reason="mounting a small file system needs root")
def test_a_full_disk_leaves_the_old_file(qz, tmp_path, data_dir):
    small = tmp_path / "small"
    small.mkdir()
    if subprocess.run(["mount", "-t", "tmpfs", "-o", "size=64k", "tmpfs", small], capture_output=True).returncode:
        pytest.skip("cannot mount a tmpfs here")
    try:
        png(small / "o.png", seed=3)
        before = snapshot(small)
        # The 902x600 result does not fit in 64 KiB.
        p = qz("resize", os.path.join(data_dir, "chelsea.png"), "--scale", 2, "-o", small / "o.png", check=2)
        assert "o.png: cannot write: No space left on device" in p.stderr
        assert snapshot(small) == before
    finally:
        subprocess.run(["umount", small], check=True)


# ---- outputs that may be replaced ------------------------------------------------------------


def test_outputs_replace_files_in_place_keeping_links_and_permissions(qz, tmp_path):
    a = png(tmp_path / "a.png")
    original = np.asarray(Image.open(a))
    qz("gray", a, "-o", a, check=0)  # the input itself: read before it is replaced
    gray = np.asarray(Image.open(a))
    assert gray.shape == original.shape[:2]
    np.testing.assert_array_equal(np.asarray(Image.open(png(tmp_path / "b.png"))).shape[:2], gray.shape)
    # A link stays a link to the replaced file; a replaced file keeps its mode;
    # a new one gets what the umask allows.
    os.chmod(a, 0o600)
    os.symlink("a.png", tmp_path / "link.png")
    qz("to8", npy(tmp_path / "d.npy", np.full((2, 3), 0.5)), "-o", tmp_path / "link.png", check=0)
    assert os.path.islink(tmp_path / "link.png")
    np.testing.assert_array_equal(np.asarray(Image.open(a)), np.full((2, 3), 128))
    assert os.stat(a).st_mode & 0o777 == 0o600
    mask = os.umask(0)
    os.umask(mask)
    qz("gray", a, "-o", tmp_path / "new.png", check=0)
    assert os.stat(tmp_path / "new.png").st_mode & 0o777 == 0o666 & ~mask
    assert sorted(os.listdir(tmp_path)) == ["a.png", "b.png", "d.npy", "link.png", "new.png"]


# ---- inputs --------------------------------------------------------------------------------------


def fifo(d):
    os.mkfifo(d / "fifo.png")
    return d / "fifo.png", "not a regular file"


def huge(d):
    with open(d / "huge.png", "wb") as f:
        f.truncate((1 << 30) + 1)  # sparse: takes no room
    return d / "huge.png", "1073741825 bytes is more than the readers take (1073741824 bytes)"


@pytest.mark.parametrize(
    "make",
    [fifo, huge, lambda d: (d, "is a folder, not a file"), lambda d: ("/dev/zero", "not a regular file"),
     lambda d: (d / "none.png", "cannot open: No such file or directory")],
    ids=["fifo", "huge", "folder", "device", "missing"],
)
def test_only_regular_files_of_bounded_size_are_read(qz, tmp_path, make):
    path, reason = make(tmp_path)
    for args in (["gray", path], ["call", "grayto8", path]):
        p = qz(*args, "-o", tmp_path / "o", check=2, timeout=20)
        assert p.stderr.startswith(f"error: {path}: ") and reason in p.stderr, p.stderr


# ---- limits and usage ----------------------------------------------------------------------------


@pytest.mark.parametrize(
    "option,reason",
    [
        (["--scale", "1e-300"], "shorter than 1 pixel"),
        (["--scale", "1e-19"], "shorter than 1 pixel"),
        (["--scale", "1e-8"], "shorter than 1 pixel"),
        (["--scale", "1e300"], "more than the limit of 65536 pixels a side"),
        (["--scale", "222"], "scale 222 makes the 300-pixel side 66600 pixels long, more than the limit of 65536 pixels a side"),
        (["--size", "100000x10"], "more than the limit of 65536 pixels a side"),
        (["--size", "9000x9000"], "more than the limit of 67108864 pixels in all"),
        (["--size", "0x10"], "at least 1x1"),
        (["--scale", "0x10"], "'0x10' is not a decimal number"),
        (["--scale", "inf"], "not a decimal number"),
        (["--size", "-5x10"], "not HxW"),
    ],
)
def test_resize_requests_beyond_the_limits_are_refused(qz, tmp_path, data_dir, option, reason):
    p = qz("resize", os.path.join(data_dir, "chelsea.png"), *option, "-o", tmp_path / "o.png", check=2)
    assert p.stderr.startswith("error: ") and reason in p.stderr, p.stderr
    assert not os.listdir(tmp_path)


def test_call_refuses_an_output_beyond_the_limit(qz, tmp_path):
    # No weights at all, but 2^28 columns of them: a 2 GiB zero result.
    w = npy(tmp_path / "w.npy", np.zeros((0, 1 << 28)))
    args = [npy(tmp_path / "a.npy", np.zeros((1, 1))), w, w, npy(tmp_path / "d.npy", np.array(2.0))]
    p = qz("call", "imresize", "-o", tmp_path / "out", *args, check=2)
    assert "more than 201326592 elements" in p.stderr and not (tmp_path / "out").exists()


@pytest.mark.parametrize("k", ["inf", "nan", "1e20", "2.5", "0", "-1", "65537", "0x10"])
def test_colour_counts_other_than_1_to_65536_are_refused(qz, tmp_path, k):
    p = qz("quantize", png(tmp_path / "in.png"), "-k", k, "-o", tmp_path / "q.png", check=2)
    assert p.stderr.startswith("error: ") and "must be an integer from 1 to 65536" in p.stderr
    assert "integer from 1 to 65536" in qz("quantize", "--help", check=0).stdout


def test_the_colour_count_limits_themselves_are_accepted(qz, tmp_path):
    for k in ("1", "65536", "16.0"):
        qz("quantize", png(tmp_path / "in.png"), "-k", k, "-o", tmp_path / "q.png", check=0)


@pytest.mark.parametrize(
    "args,reason",
    [
        (["frobnicate"], "unknown subcommand 'frobnicate' (one of: gray, hsv,"),
        (["gray", "x.png", "-o", "o.png", "--bogus"], "--bogus"),
        (["call", "cq", "-n", "0x2"], "-n: the number of outputs must be a whole number from 0 to 64, not '0x2'"),
        (["call", "cq", "-n", "65"], "not '65'"),
        ([], "A subcommand is required"),
    ],
)
def test_usage_errors_start_with_error_and_exit_2(qz, args, reason):
    p = qz(*args, check=2)
    assert p.stderr.startswith("error: ") and reason in p.stderr, p.stderr


def test_version_is_the_project_version(qz):
    version = re.search(r"project\(qzimages VERSION ([0-9.]+)", open(os.path.join(ROOT, "CMakeLists.txt")).read())
    assert qz("--version", check=0).stdout == f"qzimages {version.group(1)}\n"
