#!/usr/bin/python3
"""Writes the seed corpus of every fuzz target into fuzz/corpus/<target>/.

Gateway seeds are built with a writer that mirrors how the targets read their
input through FuzzedDataProvider (choices from the end, element data from the
front), in the order fuzz/gateway_fuzz.cpp and the fuzz_<builtin>.cpp files
take them; a change there needs the same change here.  Reader seeds are small
files written with NumPy and Pillow.

Run from anywhere: /usr/bin/python3 fuzz/make_seeds.py
"""

import io
import os
import struct

import numpy as np
from PIL import Image

HERE = os.path.dirname(os.path.abspath(__file__))
CORPUS = os.path.join(HERE, "corpus")

# Class codes, and the order of qzfuzz::kClassCodes.
DOUBLE, SINGLE, INT8, UINT8, INT16, UINT16, INT32, UINT32, INT64, UINT64 = range(6, 16)
LOGICAL, CHAR = 3, 4
CLASS_CODES = [DOUBLE, SINGLE, INT8, UINT8, INT16, UINT16, INT32, UINT32, INT64, UINT64, LOGICAL, CHAR,
               1, 2, 0, 5, 16, 17, 40, -2]
ELEMENT = {LOGICAL: "?", CHAR: "<u2", DOUBLE: "<f8", SINGLE: "<f4", INT8: "<i1", UINT8: "<u1", INT16: "<i2",
           UINT16: "<u2", INT32: "<i4", UINT32: "<u4", INT64: "<i8", UINT64: "<u8"}
FULL, COMPACT, LAZY = range(3)
MAX_RANK = 4
MAX_DRAWN_BYTES = 1024  # qzfuzz::kMaxDrawnBytes: larger arrays repeat their first bytes
MAX_FAIL_AT = 12  # qzfuzz::kMaxFailAt


class Writer:
    """The bytes FuzzedDataProvider reads back as the given sequence of calls."""

    def __init__(self):
        self.front = bytearray()
        self.tail = bytearray()  # in the order the values are consumed

    def int_in_range(self, lo, hi, v, width=4):
        assert lo <= v <= hi
        span, x, n = hi - lo, v - lo, 0
        while n < width and (span >> (8 * n)) > 0:
            n += 1
        for i in reversed(range(n)):  # most significant byte is consumed first
            self.tail.append((x >> (8 * i)) & 0xFF)

    def boolean(self, b):
        self.tail.append(1 if b else 0)

    def byte(self, v):
        self.tail.append(v)

    def data(self, b):
        self.front += b

    def bytes(self):
        return bytes(self.front) + bytes(reversed(self.tail))


class Shape:
    def __init__(self, classes=(), rank=0, last=0, dims=(), real=False, full=False, max_extent=6):
        self.classes, self.rank, self.last, self.dims = list(classes), rank, last, list(dims)
        self.real, self.full, self.max_extent = real, full, max_extent


def normalised(dims):
    d = list(dims)
    while len(d) < 2:
        d.append(1)
    while len(d) > 2 and d[-1] == 1:
        d.pop()
    return d


def storage(cls):
    return np.dtype(ELEMENT[cls]).itemsize if cls in ELEMENT else 8


class Array:
    """One drawn array: class, shape, flags and its values (column-major)."""

    def __init__(self, cls, dims, values=None, complex_=False, form=FULL, sparse_cols=None):
        self.cls, self.dims, self.complex, self.form = cls, list(dims), complex_, form
        self.values, self.sparse_cols = values, sparse_cols  # sparse: list of (row mask, [values])


