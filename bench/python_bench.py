#!/usr/bin/env python3
"""Cost of the Python layer: per-call overhead against the same C++ call, and two threads.

Run by `make bench` (scripts/run-bench) with the benchmark build's module on PYTHONPATH.
Prints one `goal|...` line per goal.
"""
import threading
import time

import ztimage as zt
from ztimage import PixelFormat as F


def per_call(function, count):
    start = time.perf_counter()
    for _ in range(count):
        function()
    return (time.perf_counter() - start) / count


def overhead(src_format, dst_format, width, height, count, rounds=15):
    """Seconds per call from Python and from the C++ loop, best of interleaved rounds."""
    src = zt.VirtualCamera(src_format, width, height, buffer_count=1).grab()
    converter = zt.Converter(dst_format)
    dst = converter.convert(src)
    python, cpp = [], []
    for i in range(rounds):
        # Interleaved, each side first in turn, so that a busy neighbour favours neither.
        sides = [lambda: cpp.append(zt._convert_loop(dst_format, src, dst, count) / count),
                 lambda: python.append(per_call(lambda: converter.convert(src, dst), count))]
        for side in sides[::1 if i % 2 else -1]:
            side()
    return min(python), min(cpp)


def threads_scaling(width, height, count):
    frames = [zt.VirtualCamera(F.BayerRG12, width, height, buffer_count=1).grab() for _ in range(2)]

    def stream(frame):
        converter, dst = zt.Converter(F.RGB8), zt.Image()
        for _ in range(count):
            converter.convert(frame, dst)

    stream(frames[0])  # warm the pool and the caches
    start = time.perf_counter()
    stream(frames[0])
    one = time.perf_counter() - start
    threads = [threading.Thread(target=stream, args=(f,)) for f in frames]
    start = time.perf_counter()
    for t in threads:
        t.start()
    for t in threads:
        t.join()
    two = time.perf_counter() - start
    return 2 * one / two, one / count, two / count


def main():
    py, cpp = overhead(F.Mono12, F.Mono8, 2448, 2048, 20)
    percent = 100 * (py - cpp) / cpp
    print(f"Mono8 <- Mono12 2448 x 2048: Python {py * 1e3:.3f} ms, C++ {cpp * 1e3:.3f} ms per call")
    print(f"goal|Python call overhead, Mono8 <- Mono12 2448 x 2048 (%)|{percent:.2f}|<=|5")

    py, cpp = overhead(F.Mono8, F.RGB8, 16, 16, 20000)
    print(f"RGB8 <- Mono8 16 x 16: Python {py * 1e6:.2f} us, C++ {cpp * 1e6:.2f} us per call")
    print(f"goal|Python call overhead, RGB8 <- Mono8 16 x 16 (us)|{(py - cpp) * 1e6:.2f}|<=|10")

    scaling, one, two = threads_scaling(2448, 2048, 10)
    print(f"RGB8 <- BayerRG12 2448 x 2048: one thread {one * 1e3:.1f} ms per frame, "
          f"two threads {two * 1e3:.1f} ms for a frame on each")
    print(f"goal|Python two threads vs one, RGB8 <- BayerRG12 2448 x 2048 (x)|{scaling:.2f}|>=|1.8")


if __name__ == "__main__":
    main()
