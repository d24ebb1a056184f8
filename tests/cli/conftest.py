import os
import subprocess

import pytest


def pytest_addoption(parser):
    parser.addoption("--qzimages", action="store", help="path of the qzimages program")


@pytest.fixture(scope="session")
def qz(request):
    exe = request.config.getoption("--qzimages") or os.environ.get("QZIMAGES")
    if not exe:
        pytest.fail("give --qzimages PATH")
    exe = os.path.abspath(exe)

    def run(*args, check=None, cwd=None, timeout=300):
        p = subprocess.run([exe, *map(str, args)], capture_output=True, text=True, cwd=cwd, timeout=timeout)
        assert p.returncode >= 0, f"killed by signal {-p.returncode}: {p.stderr}"
        if check is not None:
            assert p.returncode == check, f"exit {p.returncode}, stderr: {p.stderr}"
        return p

    run.exe = exe
    return run


@pytest.fixture(scope="session")
def data_dir():
    return os.path.join(os.path.dirname(__file__), "..", "..", "data")