def draw(w, shape, a):
    """Writes the choices and data of Call::draw for array a under shape."""
    if len(shape.classes) > 1:
        w.int_in_range(0, len(shape.classes) - 1, shape.classes.index(a.cls), 8)
    elif not shape.classes:
        w.int_in_range(0, len(CLASS_CODES) - 1, CLASS_CODES.index(a.cls), 8)
    else:
        assert a.cls == shape.classes[0]
    if not shape.real:
        w.boolean(a.complex)
    if not shape.full:
        w.boolean(a.sparse_cols is not None)
    if not shape.dims:
        rank = shape.rank or len(a.dims)
        if not shape.rank:
            w.int_in_range(0, MAX_RANK, rank, 8)
        assert len(a.dims) == rank
        for k, e in enumerate(a.dims):
            if shape.last and k == rank - 1:
                assert e == shape.last
            else:
                w.int_in_range(0, shape.max_extent, e, 8)
    else:
        assert a.dims == shape.dims
    w.int_in_range(0, 2, a.form)
    if a.sparse_cols is not None:
        vals = []
        for mask, col in a.sparse_cols:
            w.byte(mask)
            vals += col
        w.data(struct.pack("<%dd" % len(vals), *vals)[:MAX_DRAWN_BYTES])
        return
    n = 1
    for d in normalised(a.dims):
        n *= d
    count = n * (2 if a.complex else 1)
    vals = list(a.values) if a.values is not None else [0] * count
    assert len(vals) == count, (len(vals), count)
    if a.cls in ELEMENT:
        w.data(np.array(vals, dtype=ELEMENT[a.cls]).tobytes()[:MAX_DRAWN_BYTES])
    else:
        w.data(bytes(min(8 * count, MAX_DRAWN_BYTES)))


def add_for(w, conforming, a, conform=True, share=False, any_extent=6):
    """Call::addFor: the mode byte, then the draw."""
    mode = (0 if conform else 1) | (14 if share else 0)
    w.byte(mode)
    draw(w, conforming if conform else Shape(max_extent=any_extent), a)


def slots(w, kinds, n_inputs, fail_at=0):
    """Call::prepareSlots, then the allocation invoke() makes fail (0: none)."""
    for k in kinds:  # 0 empty, 2 own array, (3, i) shared input i
        if isinstance(k, tuple):
            w.int_in_range(0, 3, 3)
            w.int_in_range(0, n_inputs - 1, k[1], 8)
        else:
            w.int_in_range(0, 3, k)
    w.int_in_range(0, MAX_FAIL_AT, fail_at, 8)


def write(target, name, data):
    d = os.path.join(CORPUS, target)
    os.makedirs(d, exist_ok=True)
    with open(os.path.join(d, name), "wb") as f:
        f.write(data)


def rng_values(seed, n, lo, hi, kind=float):
    r = np.random.default_rng(seed)
    if kind is float:
        return list(r.uniform(lo, hi, n))
    return [int(v) for v in r.integers(lo, hi, n)]


# ---- Gateway seeds ---------------------------------------------------------------

def cq_seeds():
    image = Shape([UINT8], 3, 3, max_extent=12)
    count = Shape([DOUBLE], 2, 1, max_extent=1)

    def seed(name, nout, inputs, k_override=None, slot_kinds=None, fail_at=0):
        w = Writer()
        w.int_in_range(-1, 3, nout)
        w.int_in_range(-1, 3, len(inputs))
        for i, (a, conform) in enumerate(inputs):
            add_for(w, image if i == 0 else count, a, conform)
        if len(inputs) >= 2:
            w.boolean(k_override is not None)
            if k_override is not None:
                w.int_in_range(-1, 65537, k_override)
        slots(w, slot_kinds or [0] * max(nout, 1), len(inputs), fail_at)
        write("cq", name, w.bytes())

    img = Array(UINT8, [4, 4, 3], rng_values(1, 48, 0, 256, int))
    seed("two_outputs_k4", 2, [(img, True), (Array(DOUBLE, [1, 1], [4.0]), True)])
    seed("k0_one_output", 1, [(img, True), (Array(DOUBLE, [1, 1], [0.0]), True)])
    big = Array(UINT8, [12, 12, 3], rng_values(2, 432, 0, 256, int))
    seed("k300_many_colours", 2, [(big, True), (Array(DOUBLE, [1, 1], [0.0]), True)], k_override=300,
         slot_kinds=[2, (3, 0)])
    seed("empty_image", 2, [(Array(UINT8, [0, 3, 3]), True), (Array(DOUBLE, [1, 1], [5.0]), True)])
    seed("double_image", 2, [(Array(DOUBLE, [2, 2, 3], [0.5] * 12), False),
                             (Array(DOUBLE, [1, 1], [2.0]), True)])
    seed("one_input", 1, [(img, True)])
    seed("third_allocation_fails", 2, [(img, True), (Array(DOUBLE, [1, 1], [4.0]), True)], fail_at=3)


