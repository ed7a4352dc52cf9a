"""Images seen as arrays and arrays wrapped as images, without copies."""
import numpy as np
import pytest

import ztimage as zt
from ztimage import PixelFormat as F


def test_create_and_view_share_memory_both_ways(rng):
    image = zt.Image.create(F.Mono12, 7, 5, padding=6)
    view = np.asarray(image)
    assert (view.shape, view.dtype, view.strides) == ((5, 7), np.uint16, (20, 2))
    assert (image.width, image.height, image.padding, image.stride) == (7, 5, 6, 20)
    assert image.format is F.Mono12 and image.byte_count == 70

    view[...] = rng.integers(0, 4096, view.shape)
    again = np.asarray(image)
    assert np.shares_memory(view, again)
    np.testing.assert_array_equal(again, view)
    again[2, 3] = 4095
    assert view[2, 3] == 4095

    # A wrapped array is the image's memory: write through either and see it in the other.
    pixels = rng.integers(0, 256, (4, 6, 3), dtype=np.uint8)
    wrapped = zt.Image.from_array(pixels, F.RGB8)
    assert (wrapped.width, wrapped.height, wrapped.padding, wrapped.format) == (6, 4, 0, F.RGB8)
    out = np.asarray(wrapped)
    assert np.shares_memory(out, pixels)
    pixels[1, 2] = (1, 2, 3)
    out[3, 5, 0] = 77
    assert tuple(out[1, 2]) == (1, 2, 3) and pixels[3, 5, 0] == 77


@pytest.mark.parametrize("fmt, width, shape, dtype", [
    (F.Mono8, 6, (4, 6), np.uint8),
    (F.BayerRG16, 6, (4, 6), np.uint16),
    (F.BGR8, 6, (4, 6, 3), np.uint8),
    (F.RGBa8, 6, (4, 6, 4), np.uint8),
    (F.YUV422_8, 6, (4, 12), np.uint8),        # 4:2:2 as its bytes
    (F.Mono12p, 6, (4, 9), np.uint8),          # packed rows of 6 x 12 bits
    (F.Mono10Packed, 8, (4, 12), np.uint8),     # 12 bits per pixel in memory
    (F.Mono12p, 5, (30,), np.uint8),           # odd width: rows do not end on a byte
])
def test_layouts_round_trip_through_from_array(fmt, width, shape, dtype):
    image = zt.Image.create(fmt, width, 4)
    view = np.asarray(image)
    assert (view.shape, view.dtype) == (shape, dtype)
    if view.ndim == 1:
        with pytest.raises(ValueError, match="whole Mono12p pixels"):
            zt.Image.from_array(view.reshape(3, 10), fmt)
        return
    back = zt.Image.from_array(view, fmt)
    assert (back.format, back.width, back.height, back.padding) == (fmt, width, 4, 0)
    assert np.shares_memory(np.asarray(back), view)


def test_row_strided_array_becomes_padding(rng):
    frame = rng.integers(0, 256, (5, 16), dtype=np.uint8)
    image = zt.Image.from_array(frame[:, :10], F.Mono8)
    assert (image.width, image.padding, image.stride) == (10, 6, 16)
    rgb = np.asarray(zt.convert(image, F.RGB8))
    np.testing.assert_array_equal(rgb, np.repeat(frame[:, :10, None], 3, axis=2))

    deep = rng.integers(0, 65536, (3, 9), dtype=np.uint16)
    assert zt.Image.from_array(deep[:, 1:8], F.Mono16).padding == 4


def test_copy_makes_pool_memory(rng):
    source = rng.integers(0, 256, (3, 4), dtype=np.uint8)
    source.flags.writeable = False
    with pytest.raises(ValueError, match="read-only"):
        zt.Image.from_array(source, F.Mono8)
    copy = zt.Image.from_array(source[:, 1:], F.Mono8, copy=True)
    view = np.asarray(copy)
    assert not np.shares_memory(view, source) and copy.padding == 0
    np.testing.assert_array_equal(view, source[:, 1:])


@pytest.mark.parametrize("array, fmt, message", [
    (np.zeros((4, 6, 3), np.uint8), F.Mono8, r"2-dimensional array \(height, width\), got shape \(4, 6, 3\)"),
    (np.zeros((4, 6, 4), np.uint8), F.RGB8, r"3 channels, got shape \(4, 6, 4\)"),
    (np.zeros((4, 6), np.uint16), F.Mono8, "needs dtype uint8, got uint16"),
    (np.zeros((4, 6), np.uint8), F.Mono12, "needs dtype uint16, got uint8"),
    (np.zeros((4, 6), ">u2"), F.Mono16, "needs dtype uint16"),
    (np.zeros((4, 12), np.uint8)[:, ::2], F.Mono8, "steps 1 bytes from pixel to pixel, the array 2"),
    (np.zeros((4, 6), np.uint8)[::-1], F.Mono8, "negative strides"),
    (np.zeros((4, 10), np.uint8)[:, :9], F.Mono12p, "rows must be contiguous"),
    (np.zeros((4, 7), np.uint8), F.YUV422_8, "do not hold whole YUV422_8 pixels"),
    (np.zeros((0, 6), np.uint8), F.Mono8, "has no pixels"),
    (np.zeros((4, 6), np.uint8), 0x01234567, "unknown pixel format 0x01234567"),
    (np.zeros((4, 6), np.uint8), F.Mono1p, "no array layout"),
])
def test_from_array_rejects_what_does_not_fit(array, fmt, message):
    with pytest.raises(ValueError, match=message):
        zt.Image.from_array(array, fmt)


def test_create_rejects_what_the_library_cannot_hold():
    with pytest.raises(ValueError, match="unknown pixel format 0x00000000"):
        zt.Image.create(0, 4, 4)
    with pytest.raises(ValueError, match="Mono8 0 x 4 has no pixels"):
        zt.Image.create(F.Mono8, 0, 4)
    with pytest.raises(ValueError, match="32-bit byte count"):
        zt.Image.create(F.RGB16, 40000, 40000)
    with pytest.raises(ValueError, match="negative"):
        zt.Image.create(F.Mono8, 4, 4, padding=-1)
    assert zt.Image.create(0x01080001, 2, 2).format is F.Mono8  # plain codes work as well
    empty = zt.Image()
    assert not empty.is_valid and repr(empty) == "<ztimage.Image empty>"
    with pytest.raises(ValueError, match="holds no pixels"):
        np.asarray(empty)
