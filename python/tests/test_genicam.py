"""GenICam frames, from Aravis's in-process simulated camera only: nothing goes on a network."""
import gc

import numpy as np
import pytest

import ztimage as zt

pytestmark = pytest.mark.skipif(not hasattr(zt, "GenICamCamera"), reason="module built without Aravis")


def test_simulated_camera_frames_hold_stream_buffers():
    devices = zt.GenICamCamera.list(zt.GenICamInterfaces.FAKE)
    assert [d["protocol"] for d in devices] == ["Fake"]
    camera = zt.GenICamCamera(zt.GenICamInterfaces.FAKE, devices[0]["id"], zt.PixelFormat.Mono8,
                              width=64, height=48, frame_rate=200, buffer_count=2)
    held = list(camera.frames(2))
    assert [f.format for f in held] == [zt.PixelFormat.Mono8] * 2
    assert np.asarray(held[0]).shape == (48, 64) and camera.buffers_in_use == 2
    with pytest.raises(TimeoutError, match="2 buffers held"):
        camera.grab(timeout=0.2)

    pixels = np.asarray(held.pop())
    expected = pixels.copy()
    del held[:]
    gc.collect()
    assert camera.buffers_in_use == 1
    assert np.asarray(zt.convert(camera.grab(), zt.PixelFormat.RGB8)).shape == (48, 64, 3)
    camera.stop()
    del camera
    gc.collect()
    # The array still reads its frame after the stream and the camera are gone.
    np.testing.assert_array_equal(pixels, expected)


def test_simulated_camera_refusals():
    with pytest.raises(ValueError, match="NoSuchCamera"):
        zt.GenICamCamera(zt.GenICamInterfaces.FAKE, "NoSuchCamera")
    with pytest.raises(ValueError, match="interfaces 9"):
        zt.GenICamCamera(9)
