"""Camera frames as images that hold their frame buffers."""
import gc

import numpy as np
import pytest

import ztimage as zt
from ztimage import PixelFormat as F


def test_frames_iterate_and_hold_their_buffers():
    camera = zt.VirtualCamera(F.BayerRG12, 32, 24, buffer_count=2)
    frames = list(camera.frames(2))
    assert [f.format for f in frames] == [F.BayerRG12] * 2 and camera.frame_number == 2
    assert np.asarray(frames[0]).shape == (24, 32) and camera.buffers_in_use == 2
    with pytest.raises(RuntimeError, match="all 2 frame buffers are held"):
        camera.grab()

    # An array alone keeps its frame's buffer; the camera gets it back when the array goes.
    view = np.asarray(frames.pop())
    del frames[:]
    gc.collect()
    assert camera.buffers_in_use == 1
    del view
    assert camera.buffers_in_use == 0
    assert sum(1 for _ in camera.frames(5)) == 5


def test_packed_frames_arrive_unpacked_and_convert():
    camera = zt.VirtualCamera(F.Mono12p, 16, 8, scene=zt.VirtualScene.POLARIZATION, moving=False)
    frame = camera.grab()
    assert frame.format is F.Mono12 and camera.buffers_in_use == 0
    pixels = np.asarray(frame)
    assert pixels.dtype == np.uint16 and pixels.max() < 4096
    np.testing.assert_array_equal(np.asarray(zt.convert(frame, F.Mono8)), np.rint(pixels * (255 / 4095)))
    assert np.asarray(zt.stokes_s0(frame)).shape == (8, 16)


def test_camera_settings_are_checked():
    assert zt.VirtualCamera.supports_format(F.BayerGB10p) and not zt.VirtualCamera.supports_format(F.Mono1p)
    with pytest.raises(ValueError, match="VirtualCamera: "):
        zt.VirtualCamera(F.Mono1p, 8, 8)
    with pytest.raises(ValueError, match="scene 7"):
        zt.VirtualCamera(F.Mono8, 8, 8, scene=7)
    with pytest.raises(ValueError, match="count must not be negative"):
        zt.VirtualCamera(F.Mono8, 8, 8).frames(-1)
