#!/usr/bin/python3
"""Benchmark of the Python package on kddcup10 (494,021 rows, 41 attributes).

1. Fitting C45Classifier on a DataFrame already in memory, against the
   command line's load and build of the same data (the times its log
   reports), for discrete columns held as objects and as categories. The
   trees are checked to be the command line's first.
2. Whether the build lets other Python threads run: the longest pause of
   a thread that only reads the clock while another thread fits.
3. Prediction speed on one core with the tree grown there (about 1,000
   nodes), over the training rows repeated to at least 1,000,000 rows.

Prints medians of --runs runs, with the smallest and largest, since the
machine's timings vary from run to run.

Usage: bench/python_bench.py [--build DIR] [--data DIR] [--runs N]
Runs with Debian's /usr/bin/python3; the package is taken from DIR/python.
"""

import argparse
import csv
import re
import statistics
import subprocess
import sys
import threading
import time
from pathlib import Path

HERE = Path(__file__).resolve().parent


def arguments():
    p = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    p.add_argument("--build", default=str(HERE.parent / "build"), help="build directory (default: build)")
    p.add_argument("--data", default=str(HERE.parent.parent / "shared" / "data"), help="public data sets")
    p.add_argument("--runs", type=int, default=5, help="runs of each measure (default: 5)")
    return p.parse_args()


def spread(values):
    return f"{statistics.median(values):8.3f} s  (min {min(values):.3f}, max {max(values):.3f})"


def read_kddcup(names, data, discrete):
    """The data file as a DataFrame: integer columns int64, float columns
    float64 parsed exactly, string columns as `discrete` (object or category)."""
    import numpy as np
    import pandas as pd

    meta = [line.split(",")[:3] for line in Path(names).read_text().splitlines() if line]
    dtypes = {n: (str if t == "string" else np.int64 if t == "integer" else np.float64) for n, t, _ in meta}
    frame = pd.read_csv(data, header=None, names=[m[0] for m in meta], dtype=dtypes, keep_default_na=False,
                        na_filter=False, quoting=csv.QUOTE_NONE, float_precision="round_trip")
    y = frame.pop(next(n for n, _, k in meta if k == "class"))
    if discrete == "category":
        for n, t, k in meta:
            if t == "string" and k != "class":
                frame[n] = frame[n].astype("category")
    return frame, y


def cli_times(arbor, names, data, runs):
    """(load, build) seconds of each run, as the log reports them."""
    load, build = [], []
    for _ in range(runs):
        log = subprocess.run([arbor, "-fm", names, "-fd", data, "-lstd"], capture_output=True, text=True,
                             check=True).stdout
        load.append(float(re.search(r"Data loaded\.\s+time:\s+(\S+) secs", log).group(1)))
        build.append(float(re.search(r"Tree built\..*?time:\s+(\S+) secs", log, re.S).group(1)))
    return load, build


def timed(f, runs):
    out = []
    for _ in range(runs):
        start = time.perf_counter()
        f()
        out.append(time.perf_counter() - start)
    return out


def longest_pause(work):
    """(longest gap between two clock readings of this thread while `work`
    runs in another, seconds `work` took)."""
    done = threading.Event()
    took = []

    def run():
        start = time.perf_counter()
        work()
        took.append(time.perf_counter() - start)
        done.set()

    worker = threading.Thread(target=run)
    last = time.perf_counter()
    longest = 0.0
    worker.start()
    while not done.is_set():
        now = time.perf_counter()
        longest = max(longest, now - last)
        last = now
    worker.join()
    return longest, took[0]


def main():
    args = arguments()
    sys.path.insert(0, str(Path(args.build) / "python"))
    import numpy as np
    import pandas as pd

    from arbor import C45Classifier

    arbor = str(Path(args.build) / "arbor")
    names = Path(args.data) / "kddcup10" / "kddcup10.names"
    data = Path(args.data) / "kddcup10" / "kddcup10.data.gz"
    if not names.exists():
        sys.exit(f"kddcup10 not found under {args.data}")

    frames = {kind: read_kddcup(names, data, kind) for kind in ("object", "category")}
    cli_tree = subprocess.run([arbor, "-fm", names, "-fd", data, "-tstd"], capture_output=True, text=True,
                              check=True).stdout.split("\nDecision Tree\n\n", 1)[1]
    for kind, (X, y) in frames.items():
        if C45Classifier().fit(X, y).export_text() != cli_tree:
            sys.exit(f"the tree grown from the {kind} DataFrame differs from the command line's")
    rows = len(frames["object"][0])
    print(f"kddcup10: {rows} rows, {frames['object'][0].shape[1]} attributes; trees equal to the command line's")
    print(f"medians of {args.runs} runs\n")

    load, build = cli_times(arbor, names, data, args.runs)
    cli = [a + b for a, b in zip(load, build)]
    print(f"command line load (gzip text)      {spread(load)}")
    print(f"command line build                 {spread(build)}")
    print(f"command line load + build          {spread(cli)}")
    for kind, (X, y) in frames.items():
        fit = timed(lambda: C45Classifier().fit(X, y), args.runs)
        ratio = statistics.median(fit) / statistics.median(cli)
        print(f"fit, discrete columns as {kind:8s}  {spread(fit)}  = {ratio:.2f} x load + build")

    X, y = frames["category"]
    pause, fit_seconds = longest_pause(lambda: C45Classifier().fit(X, y))
    print(f"\nlongest pause of another Python thread during a fit of {fit_seconds:.3f} s: {pause:.3f} s")

    print()
    for kind, (X, y) in frames.items():
        model = C45Classifier().fit(X, y)
        copies = -(-1_000_000 // rows)
        big = pd.concat([X] * copies, ignore_index=True)
        if kind == "category":
            for c in X.columns:
                if isinstance(X[c].dtype, pd.CategoricalDtype):
                    big[c] = big[c].astype(X[c].dtype)
        for method in ("predict", "predict_proba"):
            seconds = timed(lambda: getattr(model, method)(big), args.runs)
            rate = len(big) / statistics.median(seconds)
            print(f"{method:13s} {kind:8s} {len(big)} rows, tree of {model.tree_size_} nodes: "
                  f"{rate / 1e6:5.2f} M rows/s  ({spread(seconds).strip()})")
    X, y = frames["object"]
    numeric = X.select_dtypes(include=[np.number]).to_numpy(dtype=np.float64)
    model = C45Classifier().fit(numeric, y)
    big = np.tile(numeric, (-(-1_000_000 // rows), 1))
    seconds = timed(lambda: model.predict(big), args.runs)
    print(f"predict       numeric ndarray {len(big)} rows, tree of {model.tree_size_} nodes: "
          f"{len(big) / statistics.median(seconds) / 1e6:5.2f} M rows/s  ({spread(seconds).strip()})")


if __name__ == "__main__":
    main()
