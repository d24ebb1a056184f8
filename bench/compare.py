#!/usr/bin/python3
"""Side by side: each built-in next to the tools a user would otherwise pick,
in one process, on the same data, each in its natural layout.

For every operation it prints our median time, the fastest other tool and its
median, their ratio (above 1: we are slower), and our effective bandwidth
(bytes read + written per second) next to that of a plain memory copy of the
same bytes, the physical reference. The table is also written as JSON.

    /usr/bin/python3 bench/compare.py [--megapixels 12] [--repeat 7] [--json FILE] [--only FAMILY ...]

Each family of rows is one function below (gray_rows, hsv_rows, ...), given the
table and the shared inputs; main() runs them in order. Our image-processing
built-ins get column-major (Fortran-ordered) input, their own layout; every
other tool gets its natural C-ordered layout. Beside the JSON goes a bar chart
(compare.png) of our time over the fastest other tool's, per row, with the
goal of each row where one is set.
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

# This checkout's build first: a qzimages linked into the interpreter from
# another checkout or installed earlier would be measured instead.
BUILT = os.path.join(ROOT, "build", "release", "python")
if os.path.isdir(os.path.join(BUILT, "qzimages")):
    sys.path.insert(0, BUILT)
import qzimages as qz  # noqa: E402

try:
    import cv2
except ImportError:
    cv2 = None
try:
    import skimage.color
    import skimage.transform
except ImportError:
    skimage = None


def median_times(fns, repeat):
    """{name: median seconds} of each callable, timed in rounds that take
    each of them once, so that a slow spell of the shared machine falls on
    all of them alike rather than on whichever ran then."""
    for fn in fns.values():
        fn()  # warm caches, thread pools and lazy tables
    times = {name: [] for name in fns}
    for _ in range(repeat):
        for name, fn in fns.items():
            t = time.perf_counter()
            fn()
            times[name].append(time.perf_counter() - t)
    return {name: statistics.median(v) for name, v in times.items()}


def median_time(fn, repeat):
    return median_times({"": fn}, repeat)[""]


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

    def add(self, op, ours, others, moved_bytes, note="", goal=None, unlike=None, variants=None):
        """ours: a callable; others: {tool: callable or None} computing the
        same function; unlike: the same, for tools that compute a different
        (cheaper) function, timed and noted but not in the ratio; moved_bytes:
        bytes read + written by one run; goal: the ratio to stay at or under;
        variants: {operation: (callable, note)}, other ways of calling us for
        the same result, each a row of its own timed in the same rounds."""
        others = {name: fn for name, fn in others.items() if fn is not None}
        unlike = {name: fn for name, fn in (unlike or {}).items() if fn is not None}
        variants = variants or {}
        # Our own calls share their rounds, so that their ratio is not at the
        # mercy of a slow spell; every other tool is timed in a block of its
        # own, since a call right after one of another library can pay for
        # that library's leftovers (spinning worker threads, memory it keeps
        # and the system must find elsewhere).
        t = median_times({op: ours, **{k: v[0] for k, v in variants.items()}}, self.repeat)
        timed = {name: median_time(fn, self.repeat) for name, fn in others.items()}
        apart = {name: median_time(fn, self.repeat) for name, fn in unlike.items()}
        if apart:
            note = "; ".join([note] * bool(note) + [f"{k} {v * 1e3:.2f} ms" for k, v in apart.items()])
        best = min(timed, key=timed.get) if timed else None
        t_copy = copy_time(moved_bytes, self.repeat)
        for name, row_note, row_goal in [(op, note, goal)] + [(k, v[1], None) for k, v in variants.items()]:
            t_ours = t[name]
            row = {
                "operation": name,
                "ours_ms": t_ours * 1e3,
                "best_other": best,
                "best_other_ms": timed[best] * 1e3 if best else None,
                "ratio": t_ours / timed[best] if best else None,
                "others_ms": {k: v * 1e3 for k, v in timed.items()},
                "unlike_ms": {k: v * 1e3 for k, v in apart.items()},
                "ours_gbps": moved_bytes / t_ours / 1e9,
                "copy_gbps": moved_bytes / t_copy / 1e9,
                "note": row_note,
                "goal": row_goal,
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


def photo(megapixels):
    """A sample photo scaled up (bicubic, with our own resize) to about the
    requested size."""
    base = np.asarray(Image.open(os.path.join(ROOT, "data", "coffee.png")).convert("RGB"))
    h, w = base.shape[:2]
    s = (megapixels * 1e6 / (h * w)) ** 0.5
    return np.ascontiguousarray(qz.resize(base, size=(round(h * s), round(w * s))))


class Inputs:
    """The photo in each class the rows use, C-ordered for the other tools
    and Fortran-ordered for us, made once."""

    def __init__(self, img):
        self.img = img
        self.h, self.w = img.shape[:2]
        self.pixels = self.h * self.w
        self.rng = np.random.default_rng(0)
        self.rgb = {
            "uint8": img,
            "uint16": img.astype(np.uint16) * 257,
            "single": img.astype(np.float32) / 255,
            "double": img.astype(np.float64) / 255,
        }
        self.rgb_f = {k: np.asfortranarray(v) for k, v in self.rgb.items()}


def one_thread(fn):
    """fn with OpenCV limited to the calling thread (for serial built-ins)."""

    def run():
        cv2.setNumThreads(1)
        try:
            return fn()
        finally:
            cv2.setNumThreads(-1)

    return run


GRAY_WEIGHTS = np.array([0.298936021293776, 0.587043074451121, 0.114020904255103])


def gray_rows(t, x):
    goals = {"uint8": 1.0, "uint16": 1.0, "single": 1.0, "double": 0.7}
    for cls, goal in goals.items():
        img, img_f = x.rgb[cls], x.rgb_f[cls]
        others = {}
        if cv2 and cls == "double":
            # cvtColor takes no doubles; transform is OpenCV's weighted channel sum.
            others["OpenCV transform"] = lambda img=img: cv2.transform(img, GRAY_WEIGHTS.reshape(1, 3))
        elif cv2:
            others["OpenCV cvtColor"] = lambda img=img: cv2.cvtColor(img, cv2.COLOR_RGB2GRAY)
        if cls == "uint8":
            others["Pillow convert('L')"] = lambda: Image.fromarray(img).convert("L")
        size = img.itemsize
        t.add(f"rgb2gray {cls}", lambda img_f=img_f: qz.rgb2gray(img_f), others, x.pixels * 4 * size, goal=goal)


def hsv_rows(t, x):
    rows = [("uint8", "rgb2hsv uint8 -> double", 1.3, 3 + 24), ("single", "rgb2hsv single", 1.1, 24)]
    for cls, op, goal, moved in rows:
        img, img_f = x.rgb[cls], x.rgb_f[cls]
        code = cv2.COLOR_RGB2HSV_FULL if cls == "uint8" else cv2.COLOR_RGB2HSV
        tool = "OpenCV cvtColor (uint8 out)" if cls == "uint8" else "OpenCV cvtColor"
        others = {
            tool: (lambda img=img: cv2.cvtColor(img, code)) if cv2 else None,
            "scikit-image rgb2hsv": (lambda img=img: skimage.color.rgb2hsv(img)) if skimage else None,
        }
        t.add(op, lambda img_f=img_f: qz.rgb2hsv(img_f), others, x.pixels * moved, goal=goal)


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



def resize_rows(t, x):
    """Bicubic resize next to Pillow, OpenCV and libvips, ours two ways: the
    imresize built-in on column-major arrays (the filters computed
    beforehand), and qz.resize on the C-ordered image as it is."""
    img, h, w = x.img, x.h, x.w
    pil = Image.fromarray(img)
    img_f = np.asfortranarray(img)
    vips_resize = libvips()
    layout_cost = []
    GOALS = {0.5: 0.7, 0.25: 0.7, 2.0: 0.5}
    for s in (0.5, 0.25, 2.0):
        oh, ow = int(np.ceil(h * s)), int(np.ceil(w * s))
        # Shrinking, the function is the antialiased bicubic (the kernel
        # widened by 1/scale), which Pillow and libvips compute; OpenCV's
        # cubic samples the source without widening the kernel, and its area
        # mode is a box average: both cheaper, shown apart.
        others = {"Pillow BICUBIC": lambda: pil.resize((ow, oh), Image.BICUBIC)}
        unlike = {}
        if cv2:
            cubic = lambda: cv2.resize(img, (ow, oh), interpolation=cv2.INTER_CUBIC)  # noqa: E731
            (others if s > 1 else unlike)["OpenCV INTER_CUBIC"] = cubic
            if s < 1:
                unlike["OpenCV INTER_AREA"] = lambda: cv2.resize(img, (ow, oh), interpolation=cv2.INTER_AREA)
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
        t.add(f"resize {s}x bicubic, imresize", column_major, others, moved, "column-major arrays",
              goal=GOALS[s], unlike=unlike,
              variants={f"resize {s}x bicubic, qz.resize": (lambda: qz.resize(img, scale=s), "C-ordered")})
        along = t.rows[-2]["ours_ms"]
        layout_cost.append(f"{s}x: {t.rows[-1]['ours_ms'] / along:.2f}")
        t.rows[-1]["note"] += f", {t.rows[-1]['ours_ms'] / along:.2f}x the imresize path"
    print(f"qz.resize on the C-ordered image over imresize on column-major arrays: {', '.join(layout_cost)}")
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


def ind2rgb8_rows(t, x):
    cmap = x.rng.uniform(0, 1, (256, 3))
    lut = (cmap * 255 + 0.5).astype(np.uint8)
    index = x.rng.integers(0, 256, (x.h, x.w), dtype=np.uint8)
    index_f = np.asfortranarray(index)
    luts = [np.ascontiguousarray(lut[:, c]) for c in range(3)]

    def cv_lut_planar():
        # One LUT call per output plane: the planar result ind2rgb8 gives.
        return [cv2.LUT(index, luts[c]) for c in range(3)]

    t.add(
        "ind2rgb8 uint8 index",
        lambda: qz.ind2rgb8(index_f, cmap),
        {"NumPy fancy indexing": lambda: lut[index], "OpenCV LUT, 3 calls, planar": cv_lut_planar if cv2 else None},
        x.pixels * 4,
        goal=0.5,
    )


def grayto8_rows(t, x):
    gray = {
        "double": x.rng.uniform(0, 1, (x.h, x.w)),
        "single": x.rng.uniform(0, 1, (x.h, x.w)).astype(np.float32),
        "uint16": x.rng.integers(0, 65536, (x.h, x.w), dtype=np.uint16),
    }
    for cls, g in gray.items():
        g_f = np.asfortranarray(g)
        alpha = 1 / 257 if cls == "uint16" else 255.0
        others = {"OpenCV convertScaleAbs": one_thread(lambda g=g, a=alpha: cv2.convertScaleAbs(g, alpha=a)) if cv2 else None}
        if cls != "uint16":
            others["NumPy clip/scale/cast"] = lambda g=g: (np.clip(g, 0, 1) * 255 + 0.5).astype(np.uint8)
        t.add(f"grayto8 {cls} (one thread)", lambda g_f=g_f: qz.grayto8(g_f), others, x.pixels * (g.itemsize + 1),
              goal=1.0)


def cq_rows(t, x):
    img = x.img
    pil = Image.fromarray(img)
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
        t.add(f"cq {k} colours", lambda: qz.cq(img_f, k), others, x.pixels * 4, ", ".join(notes), goal=0.25)


FAMILIES = {
    "rgb2gray": gray_rows,
    "rgb2hsv": hsv_rows,
    "resize": resize_rows,
    "ind2rgb8": ind2rgb8_rows,
    "grayto8": grayto8_rows,
    "cq": cq_rows,
}


def write_chart(rows, path):
    """Our time over the fastest other tool's per row (log scale), with the
    row's goal as a tick where one is set."""
    try:
        import matplotlib

        matplotlib.use("Agg")
        import matplotlib.pyplot as plt
    except ImportError:
        print("matplotlib is absent: no chart written")
        return
    rows = [r for r in rows if r["ratio"] is not None]
    names = [f"{r['operation']}\nvs {r['best_other']}" for r in rows]
    ratios = [r["ratio"] for r in rows]
    fig, ax = plt.subplots(figsize=(10, 0.45 * len(rows) + 1.5))
    ys = np.arange(len(rows))
    colours = ["tab:green" if (r["goal"] is None and r["ratio"] <= 1) or (r["goal"] is not None and r["ratio"] <= r["goal"])
               else "tab:red" for r in rows]
    ax.barh(ys, ratios, color=colours)
    for y, r in zip(ys, rows):
        if r["goal"] is not None:
            ax.plot([r["goal"]] * 2, [y - 0.4, y + 0.4], color="black", linewidth=2)
        ax.text(r["ratio"], y, f" {r['ratio']:.2f}", va="center", fontsize=8)
    ax.axvline(1.0, color="grey", linestyle="--", linewidth=1)
    ax.set_xscale("log")
    ax.set_yticks(ys)
    ax.set_yticklabels(names, fontsize=7)
    ax.invert_yaxis()
    ax.set_xlabel("our time / fastest other tool's (below 1: we are faster; black tick: goal)")
    ax.set_title("libqzimages next to the fastest other tool, per operation")
    fig.tight_layout()
    fig.savefig(path, dpi=110)
    print(f"chart written to {path}")


