#!/usr/bin/python3
"""Side by side: each built-in next to the tools a user would otherwise pick,
in one process, on the same data, each in its natural layout.

For every operation it prints our median time, the fastest other tool and its
median, their ratio (above 1: we are slower), and our effective bandwidth
(bytes read + written per second) next to that of a plain memory copy of the
same bytes, the physical reference. The table is also written as JSON.

    /usr/bin/python3 bench/compare.py [--megapixels 12] [--repeat 7] [--json FILE]
"""

import argparse
import ctypes
import json
import os
import platform
import statistics
import sys
import time

import numpy as np
from PIL import Image, features

HERE = os.path.dirname(os.path.abspath(__file__))
ROOT = os.path.dirname(HERE)

try:
    import qzimages as qz
except ImportError:  # not linked into the interpreter yet: use the build tree
    sys.path.insert(0, os.path.join(ROOT, "build", "release", "python"))
    import qzimages as qz

try:
    import cv2
except ImportError:
    cv2 = None
try:
    import skimage.color
    import skimage.transform
except ImportError:
    skimage = None


def median_time(fn, repeat):
    fn()  # warm caches, thread pools and lazy tables
    times = []
    for _ in range(repeat):
        t = time.perf_counter()
        fn()
        times.append(time.perf_counter() - t)
    return statistics.median(times)


