# Shared by the command-line suite (cli/) and the Python suite (python/): the program under test, the
# folder of the Python module, and the sample photo.

import os
import subprocess
import sys

import numpy as np
import pytest
from PIL import Image


def pytest_addoption(parser):
    parser.addoption("--qzimages", action="store", help="path of the qzimages program")
    parser.addoption("--module-dir", action="store", help="folder holding the qzimages package (the Python suite)")


def pytest_configure(config):
    if path := config.getoption("--module-dir") or os.environ.get("QZIMAGES_MODULE_DIR"):
        sys.path.insert(0, path)


@pytest.fixture(scope="session")
def qz(request):
    # qz(*args, check=STATUS) runs the program and fails on a crash or on another exit status.
    exe = os.path.abspath(request.config.getoption("--qzimages") or os.environ.get("QZIMAGES") or pytest.fail("give --qzimages PATH"))

    def run(*args, check=None, cwd=None, timeout=300):
        p = subprocess.run([exe, *map(str, args)], capture_output=True, text=True, cwd=cwd, timeout=timeout)
        assert p.returncode >= 0 and (check is None or p.returncode == check), f"exit {p.returncode}, stderr: {p.stderr}"
        return p

    run.exe = exe
    return run


@pytest.fixture(scope="session")
def photo():
    return np.asarray(Image.open(os.path.join(os.path.dirname(__file__), "..", "data", "chelsea.png")).convert("RGB"))
