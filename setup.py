"""Builds the Python package qzimages through the project's CMake build."""

import sys

from skbuild import setup

setup(
    name="qzimages",
    version="0.1.0",
    description="The libqzimages image built-ins on NumPy arrays",
    packages=["qzimages"],
    package_dir={"": "python"},
    package_data={"qzimages": ["__init__.pyi", "py.typed"]},
    python_requires=">=3.9",
    install_requires=["numpy"],
    cmake_args=[
        "-DQZ_PYTHON_PACKAGE=ON",
        "-DQZ_WERROR=OFF",
        # The module is built for the interpreter that runs pip.
        f"-DPython_EXECUTABLE={sys.executable}",
    ],
)