def grayto8_seeds():
    image = Shape([DOUBLE, SINGLE, UINT16], max_extent=6)

    def seed(name, nout, inputs, slot_kinds=None, fail_at=0):
        w = Writer()
        w.int_in_range(-1, 2, nout)
        w.int_in_range(-1, 2, len(inputs))
        for a, conform in inputs:
            add_for(w, image, a, conform)
        slots(w, slot_kinds or [0] * max(nout, 1), len(inputs), fail_at)
        write("grayto8", name, w.bytes())

    seed("double", 1, [(Array(DOUBLE, [3, 4], [-0.5, 0, 0.001, 0.5, 0.998, 0.999, 1, 2, float("nan"),
                                                float("inf"), -float("inf"), 0.25]), True)])
    seed("single_3d", 1, [(Array(SINGLE, [2, 2, 2], rng_values(3, 8, -0.2, 1.2)), True)])
    seed("uint16_lazy", 0, [(Array(UINT16, [3, 3], [0, 128, 129, 385, 386, 65535, 1000, 30000, 7],
                                   form=LAZY), True)], [2])
    seed("complex_double", 1, [(Array(DOUBLE, [2, 2], [0.1, 9, 0.2, 9, 0.3, 9, 0.4, 9], complex_=True), True)])
    seed("sparse_double", 1, [(Array(DOUBLE, [4, 3], sparse_cols=[(0b0101, [0.2, 0.9]), (0, []),
                                                                   (0b1000, [0.5])]), True)])
    seed("uint8_refused", 1, [(Array(UINT8, [2, 2], [1, 2, 3, 4]), False)])
    seed("output_creation_fails", 1, [(Array(DOUBLE, [2, 2], [0.1, 0.2, 0.3, 0.4]), True)], fail_at=1)


def ind2rgb8_seeds():
    index = Shape([DOUBLE, UINT8, UINT16, UINT32], 2, max_extent=8)
    cmap = Shape([DOUBLE], 2, 3, max_extent=8)
    k4 = rng_values(4, 12, 0, 1)

    def seed(name, nout, inputs, slot_kinds=None, large=False, fail_at=0):
        w = Writer()
        w.int_in_range(-1, 2, nout)
        w.int_in_range(-1, 3, len(inputs))
        w.int_in_range(0, 7, 7 if large else 0)
        index.max_extent = 300 if large else 8
        for i, (a, conform) in enumerate(inputs):
            add_for(w, index if i == 0 else cmap, a, conform)
        slots(w, slot_kinds or [0] * max(nout, 1), len(inputs), fail_at)
        write("ind2rgb8", name, w.bytes())

    seed("double_index", 1, [(Array(DOUBLE, [3, 3], [0, 1, 1.49, 1.5, 2.5, 4, 4.2, float("nan"), -3]), True),
                             (Array(DOUBLE, [4, 3], k4), True)])
    seed("uint8_index", 1, [(Array(UINT8, [2, 5], [0, 1, 2, 3, 4, 5, 255, 0, 1, 2]), True),
                            (Array(DOUBLE, [4, 3], k4), True)], [(3, 1)])
    seed("uint32_compact", 1, [(Array(UINT32, [4, 2], [0, 7, 70000, 1, 2, 3, 1, 0], form=COMPACT), True),
                               (Array(DOUBLE, [2, 3], [0, 1, -0.5, 2, 0.5, 1 / 510]), True)])
    seed("complex_map", 1, [(Array(UINT16, [2, 2], [0, 1, 2, 3]), True),
                            (Array(DOUBLE, [2, 3], rng_values(5, 12, 0, 1), complex_=True), True)])
    # 240 by 120, more pixels than one task takes: the lookup splits it.
    seed("large_split", 1, [(Array(DOUBLE, [240, 120], rng_values(13, 28800, -1, 6)), True),
                            (Array(DOUBLE, [4, 3], k4), True)], large=True)
    seed("second_table_fails", 1, [(Array(UINT8, [2, 2], [0, 1, 2, 3]), True),
                                   (Array(DOUBLE, [4, 3], k4), True)], fail_at=3)
    seed("map_not_k_by_3", 1, [(Array(DOUBLE, [2, 2], [1, 2, 3, 4]), True),
                                (Array(DOUBLE, [2, 4], [0.5] * 8), False)])