def main():
    ap = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    ap.add_argument("--megapixels", type=float, default=12.0, help="size of the test image (default 12)")
    ap.add_argument("--repeat", type=int, default=7, help="timed runs per tool; the median is kept (default 7)")
    ap.add_argument("--json", default=os.path.join(HERE, "results", "compare.json"), help="where to write the table")
    ap.add_argument("--only", nargs="+", choices=list(FAMILIES), help="run only these families of rows")
    args = ap.parse_args()
    if args.megapixels <= 0 or args.repeat < 1:
        ap.error("--megapixels must be positive and --repeat at least 1")

    img = photo(args.megapixels)  # H x W x 3 uint8, C order: what every tool reads
    x = Inputs(img)
    print(f"qzimages from {os.path.dirname(os.path.abspath(qz.__file__))}")
    print(
        f"{x.w}x{x.h} RGB ({x.pixels / 1e6:.1f} MP), median of {args.repeat} runs; "
        f"{os.cpu_count()} cores, {platform.processor() or platform.machine()}, Python {platform.python_version()}, "
        f"NumPy {np.__version__}, OpenCV {cv2.__version__ if cv2 else 'absent'}, "
        f"Pillow {Image.__version__}, scikit-image {skimage.__version__ if skimage else 'absent'}\n"
    )
    print(Table.header())
    t = Table(args.repeat)
    for name, rows in FAMILIES.items():
        if not args.only or name in args.only:
            rows(t, x)

    os.makedirs(os.path.dirname(os.path.abspath(args.json)), exist_ok=True)
    with open(args.json, "w") as f:
        json.dump({"image": [x.h, x.w, 3], "repeat": args.repeat, "cores": os.cpu_count(), "rows": t.rows}, f, indent=1)
    print(f"\nwritten to {args.json}")
    write_chart(t.rows, os.path.join(os.path.dirname(os.path.abspath(args.json)), "compare.png"))


if __name__ == "__main__":
    main()
