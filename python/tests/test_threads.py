"""Pixel work runs without the GIL, so threads on distinct images work side by side."""
import threading
import time

import numpy as np

import ztimage as zt
from ztimage import PixelFormat as F


def test_threads_convert_concurrently_and_correctly():
    frame = zt.VirtualCamera(F.BayerRG12, 2448, 2048, buffer_count=1).grab()
    expected = np.asarray(zt.convert(frame, F.RGB8)).copy()
    calls, ticks, results = [], [], []

    def worker():
        converter, dst = zt.Converter(F.RGB8), zt.Image()
        for _ in range(3):
            start = time.perf_counter()
            converter.convert(frame, dst)
            calls.append((start, time.perf_counter()))
        results.append(np.asarray(dst))

    threads = [threading.Thread(target=worker) for _ in range(2)]
    for t in threads:
        t.start()
    while any(t.is_alive() for t in threads):
        ticks.append(time.perf_counter())
    for t in threads:
        t.join()
    for result in results:
        np.testing.assert_array_equal(result, expected)

    # Holding the GIL through a call would stop this thread for the whole call; it only
    # ever sees the middle of a call if the call let go of it.
    ticks = np.array(ticks)
    inside = sum(int(np.count_nonzero((ticks > a + 0.4 * (b - a)) & (ticks < b - 0.4 * (b - a))))
                 for a, b in calls)
    assert inside > 0, f"no Python ran during {len(calls)} conversions of {[b - a for a, b in calls]} s"
