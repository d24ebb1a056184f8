"""The libqzimages built-ins on NumPy arrays.

Images are NumPy arrays H x W x 3 (or H x W). Every function checks its Python
arguments first (TypeError or ValueError), then runs the built-in with the GIL
released. A built-in that refuses its arguments raises qzimages.Error (a
ValueError) whose .identifier names the message, e.g.
'ORRERY:images:cq:tooManyColors'; built-in warnings arrive through the warnings
module as qzimages.Warning.

Results are NumPy arrays over the host's own memory, in the layout the built-in
wrote: column-major (F-ordered) from the built-ins, row-major for rgb2gray and
rgb2hsv on C-ordered images, which are read in place.
"""

from ._qzimages import (  # noqa: F401
    Error,
    Warning,
    call,
    cq,
    grayto8,
    imresize,
    ind2rgb8,
    quantize,
    resize,
    rgb2gray,
    rgb2hsv,
)

__all__ = ["Error", "Warning", "call", "cq", "grayto8", "imresize", "ind2rgb8", "quantize", "resize", "rgb2gray", "rgb2hsv"]
