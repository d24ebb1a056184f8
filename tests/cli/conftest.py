import os
import subprocess

import pytest


def pytest_addoption(parser):
    parser.addoption("--qzimages", action="store", help="path of the qzimages program")


@pytest.fixture(scope="session")
def qz(request):
    exe = os.path.abspath(request.config.getoption("--qzimages") or os.environ.get("QZIMAGES") or pytest.fail("give --qzimages PATH"))

    def run(*args, check=None, cwd=None, timeout=300):
        p = subprocess.run([exe, *map(str, args)], capture_output=True, text=True, cwd=cwd, timeout=timeout)
        assert p.returncode >= 0 and (check is None or p.returncode == check), f"exit {p.returncode}, stderr: {p.stderr}"
        return p

    run.exe = exe
    return run
