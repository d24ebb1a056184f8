import os
import subprocess
import sys

import numpy as np
import pytest
from PIL import Image


def pytest_addoption(parser):
    parser.addoption("--module-dir", action="store", help="folder holding the qzimages package")
    parser.addoption("--qzimages", action="store", help="path of the qzimages program")


def pytest_configure(config):
    if path := config.getoption("--module-dir") or os.environ.get("QZIMAGES_MODULE_DIR"):
        sys.path.insert(0, path)


@pytest.fixture(scope="session")
def qz_cli(request):
    exe = request.config.getoption("--qzimages") or os.environ.get("QZIMAGES") or pytest.skip("give --qzimages PATH")
    return lambda *args: subprocess.run([exe, *map(str, args)], capture_output=True, text=True, timeout=300)


@pytest.fixture(scope="session")
def photo():
    return np.asarray(Image.open(os.path.join(os.path.dirname(__file__), "..", "..", "data", "chelsea.png")).convert("RGB"))