def imresize_seeds():
    image_classes = [DOUBLE, SINGLE, UINT8, UINT16, UINT32, INT8, INT16, INT32, LOGICAL, INT64]
    image = Shape(image_classes, max_extent=5)
    weights = Shape([DOUBLE], 2, max_extent=5)
    dim = Shape([DOUBLE], 2, 1, max_extent=1)

    def seed(name, nout, inputs, slot_kinds=None, fail_at=0):
        w = Writer()
        w.int_in_range(-1, 2, nout)
        w.int_in_range(-1, 5, len(inputs))
        for i, (a, conform) in enumerate(inputs):
            if i == 2:
                s = Shape([DOUBLE], dims=normalised(inputs[1][0].dims), max_extent=5)
            else:
                s = image if i == 0 else weights if i == 1 else dim
            add_for(w, s, a, conform, any_extent=5)
        slots(w, slot_kinds or [0] * max(nout, 1), len(inputs), fail_at)
        write("imresize", name, w.bytes())

    def filt(taps, length, src):
        ws, xs = [], []
        for i in range(length):
            for k in range(taps):
                ws.append(1.0 / taps)
                xs.append(float(1 + (i + k) % src))
        return Array(DOUBLE, [taps, length], ws), Array(DOUBLE, [taps, length], xs)

    w1, x1 = filt(2, 3, 4)
    seed("uint8_along_columns", 1, [(Array(UINT8, [4, 4], rng_values(6, 16, 0, 256, int)), True),
                                    (w1, True), (x1, True), (Array(DOUBLE, [1, 1], [1.0]), True)])
    w2, x2 = filt(3, 5, 3)
    seed("double_3d_along_rows", 1, [(Array(DOUBLE, [2, 3, 2], rng_values(7, 12, -1, 2)), True),
                                     (w2, True), (x2, True), (Array(DOUBLE, [1, 1], [2.0]), True)])
    w3, x3 = filt(1, 2, 3)
    seed("logical_lazy", 1, [(Array(LOGICAL, [3, 2], [1, 0, 1, 1, 0, 0], form=LAZY), True),
                             (w3, True), (x3, True), (Array(DOUBLE, [1, 1], [1.0]), True)], [(3, 0)])
    w4, x4 = filt(2, 4, 2)
    seed("complex_single_rows", 1, [(Array(SINGLE, [2, 2], rng_values(8, 8, -5, 5), complex_=True), True),
                                    (w4, True), (x4, True), (Array(DOUBLE, [1, 1], [3.0]), True)])
    seed("int64_refused", 1, [(Array(INT64, [3, 2], [1, 2, 3, 4, 5, 6]), True),
                              (w3, True), (x3, True), (Array(DOUBLE, [1, 1], [1.0]), True)])
    seed("offset_table_fails", 1, [(Array(UINT8, [4, 4], rng_values(6, 16, 0, 256, int)), True),
                                   (w1, True), (x1, True), (Array(DOUBLE, [1, 1], [1.0]), True)], fail_at=2)
    seed("three_arguments", 1, [(Array(UINT8, [4, 4], rng_values(9, 16, 0, 256, int)), True), (w1, True),
                                (x1, True)])


def rgb_seeds(target):
    rgb = Shape(rank=3, last=3, real=True, full=True, max_extent=8)

    def seed(name, nout, a, share=False, slot_kinds=None, fail_at=0):
        w = Writer()
        w.int_in_range(-1, 2, nout)
        draw(w, rgb, a)
        w.boolean(share)
        slots(w, slot_kinds or [0] * max(nout, 1), 1, fail_at)
        write(target, name, w.bytes())

    nan = float("nan")
    seed("double", 1, Array(DOUBLE, [2, 2, 3], [1, 2, -1, nan, 0, 0, 4, 0.5, 1, 0, 4, 0.25]))
    seed("uint8", 1, Array(UINT8, [3, 3, 3], rng_values(10, 27, 0, 256, int)))
    seed("single_lazy", 1, Array(SINGLE, [2, 1, 3], [0.2, nan, 0.4, nan, 0.9, nan], form=LAZY), True, [(3, 0)])
    seed("uint16", 0, Array(UINT16, [1, 2, 3], [65535, 0, 0, 65535, 0, 1]), False, [2])
    seed("int64_extremes", 1, Array(INT64, [1, 1, 3], [2 ** 63 - 1] * 3))
    seed("logical", 1, Array(LOGICAL, [2, 2, 3], [1, 0] * 6))
    seed("empty", 1, Array(INT16, [0, 4, 3]))
    seed("output_creation_fails", 1, Array(UINT8, [2, 2, 3], rng_values(14, 12, 0, 256, int)), fail_at=1)


