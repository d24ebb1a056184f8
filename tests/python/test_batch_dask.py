"""The dask batch example on a two-worker LocalCluster: the same files and
manifest as a serial run, and clear refusals of bad arguments."""

import json
import os
import shutil
import subprocess

import numpy as np
import pytest
from PIL import Image

SCRIPT = os.path.join(os.path.dirname(__file__), "..", "..", "examples", "batch_dask.py")


def run(*args, module_dir):
    env = dict(os.environ)
    env["PYTHONPATH"] = module_dir + os.pathsep + env.get("PYTHONPATH", "")
    return subprocess.run(["/usr/bin/python3", SCRIPT, *map(str, args)], capture_output=True, text=True,
                          timeout=240, env=env)


@pytest.fixture(scope="module")
def module_dir(request):
    path = request.config.getoption("--module-dir") or os.environ.get("QZIMAGES_MODULE_DIR")
    if not path:
        pytest.skip("give --module-dir")
    return os.path.abspath(path)


@pytest.fixture
def folder(tmp_path, data_dir):
    src = tmp_path / "in"
    src.mkdir()
    for name in ("chelsea.png", "coffee.png"):
        img = Image.open(os.path.join(data_dir, name)).convert("RGB")
        img.crop((0, 0, 160, 120)).save(src / name)
    shutil.copy(os.path.join(data_dir, "hubble_deep_field.jpg"), src / "hubble.jpg")
    (src / "notes.txt").write_text("not an image")
    return src


def test_cluster_results_equal_a_serial_run(tmp_path, folder, module_dir):
    par, ser = tmp_path / "par", tmp_path / "ser"
    p = run(folder, par, "--workers", 2, "--colors", 32, "--scale", 0.5, module_dir=module_dir)
    assert p.returncode == 0, p.stderr
    s = run(folder, ser, "--serial", "--colors", 32, "--scale", 0.5, module_dir=module_dir)
    assert s.returncode == 0, s.stderr
    assert "3 of 3 images" in p.stdout
    m_par = json.loads((par / "manifest.json").read_text())
    m_ser = json.loads((ser / "manifest.json").read_text())
    assert m_par == m_ser
    assert [e["input"] for e in m_par["images"]] == ["chelsea.png", "coffee.png", "hubble.jpg"]
    for entry in m_par["images"]:
        assert 1 <= entry["colors"] <= 32
        for f in entry["outputs"]:
            a, b = np.asarray(Image.open(par / f)), np.asarray(Image.open(ser / f))
            np.testing.assert_array_equal(a, b)
    small = Image.open(par / "chelsea_x0.5.png")
    assert small.size == (80, 60)
    assert Image.open(par / "coffee_q32.png").mode == "P"


@pytest.mark.parametrize(
    "args, text",
    [
        (["--colors", "0"], "--colors"),
        (["--scale", "-1"], "--scale"),
        (["--workers", "0"], "--workers"),
    ],
)
def test_bad_arguments_are_refused(tmp_path, folder, module_dir, args, text):
    p = run(folder, tmp_path / "out", *args, module_dir=module_dir)
    assert p.returncode == 2 and text in p.stderr


def test_a_folder_without_images_is_refused(tmp_path, module_dir):
    empty = tmp_path / "empty"
    empty.mkdir()
    p = run(empty, tmp_path / "out", "--serial", module_dir=module_dir)
    assert p.returncode == 2 and "no .png or .jpg images" in p.stderr


def test_an_unreadable_image_is_reported_and_the_rest_written(tmp_path, folder, module_dir):
    (folder / "broken.png").write_bytes(b"\x89PNG\r\n\x1a\n garbage")
    p = run(folder, tmp_path / "out", "--serial", module_dir=module_dir)
    assert p.returncode == 1
    assert "broken.png: cannot read the image" in p.stderr and "3 of 4 images" in p.stdout
