#!/usr/bin/python3
"""Quantise and resize every image of a folder on a dask.distributed cluster.

For each PNG or JPEG in INPUT it writes, into OUTPUT:
  NAME_q<K>.png       the image reduced to at most K colours (cq), as a palette PNG
  NAME_x<SCALE>.png   the image resampled by SCALE (bicubic, antialiased)
and OUTPUT/manifest.json, one entry per image: its size, the number of colours,
the quantisation PSNR and a SHA-256 of each output's pixels.

    /usr/bin/python3 examples/batch_dask.py INPUT OUTPUT [--colors 64] [--scale 0.5]
        [--scheduler tcp://HOST:8786 | --workers 2] [--serial]

Without --scheduler a LocalCluster of --workers processes is started on this
machine (loopback only) and closed at the end. --serial does the same work in
this process without dask, which is how the results are checked.
"""

import argparse
import hashlib
import json
import os
import sys

import numpy as np
from PIL import Image, UnidentifiedImageError

SUFFIXES = (".png", ".jpg", ".jpeg")


def _qzimages():
    try:
        import qzimages
    except ImportError:  # run from a checkout whose module is not linked in yet
        root = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
        sys.path.insert(0, os.path.join(root, "build", "release", "python"))
        import qzimages
    return qzimages


def digest(a):
    a = np.ascontiguousarray(a)
    return hashlib.sha256(str((a.shape, a.dtype.str)).encode() + a.tobytes()).hexdigest()


def process(path, out_dir, colors, scale):
    """One image: quantise, resize, write both; returns its manifest entry.
    Runs on a worker, so it imports what it needs itself."""
    qz = _qzimages()
    name = os.path.splitext(os.path.basename(path))[0]
    try:
        with Image.open(path) as im:
            img = np.asarray(im.convert("RGB"))
    except (OSError, UnidentifiedImageError) as e:
        return {"input": os.path.basename(path), "error": f"cannot read the image: {e}"}

    cmap, index = qz.cq(img, colors)
    quantised = cmap[index]  # back to RGB for the PSNR
    err = np.mean((quantised.astype(np.float64) - img) ** 2)
    psnr = None if err == 0 else round(float(10 * np.log10(255.0**2 / err)), 4)
    q_file = f"{name}_q{colors}.png"
    if cmap.shape[0] <= 256:
        pal = Image.fromarray(np.ascontiguousarray(index.astype(np.uint8)), mode="P")
        pal.putpalette(cmap.astype(np.uint8).tobytes())
        pal.save(os.path.join(out_dir, q_file))
    else:
        Image.fromarray(np.ascontiguousarray(quantised)).save(os.path.join(out_dir, q_file))

    resized = qz.resize(img, scale=scale)
    r_file = f"{name}_x{scale:g}.png"
    Image.fromarray(np.ascontiguousarray(resized)).save(os.path.join(out_dir, r_file))
    return {
        "input": os.path.basename(path),
        "size": [int(img.shape[1]), int(img.shape[0])],
        "colors": int(cmap.shape[0]),
        "psnr_db": psnr,
        "outputs": {
            q_file: digest(quantised),
            r_file: digest(resized),
        },
    }


def images_in(folder):
    return sorted(
        os.path.join(folder, f) for f in os.listdir(folder) if f.lower().endswith(SUFFIXES) and
        os.path.isfile(os.path.join(folder, f))
    )


def run_serial(paths, out_dir, colors, scale):
    from tqdm import tqdm

    return [process(p, out_dir, colors, scale) for p in tqdm(paths, desc="images", unit="img")]


def run_distributed(paths, out_dir, colors, scale, scheduler, workers):
    from dask.distributed import Client, LocalCluster, as_completed
    from tqdm import tqdm

    cluster = None
    if scheduler:
        client = Client(scheduler)
    else:
        cluster = LocalCluster(n_workers=workers, threads_per_worker=1, processes=True, host="127.0.0.1",
                               dashboard_address=None)
        client = Client(cluster)
    try:
        futures = {client.submit(process, p, out_dir, colors, scale, pure=False): p for p in paths}
        results = {}
        for fut in tqdm(as_completed(futures), total=len(futures), desc="images", unit="img"):
            results[futures[fut]] = fut.result()
        return [results[p] for p in paths]
    finally:
        client.close()
        if cluster is not None:
            cluster.close()


def main(argv=None):
    ap = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    ap.add_argument("input", help="folder of PNG or JPEG images")
    ap.add_argument("output", help="folder for the results and manifest.json (created if needed)")
    ap.add_argument("--colors", type=int, default=64, help="colours for cq, 1 to 65536 (default 64)")
    ap.add_argument("--scale", type=float, default=0.5, help="resize factor, 0 < scale <= 8 (default 0.5)")
    ap.add_argument("--scheduler", help="address of a running dask scheduler (default: start a LocalCluster)")
    ap.add_argument("--workers", type=int, default=2, help="worker processes of the LocalCluster (default 2)")
    ap.add_argument("--serial", action="store_true", help="no cluster: process the images one by one here")
    args = ap.parse_args(argv)

    if not os.path.isdir(args.input):
        ap.error(f"{args.input}: not a folder")
    if not 1 <= args.colors <= 65536:
        ap.error("--colors must be from 1 to 65536")
    if not 0 < args.scale <= 8:
        ap.error("--scale must be above 0 and at most 8")
    if args.workers < 1:
        ap.error("--workers must be at least 1")
    paths = images_in(args.input)
    if not paths:
        ap.error(f"{args.input}: no .png or .jpg images")
    os.makedirs(args.output, exist_ok=True)
    out_dir = os.path.abspath(args.output)

    if args.serial:
        entries = run_serial(paths, out_dir, args.colors, args.scale)
    else:
        entries = run_distributed(paths, out_dir, args.colors, args.scale, args.scheduler, args.workers)

    manifest = {"colors": args.colors, "scale": args.scale, "images": entries}
    with open(os.path.join(out_dir, "manifest.json"), "w") as f:
        json.dump(manifest, f, indent=1)
    failed = [e for e in entries if "error" in e]
    for e in failed:
        print(f"error: {e['input']}: {e['error']}", file=sys.stderr)
    print(f"{len(entries) - len(failed)} of {len(entries)} images written to {out_dir}")
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
