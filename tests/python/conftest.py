import os
import subprocess
import sys

import pytest


def pytest_addoption(parser):
    parser.addoption("--module-dir", action="store", help="folder holding the qzimages package")
    parser.addoption("--qzimages", action="store", help="path of the qzimages program")


def pytest_configure(config):
    path = config.getoption("--module-dir") or os.environ.get("QZIMAGES_MODULE_DIR")
    if path:
        sys.path.insert(0, path)


@pytest.fixture(scope="session")
def qz_cli(request):
    exe = request.config.getoption("--qzimages") or os.environ.get("QZIMAGES")
    if not exe:
        pytest.skip("the command-line host is needed: give --qzimages PATH")

    def run(*args):
        p = subprocess.run([exe, *map(str, args)], capture_output=True, text=True, timeout=300)
        assert p.returncode == 0, f"exit {p.returncode}: {p.stderr}"
        return p

    return run


@pytest.fixture(scope="session")
def data_dir():
    return os.path.join(os.path.dirname(__file__), "..", "..", "data")
