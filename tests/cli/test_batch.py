"""Several inputs per run (-O DIR), standard input and output (-), the
progress bar on a terminal only, and quantize --dither."""

import os
import pty
import re
import subprocess

import numpy as np
import pytest
from PIL import Image

rng = np.random.default_rng(21)


def photo(h=24, w=31):
    # Smooth gradients with noise: enough colours that quantising matters.
    y, x = np.mgrid[0:h, 0:w]
    base = np.stack([x * 255 / w, y * 255 / h, (x + y) * 127 / (w + h)], axis=-1)
    return np.clip(base + rng.normal(0, 12, base.shape), 0, 255).astype(np.uint8)


@pytest.fixture
def folder(tmp_path):
    """Five good images of three formats and three bad files."""
    d = tmp_path / "in"
    d.mkdir()
    Image.fromarray(photo()).save(d / "a.png")
    Image.fromarray(photo(17, 40)).save(d / "b.png")
    Image.fromarray(photo(20, 20)).save(d / "c.jpg", quality=95)
    Image.fromarray(photo(9, 13)).save(d / "d.tif")
    Image.fromarray(photo(5, 6)).save(d / "e.png")
    (d / "notes.png").write_bytes(b"this is not an image\n")
    (d / "empty.jpg").write_bytes(b"")
    whole = (d / "a.png").read_bytes()
    (d / "truncated.png").write_bytes(whole[: len(whole) // 2])
    return d


GOOD = ["a.png", "b.png", "c.jpg", "d.tif", "e.png"]
BAD = ["empty.jpg", "notes.png", "truncated.png"]


def summary(stderr):
    m = re.search(r"(\w+): (\d+) done, (\d+) failed, (\d+) files? in [0-9.]+ s", stderr)
    assert m, stderr
    return m.group(1), int(m.group(2)), int(m.group(3)), int(m.group(4))


def test_a_folder_of_good_and_bad_files(qz, folder, tmp_path):
    out = tmp_path / "out"
    inputs = sorted(folder.iterdir())
    p = qz("quantize", "-k", 8, *inputs, "-O", out)
    assert p.returncode == 1, p.stderr
    assert summary(p.stderr) == ("quantize", 5, 3, 8)
    for name in BAD:
        assert re.search(rf"^error: {re.escape(str(folder / name))}: ", p.stderr, re.M), p.stderr
    assert sorted(os.listdir(out)) == sorted(os.path.splitext(n)[0] + ".png" for n in GOOD)
    # Each output is what a run on that file alone writes, and its report
    # lines carry its name.
    for name in GOOD:
        alone = tmp_path / "alone.png"
        single = qz("quantize", "-k", 8, folder / name, "-o", alone, check=0)
        assert (out / (os.path.splitext(name)[0] + ".png")).read_bytes() == alone.read_bytes()
        psnr = single.stdout.split("PSNR:")[1].split()[0]
        assert f"{folder / name}: PSNR: {psnr} dB" in p.stdout


@pytest.mark.parametrize("args,made", [
    (["gray"], ["a.png", "d.tif"]),
    (["resize", "--scale", "0.5"], ["a.png", "d.tif"]),
    (["hsv"], ["a_h.png", "a_s.png", "a_v.png", "d_h.png", "d_s.png", "d_v.png"]),
    (["hsv", "--npy"], ["a.npy", "a_h.png", "a_s.png", "a_v.png", "d.npy", "d_h.png", "d_s.png", "d_v.png"]),
    (["quantize", "-k", "4", "--dither"], ["a.png", "d.png"]),
])
def test_each_image_subcommand_names_its_outputs_after_the_inputs(qz, folder, tmp_path, args, made):
    out = tmp_path / "out"
    p = qz(*args, folder / "a.png", folder / "d.tif", "-O", out, check=0)
    assert summary(p.stderr)[1:] == (2, 0, 2)
    assert sorted(os.listdir(out)) == made


def test_to8_on_16_bit_and_float_files(qz, tmp_path):
    g16 = rng.integers(0, 65536, (7, 9)).astype(np.uint16)
    f = rng.random((7, 9)).astype(np.float32)
    Image.fromarray(g16).save(tmp_path / "g.png")
    Image.fromarray(f, "F").save(tmp_path / "f.tif")
    p = qz("to8", tmp_path / "g.png", tmp_path / "f.tif", "-O", tmp_path / "o", check=0)
    assert summary(p.stderr)[1:] == (2, 0, 2) and sorted(os.listdir(tmp_path / "o")) == ["f.png", "g.png"]
    np.testing.assert_array_equal(np.asarray(Image.open(tmp_path / "o" / "f.png")), np.floor(f * 255 + 0.5))


def test_ind2rgb_expands_a_folder_of_palette_pngs(qz, folder, tmp_path):
    qz("quantize", "-k", 6, folder / "a.png", folder / "b.png", "-O", tmp_path / "q", check=0)
    qz("ind2rgb", tmp_path / "q" / "a.png", tmp_path / "q" / "b.png", "-O", tmp_path / "rgb", check=0)
    for n in "ab":
        np.testing.assert_array_equal(np.asarray(Image.open(tmp_path / "rgb" / f"{n}.png")),
                                      np.asarray(Image.open(tmp_path / "q" / f"{n}.png").convert("RGB")))


@pytest.mark.parametrize("args,text", [
    (["gray", "IN/a.png", "IN/b.png", "-o", "OUT/x.png"], "-O"),
    (["gray", "IN/a.png", "IN/b.png"], "-O"),
    (["gray", "IN/a.png", "-o", "OUT/x.png", "-O", "OUT"], "-O"),
    (["gray", "IN/a.png", "IN/sub/a.jpg", "-O", "OUT"], "a.png"),
    (["gray", "-", "IN/b.png", "-O", "OUT"], "standard input"),
    (["quantize", "-k", "4", "IN/a.png", "IN/b.png", "--map", "m.npy", "-O", "OUT"], "--map"),
    (["quantize", "-k", "0", "--dither", "IN/a.png", "-o", "OUT/x.png"], "colours"),
])
def test_usage_problems_stop_before_any_file_is_written(qz, folder, tmp_path, args, text):
    (folder / "sub").mkdir()
    Image.fromarray(photo()).save(folder / "sub" / "a.jpg")
    out = tmp_path / "out"
    out.mkdir()
    p = qz(*[a.replace("IN", str(folder)).replace("OUT", str(out)) for a in args], cwd=tmp_path)
    assert p.returncode == 2 and p.stderr.startswith("error: ") and text in p.stderr, p.stderr
    assert os.listdir(out) == [] and not (tmp_path / "m.npy").exists()


def test_standard_input_and_output(qz, folder, tmp_path):
    exe = qz.exe
    data = (folder / "a.png").read_bytes()
    qz("gray", folder / "a.png", "-o", tmp_path / "g.png", check=0)
    p = subprocess.run([exe, "gray", "-", "-o", "-"], input=data, capture_output=True, timeout=60)
    assert p.returncode == 0 and p.stdout == (tmp_path / "g.png").read_bytes()
    # With the image on standard output, the report lines go to standard error.
    p = subprocess.run([exe, "quantize", "-k", "4", "-", "-o", "-"], input=data, capture_output=True, timeout=60)
    assert p.returncode == 0 and p.stdout.startswith(b"\x89PNG") and b"PSNR" in p.stderr
    p = subprocess.run([exe, "gray", "-", "-o", str(tmp_path / "x.png")], input=b"junk", capture_output=True,
                       timeout=60)
    assert p.returncode == 2 and p.stderr.startswith(b"error: standard input: ")


def run_on_terminal(exe, args):
    """Runs with standard error on a pseudo-terminal; returns what it showed."""
    master, slave = pty.openpty()
    p = subprocess.Popen([exe, *map(str, args)], stdout=subprocess.DEVNULL, stderr=slave)
    os.close(slave)
    shown = b""
    while True:
        try:
            chunk = os.read(master, 4096)
        except OSError:  # the terminal closes with the program
            break
        if not chunk:
            break
        shown += chunk
    os.close(master)
    assert p.wait(timeout=60) == 1
    return shown.decode()


def test_progress_bar_only_on_a_terminal(qz, folder, tmp_path):
    inputs = sorted(folder.iterdir())
    shown = run_on_terminal(qz.exe, ["gray", *inputs, "-O", tmp_path / "t"])
    assert "[" + "#" * 30 + "] 8/8 files, 3 failed" in shown, shown
    assert "\r" in shown and summary(shown)[1:] == (5, 3, 8)
    p = qz("gray", *inputs, "-O", tmp_path / "p")
    assert "\r" not in p.stderr and "#" not in p.stderr and summary(p.stderr)[1:] == (5, 3, 8)


def test_single_input_with_an_output_folder_gets_a_summary_and_a_single_file_none(qz, folder, tmp_path):
    p = qz("gray", folder / "a.png", "-O", tmp_path / "o", check=0)
    assert summary(p.stderr)[1:] == (1, 0, 1) and os.listdir(tmp_path / "o") == ["a.png"]
    p = qz("gray", folder / "a.png", "-o", tmp_path / "a.png", check=0)
    assert p.stderr == ""


def test_dithered_quantisation_uses_the_same_map_and_reports_psnr(qz, folder, tmp_path):
    # Large enough that the error leaving through the edges hardly counts.
    Image.fromarray(photo(120, 160)).save(folder / "a.png")
    plain = qz("quantize", "-k", 8, folder / "a.png", "-o", tmp_path / "p.png", "--map", tmp_path / "pm.npy", check=0)
    dith = qz("quantize", "-k", 8, "--dither", folder / "a.png", "-o", tmp_path / "d.png",
              "--map", tmp_path / "dm.npy", check=0)
    np.testing.assert_array_equal(np.load(tmp_path / "pm.npy"), np.load(tmp_path / "dm.npy"))
    p, d = Image.open(tmp_path / "p.png"), Image.open(tmp_path / "d.png")
    assert d.mode == "P" and d.getpalette() == p.getpalette()
    src = np.asarray(Image.open(folder / "a.png")).astype(np.float64)
    rgb = np.asarray(d.convert("RGB")).astype(np.float64)
    want = 10 * np.log10(255**2 / np.mean((src - rgb) ** 2))
    assert float(dith.stdout.split("PSNR:")[1].split()[0]) == pytest.approx(want, abs=0.01)
    assert "dithered" in dith.stdout
    # Diffusion brings 8x8 blocks closer to the picture than the plain index.
    def blocks(a):
        return a.reshape(15, 8, 20, 8, 3).mean(axis=(1, 3))

    plain_rgb = np.asarray(p.convert("RGB")).astype(np.float64)
    assert np.abs(blocks(rgb) - blocks(src)).mean() < 0.8 * np.abs(blocks(plain_rgb) - blocks(src)).mean()