# ---- Reader seeds ------------------------------------------------------------------

def npy_bytes(a, fortran=False, version=None):
    f = io.BytesIO()
    if version is None:
        np.save(f, np.asfortranarray(a) if fortran else a)
    else:
        np.lib.format.write_array(f, np.asfortranarray(a) if fortran else a, version=version)
    return f.getvalue()


def npy_seeds():
    r = np.random.default_rng(11)
    write("npy", "f8_2x3_c", npy_bytes(r.random((2, 3))))
    write("npy", "f4_3x2_fortran", npy_bytes(r.random((3, 2)).astype("<f4"), fortran=True))
    write("npy", "bool_4", npy_bytes(np.array([True, False, True, True])))
    write("npy", "c16_2x2", npy_bytes(r.random((2, 2)) + 1j * r.random((2, 2))))
    write("npy", "i2_big_endian_2x2x2", npy_bytes(np.arange(8, dtype=">i2").reshape(2, 2, 2)))
    rec = np.zeros((2, 2), dtype=[("re", "<i2"), ("im", "<i2")])
    rec["re"], rec["im"] = [[1, 2], [3, 4]], [[-1, -2], [-3, -4]]
    write("npy", "complex_int_record", npy_bytes(rec))
    write("npy", "u8_v2_scalar", npy_bytes(np.array(7, dtype="<u8"), version=(2, 0)))
    write("npy", "u1_empty_0x3_v3", npy_bytes(np.zeros((0, 3), dtype="u1"), version=(3, 0)))


def png_bytes(img, **kw):
    f = io.BytesIO()
    img.save(f, format="PNG", **kw)
    return f.getvalue()


def jpeg_bytes(img, **kw):
    f = io.BytesIO()
    img.save(f, format="JPEG", **kw)
    return f.getvalue()


def tiff_bytes(img, **kw):
    f = io.BytesIO()
    img.save(f, format="TIFF", **kw)
    return f.getvalue()


def image_seeds():
    r = np.random.default_rng(12)
    rgb = Image.fromarray(r.integers(0, 256, (3, 4, 3), dtype=np.uint8), "RGB")
    write("image", "rgb8.png", png_bytes(rgb))
    write("image", "rgba8.png", png_bytes(rgb.convert("RGBA")))
    write("image", "gray16.png", png_bytes(Image.fromarray(r.integers(0, 65536, (3, 2), dtype=np.uint16))))
    write("image", "gray1.png", png_bytes(Image.fromarray(r.integers(0, 2, (5, 9), dtype=bool))))
    write("image", "palette.png", png_bytes(rgb.quantize(4)))
    write("image", "gray_alpha.png", png_bytes(rgb.convert("LA")))
    write("image", "rgb.jpg", jpeg_bytes(Image.fromarray(r.integers(0, 256, (8, 8, 3), dtype=np.uint8)), quality=90))
    write("image", "gray.jpg", jpeg_bytes(Image.fromarray(r.integers(0, 256, (9, 7), dtype=np.uint8)), quality=75))
    write("image", "progressive.jpg",
          jpeg_bytes(Image.fromarray(r.integers(0, 256, (16, 12, 3), dtype=np.uint8)), progressive=True))
    write("image", "rgb8_deflate.tif", tiff_bytes(rgb, compression="tiff_deflate"))
    write("image", "gray16_lzw.tif",
          tiff_bytes(Image.fromarray(r.integers(0, 65536, (5, 3), dtype=np.uint16)), compression="tiff_lzw"))
    write("image", "float32.tif", tiff_bytes(Image.fromarray(r.random((4, 3)).astype(np.float32), "F")))
    write("image", "rgba8_packbits.tif", tiff_bytes(rgb.convert("RGBA"), compression="packbits"))


def main():
    cq_seeds()
    grayto8_seeds()
    ind2rgb8_seeds()
    imresize_seeds()
    rgb_seeds("rgb2gray")
    rgb_seeds("rgb2hsv")
    npy_seeds()
    image_seeds()


if __name__ == "__main__":
    main()
