"""Arrays outlive the images, wrapped arrays and camera frames whose memory they view.

This file also runs under memcheck (PYTHONMALLOC=malloc): a view left over freed memory
shows up there as an invalid read even when the values happen to survive.
"""
import gc

import numpy as np

import ztimage as zt
from ztimage import PixelFormat as F


def test_views_keep_their_memory_alive():
    image = zt.Image.create(F.Mono16, 64, 32, padding=16)
    view = np.asarray(image)
    view[...] = np.arange(64, dtype=np.uint16)
    del image
    gc.collect()
    # Pool memory given back would be handed out again: take some and scribble on it.
    for _ in range(4):
        np.asarray(zt.Image.create(F.Mono16, 64, 32, padding=16))[...] = 0xFFFF
    assert int(view.sum()) == 32 * sum(range(64))

    # A wrapped array lives while the image does, even when nothing else refers to it.
    wrapped = zt.Image.from_array(np.full((8, 8), 7, np.uint8), F.Mono8)
    gc.collect()
    assert int(np.asarray(wrapped).sum()) == 7 * 64
    again = np.asarray(wrapped)
    del wrapped
    gc.collect()
    assert int(again.sum()) == 7 * 64

    # A frame viewed in camera memory: the array keeps the frame after the frame and the
    # camera are gone.
    camera = zt.VirtualCamera(F.RGB8, 40, 30, moving=False)
    frame = camera.grab()
    pixels = np.asarray(frame)
    expected = pixels.copy()
    del frame, camera
    gc.collect()
    np.testing.assert_array_equal(pixels, expected)

    # A destination given new memory by a conversion of another size: the old view stays.
    dst = zt.convert(zt.Image.from_array(np.ones((4, 4), np.uint8), F.Mono8), F.RGB8)
    old = np.asarray(dst)
    zt.Converter(F.RGB8).convert(zt.Image.from_array(np.zeros((8, 8), np.uint8), F.Mono8), dst)
    del dst
    gc.collect()
    assert old.shape == (4, 4, 3) and int(old.sum()) == 48


if __name__ == "__main__":
    # Run on its own (without pytest) under memcheck, where only this file's reads matter.
    test_views_keep_their_memory_alive()
    print("lifetime: views read after their owners were released")
