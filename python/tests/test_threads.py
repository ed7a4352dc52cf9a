"""Pixel work runs without the GIL, so threads on distinct images work side by side."""
import sys
import threading
import time

import numpy as np

import ztimage as zt
from ztimage import PixelFormat as F


def test_threads_convert_concurrently_and_correctly():
    frame = zt.VirtualCamera(F.BayerRG12, 2448, 2048, buffer_count=1).grab()
    expected = np.asarray(zt.convert(frame, F.RGB8)).copy()
    calls, results = [], []

    def worker(count):
        converter, dst = zt.Converter(F.RGB8), zt.Image()
        for _ in range(count):
            start = time.perf_counter()
            converter.convert(frame, dst)
            calls.append((start, time.perf_counter()))
        results.append(np.asarray(dst))

    threads = [threading.Thread(target=worker, args=(2,)) for _ in range(2)]
    for t in threads:
        t.start()
    for t in threads:
        t.join()
    for result in results:
        np.testing.assert_array_equal(result, expected)

    # One worker against this thread, with forced GIL switches out of the way: then the
    # worker only lets go of the GIL inside a call that releases it, and this thread, which
    # sleeps between ticks, can only tick within the worker's run if the calls released it.
    calls.clear()
    ticks = []
    interval = sys.getswitchinterval()
    sys.setswitchinterval(100)
    try:
        thread = threading.Thread(target=worker, args=(3,))
        thread.start()
        while thread.is_alive():
            ticks.append(time.perf_counter())
            time.sleep(0.001)
    finally:
        sys.setswitchinterval(interval)
    first, last = calls[0][0], calls[-1][1]
    inside = sum(first < t < last for t in ticks)
    assert inside > 0, f"no Python ran during conversions of {[round(b - a, 3) for a, b in calls]} s"