def copy_time(nbytes, repeat):
    """A plain copy of nbytes: reads nbytes and writes nbytes."""
    src = np.ones(max(nbytes // 2, 1), np.uint8)
    dst = np.empty_like(src)
    return median_time(lambda: np.copyto(dst, src), repeat)


def psnr(a, b):
    err = np.mean((a.astype(np.float64) - b.astype(np.float64)) ** 2)
    return float("inf") if err == 0 else 10 * np.log10(255.0**2 / err)


class Table:
    def __init__(self, repeat):
        self.repeat = repeat
        self.rows = []

    def add(self, op, ours, others, moved_bytes, note=""):
        """ours: a callable; others: {tool: callable or None}; moved_bytes:
        bytes read + written by one run."""
        t_ours = median_time(ours, self.repeat)
        timed = {name: median_time(fn, self.repeat) for name, fn in others.items() if fn is not None}
        best = min(timed, key=timed.get) if timed else None
        t_copy = copy_time(moved_bytes, self.repeat)
        row = {
            "operation": op,
            "ours_ms": t_ours * 1e3,
            "best_other": best,
            "best_other_ms": timed[best] * 1e3 if best else None,
            "ratio": t_ours / timed[best] if best else None,
            "others_ms": {k: v * 1e3 for k, v in timed.items()},
            "ours_gbps": moved_bytes / t_ours / 1e9,
            "copy_gbps": moved_bytes / t_copy / 1e9,
            "note": note,
        }
        self.rows.append(row)
        print(self.format_row(row), flush=True)

    @staticmethod
    def header():
        return (
            f"| {'operation':<30} | {'ours ms':>9} | {'best other tool':<26} | {'its ms':>9} | {'ratio':>6} "
            f"| {'ours GB/s':>9} | {'copy GB/s':>9} | notes\n|{'-' * 32}|{'-' * 11}|{'-' * 28}|{'-' * 11}|{'-' * 8}"
            f"|{'-' * 11}|{'-' * 11}|------"
        )

    @staticmethod
    def format_row(r):
        other = r["best_other"] or "-"
        oms = f"{r['best_other_ms']:.2f}" if r["best_other_ms"] is not None else "-"
        ratio = f"{r['ratio']:.2f}" if r["ratio"] is not None else "-"
        return (
            f"| {r['operation']:<30} | {r['ours_ms']:9.2f} | {other:<26} | {oms:>9} | {ratio:>6} "
            f"| {r['ours_gbps']:9.2f} | {r['copy_gbps']:9.2f} | {r['note']}"
        )


def libvips():
    """libvips through ctypes (Debian 12 packages no Python binding for it), or
    None. Its operation cache is switched off, so that every call computes."""
    try:
        vips = ctypes.CDLL("libvips.so.42")
        gobject = ctypes.CDLL("libgobject-2.0.so.0")
        glib = ctypes.CDLL("libglib-2.0.so.0")
    except OSError:
        return None
    if vips.vips_init(b"compare") != 0:
        return None
    vips.vips_cache_set_max(0)
    vips.vips_image_new_from_memory.restype = ctypes.c_void_p
    vips.vips_image_new_from_memory.argtypes = [ctypes.c_void_p, ctypes.c_size_t] + [ctypes.c_int] * 4
    vips.vips_image_write_to_memory.restype = ctypes.c_void_p
    vips.vips_image_write_to_memory.argtypes = [ctypes.c_void_p, ctypes.POINTER(ctypes.c_size_t)]
    vips.vips_image_get_width.argtypes = vips.vips_image_get_height.argtypes = [ctypes.c_void_p]
    gobject.g_object_unref.argtypes = [ctypes.c_void_p]
    glib.g_free.argtypes = [ctypes.c_void_p]
    uchar, cubic = 0, 2  # VIPS_FORMAT_UCHAR, VIPS_KERNEL_CUBIC

    def resize(img, scale):
        """vips_resize with the cubic kernel on an H x W x 3 uint8 array;
        returns the output's (height, width)."""
        h, w, bands = img.shape
        src = vips.vips_image_new_from_memory(img.ctypes.data, img.nbytes, w, h, bands, uchar)
        out = ctypes.c_void_p()
        try:
            if vips.vips_resize(ctypes.c_void_p(src), ctypes.byref(out), ctypes.c_double(scale), b"kernel",
                                ctypes.c_int(cubic), None) != 0:
                raise RuntimeError("vips_resize failed")
            size = ctypes.c_size_t()
            pixels = vips.vips_image_write_to_memory(out, ctypes.byref(size))  # computes the whole image
            if not pixels:
                raise RuntimeError("vips_image_write_to_memory failed")
            glib.g_free(pixels)
            return vips.vips_image_get_height(out), vips.vips_image_get_width(out)
        finally:
            if out.value:
                gobject.g_object_unref(out)
            gobject.g_object_unref(src)

    return resize


def resize_rows(t, img):
    """Bicubic resize next to Pillow, OpenCV and libvips, ours two ways: the
    imresize built-in on column-major arrays (the filters computed
    beforehand), and qz.resize on the C-ordered image as it is."""
    h, w = img.shape[:2]
    pil = Image.fromarray(img)
    img_f = np.asfortranarray(img)
    vips_resize = libvips()
    layout_cost = []
    for s in (0.5, 0.25, 2.0):
        oh, ow = int(np.ceil(h * s)), int(np.ceil(w * s))
        others = {"Pillow BICUBIC": lambda: pil.resize((ow, oh), Image.BICUBIC)}
        if cv2:
            others["OpenCV INTER_CUBIC"] = lambda: cv2.resize(img, (ow, oh), interpolation=cv2.INTER_CUBIC)
            if s < 1:
                others["OpenCV INTER_AREA"] = lambda: cv2.resize(img, (ow, oh), interpolation=cv2.INTER_AREA)
        if vips_resize:
            others["libvips resize, cubic"] = lambda: vips_resize(img, s)
        # The two passes of qz.resize: the dimension reduced more first; on a
        # tie the height first when shrinking, the width first when enlarging.
        rows = qz._qzimages._filter(h, oh, s)
        cols = qz._qzimages._filter(w, ow, s)
        passes = [(rows, 1.0), (cols, 2.0)] if s < 1 else [(cols, 2.0), (rows, 1.0)]

        def column_major():
            out = img_f
            for (weights, indices), dim in passes:
                out = qz.imresize(out, weights, indices, dim)
            return out

        assert np.array_equal(column_major(), qz.resize(img, scale=s)), "the two paths disagree"
        moved = h * w * 3 + oh * ow * 3
        t.add(f"resize {s}x bicubic, imresize", column_major, others, moved, "column-major arrays")
        along = t.rows[-1]["ours_ms"]
        t.add(f"resize {s}x bicubic, qz.resize", lambda: qz.resize(img, scale=s), others, moved, "C-ordered")
        layout_cost.append(f"{s}x: {t.rows[-1]['ours_ms'] / along:.2f}")
        t.rows[-1]["note"] += f", {t.rows[-1]['ours_ms'] / along:.2f}x the imresize path"
    print(f"qz.resize on the C-ordered image over imresize on column-major arrays: {', '.join(layout_cost)}")


def photo(megapixels):
    """A sample photo scaled up (bicubic, with our own resize) to about the
    requested size."""
    base = np.asarray(Image.open(os.path.join(ROOT, "data", "coffee.png")).convert("RGB"))
    h, w = base.shape[:2]
    s = (megapixels * 1e6 / (h * w)) ** 0.5
    return np.ascontiguousarray(qz.resize(base, size=(round(h * s), round(w * s))))


def main():
    ap = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    ap.add_argument("--megapixels", type=float, default=12.0, help="size of the test image (default 12)")
    ap.add_argument("--repeat", type=int, default=7, help="timed runs per tool; the median is kept (default 7)")
    ap.add_argument("--json", default=os.path.join(HERE, "results", "compare.json"), help="where to write the table")
    args = ap.parse_args()
    if args.megapixels <= 0 or args.repeat < 1:
        ap.error("--megapixels must be positive and --repeat at least 1")

    img = photo(args.megapixels)  # H x W x 3 uint8, C order: what every tool reads
    h, w = img.shape[:2]
    pixels = h * w
    pil = Image.fromarray(img)
    print(
        f"{w}x{h} RGB ({pixels / 1e6:.1f} MP), median of {args.repeat} runs; "
        f"{os.cpu_count()} cores, {platform.processor() or platform.machine()}, Python {platform.python_version()}, "
        f"NumPy {np.__version__}, OpenCV {cv2.__version__ if cv2 else 'absent'}, "
        f"Pillow {Image.__version__}, scikit-image {skimage.__version__ if skimage else 'absent'}\n"
    )
    print(Table.header())
    t = Table(args.repeat)

    # ---- rgb2gray ----
    wts = np.array([0.298936021293776, 0.587043074451121, 0.114020904255103])

    def numpy_gray():
        return (img @ wts + 0.5).astype(np.uint8)

    t.add(
        "rgb2gray uint8",
        lambda: qz.rgb2gray(img),
        {
            "OpenCV cvtColor": (lambda: cv2.cvtColor(img, cv2.COLOR_RGB2GRAY)) if cv2 else None,
            "Pillow convert('L')": lambda: pil.convert("L"),
            "NumPy matmul": numpy_gray,
        },
        pixels * 4,
    )
    imgf = img.astype(np.float32) / 255
    t.add(
        "rgb2gray single",
        lambda: qz.rgb2gray(imgf),
        {
            "OpenCV cvtColor": (lambda: cv2.cvtColor(imgf, cv2.COLOR_RGB2GRAY)) if cv2 else None,
            "NumPy matmul": lambda: np.clip(imgf @ wts.astype(np.float32), 0, 1),
        },
        pixels * 16,
    )

    # ---- rgb2hsv ----
    t.add(
        "rgb2hsv uint8 -> double",
        lambda: qz.rgb2hsv(img),
        {
            "OpenCV cvtColor (uint8 out)": (lambda: cv2.cvtColor(img, cv2.COLOR_RGB2HSV_FULL)) if cv2 else None,
            "scikit-image rgb2hsv": (lambda: skimage.color.rgb2hsv(img)) if skimage else None,
        },
        pixels * (3 + 24),
    )
    t.add(
        "rgb2hsv single",
        lambda: qz.rgb2hsv(imgf),
        {
            "OpenCV cvtColor": (lambda: cv2.cvtColor(imgf, cv2.COLOR_RGB2HSV_FULL)) if cv2 else None,
            "scikit-image rgb2hsv": (lambda: skimage.color.rgb2hsv(imgf)) if skimage else None,
        },
        pixels * 24,
    )

    # ---- resize ----
    resize_rows(t, img)
    if skimage:
        small = np.ascontiguousarray(img[:512, :512])
        t.add(
            "resize 0.5x bicubic, 512x512",
            lambda: qz.resize(small, scale=0.5),
            {"scikit-image rescale": lambda: skimage.transform.rescale(small, 0.5, order=3, channel_axis=2,
                                                                        anti_aliasing=True)},
            512 * 512 * 3 + 256 * 256 * 3,
            "scikit-image is too slow for the full image",
        )

    # ---- ind2rgb8 ----
    rng = np.random.default_rng(0)
    cmap = rng.uniform(0, 1, (256, 3))
    lut = (cmap * 255 + 0.5).astype(np.uint8)
    index = rng.integers(0, 256, (h, w), dtype=np.uint8)
    index_f = np.asfortranarray(index)
    lut3 = lut.reshape(256, 1, 3)

    def cv_lut():
        return cv2.LUT(cv2.merge([index, index, index]), lut3)

    t.add(
        "ind2rgb8 uint8 index",
        lambda: qz.ind2rgb8(index_f, cmap),
        {"NumPy fancy indexing": lambda: lut[index], "OpenCV LUT": cv_lut if cv2 else None},
        pixels * 4,
    )

    # ---- grayto8 ----
    gray = rng.uniform(0, 1, (h, w))
    gray_f = np.asfortranarray(gray)

    def numpy_to8():
        return (np.clip(gray, 0, 1) * 255 + 0.5).astype(np.uint8)

    t.add(
        "grayto8 double",
        lambda: qz.grayto8(gray_f),
        {
            "NumPy clip/scale/cast": numpy_to8,
            "OpenCV convertScaleAbs": (lambda: cv2.convertScaleAbs(gray, alpha=255.0)) if cv2 else None,
        },
        pixels * 9,
    )

    # ---- cq ----
    methods = {"Pillow MEDIANCUT": Image.Quantize.MEDIANCUT, "Pillow MAXCOVERAGE": Image.Quantize.MAXCOVERAGE,
               "Pillow FASTOCTREE": Image.Quantize.FASTOCTREE}
    if features.check("libimagequant"):
        methods["Pillow LIBIMAGEQUANT"] = Image.Quantize.LIBIMAGEQUANT
    img_f = np.asfortranarray(img)
    for k in (16, 64, 256):
        cm, idx = qz.cq(img_f, k)
        ours_psnr = psnr(img, np.asarray(cm)[np.asarray(idx)])
        notes = [f"PSNR ours {ours_psnr:.2f} dB"]
        others = {}
        for name, m in methods.items():
            q = pil.quantize(k, method=m)
            notes.append(f"{name.split()[1]} {psnr(img, np.asarray(q.convert('RGB'))):.2f}")
            others[name] = (lambda m=m: pil.quantize(k, method=m))
        t.add(f"cq {k} colours", lambda: qz.cq(img_f, k), others, pixels * 4, ", ".join(notes))

    os.makedirs(os.path.dirname(os.path.abspath(args.json)), exist_ok=True)
    with open(args.json, "w") as f:
        json.dump({"image": [h, w, 3], "repeat": args.repeat, "cores": os.cpu_count(), "rows": t.rows}, f, indent=1)
    print(f"\nwritten to {args.json}")


if __name__ == "__main__":
    main()
