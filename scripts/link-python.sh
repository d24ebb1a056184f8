#!/usr/bin/env bash
# Makes `import qzimages` work in the system interpreter (/usr/bin/python3)
# without copying anything: a .pth file in its site-packages names the build
# folder that holds the package, as an editable install does.  Rerun after
# moving the checkout; `make install` installs the package for real instead.
set -euo pipefail
pkgdir=$(cd "${1:?usage: link-python.sh BUILD_DIR/python}" && pwd)
site=$(/usr/bin/python3 -c 'import site; print(site.getsitepackages()[0])')
if mkdir -p "$site" 2>/dev/null && echo "$pkgdir" > "$site/qzimages.pth" 2>/dev/null; then
  echo "link-python: /usr/bin/python3 now imports qzimages from $pkgdir"
else
  echo "link-python: cannot write $site; use PYTHONPATH=$pkgdir instead" >&2
fi
