#!/usr/bin/env bash
# `pip install .` of the source tree, offline and with the system's build
# tools, into a fresh virtual environment that sees the system's packages;
# then the package is imported from another folder and used.
#   check_pip.sh SOURCE_DIR
set -euo pipefail
src=$1
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

/usr/bin/python3 -m venv --system-site-packages "$work/venv"
"$work/venv/bin/python" -m pip install --quiet --no-build-isolation --no-index --no-deps "$src"

cd "$work"
"$work/venv/bin/python" - "$work/venv" <<'PY'
import pathlib, sys
import numpy as np
import qzimages as qz

venv = pathlib.Path(sys.argv[1]).resolve()
pkg = pathlib.Path(qz.__file__).resolve().parent
assert venv in pkg.parents, f"qzimages imported from {pkg}, not from the virtual environment"
for f in ("__init__.pyi", "py.typed"):
    assert (pkg / f).is_file(), f"{f} missing from the installed package"
img = np.zeros((2, 3, 3), np.uint8)
img[..., 0] = 255
gray = qz.rgb2gray(img)
assert gray.shape == (2, 3) and gray.dtype == np.uint8 and (gray == gray.flat[0]).all() and 0 < gray.flat[0] < 255, gray
cmap = qz.cq(img, 4, return_index=False)
assert cmap.tolist() == [[255, 0, 0]], cmap
print("imported from", pkg)
PY
