"""Results against NumPy and OpenCV computations, and every refusal as an exception."""
import os
import subprocess

import cv2
import numpy as np
import pytest

import ztimage as zt
from ztimage import PixelFormat as F


def test_colour_and_depth_conversions_match_opencv(rng):
    bgr = rng.integers(0, 256, (6, 10, 3), dtype=np.uint8)
    rgb = np.asarray(zt.convert(zt.Image.from_array(bgr, F.BGR8), F.RGB8))
    np.testing.assert_array_equal(rgb, cv2.cvtColor(bgr, cv2.COLOR_BGR2RGB))

    # Mono12 -> Mono8 scales by 255 / 4095 and rounds half to even (OpenCV's convertTo).
    mono12 = rng.integers(0, 4096, (6, 10), dtype=np.uint16)
    mono12[0, :4] = (0, 4095, 8, 2047)
    mono8 = np.asarray(zt.convert(zt.Image.from_array(mono12, F.Mono12), F.Mono8))
    np.testing.assert_array_equal(mono8, np.rint(mono12 * (255 / 4095)).astype(np.uint8))


def test_converter_reuses_destination_memory(rng):
    converter = zt.Converter(F.RGB8)
    assert converter.format is F.RGB8
    frames = [rng.integers(0, 256, (4, 6, 3), dtype=np.uint8) for _ in range(2)]
    dst = converter.convert(zt.Image.from_array(frames[0], F.BGR8))
    first = np.asarray(dst)
    assert converter.convert(zt.Image.from_array(frames[1], F.BGR8), dst) is dst
    # Same format and size: the next frame lands in the same memory, which the view shows.
    assert np.shares_memory(first, np.asarray(dst))
    np.testing.assert_array_equal(first, frames[1][..., ::-1])

    # Another size: new memory; the old view keeps the old frame.
    converter.convert(zt.Image.from_array(frames[0][:2], F.BGR8), dst)
    assert dst.height == 2 and not np.shares_memory(first, np.asarray(dst))
    np.testing.assert_array_equal(first, frames[1][..., ::-1])


def test_quality_demosaic_is_an_opt_in(rng):
    bayer = zt.Image.from_array(rng.integers(0, 4096, (16, 20), dtype=np.uint16), F.BayerRG12)
    default, ha, quality = zt.Converter(F.RGB12), zt.Converter(F.RGB12, demosaic="ha"), zt.Converter(F.RGB12, demosaic="quality")
    assert (default.demosaic, quality.demosaic) == ("ha", "quality")
    np.testing.assert_array_equal(np.asarray(default.convert(bayer)), np.asarray(ha.convert(bayer)))
    # Same scaling (RGB12 from BayerRG12 is written unchanged), another demosaic.
    assert not np.array_equal(np.asarray(default.convert(bayer)), np.asarray(quality.convert(bayer)))
    with pytest.raises(ValueError, match="unknown demosaic 'vng'"):
        zt.Converter(F.RGB8, demosaic="vng")


def test_contrast_matches_the_formulas(rng):
    mono8 = rng.integers(0, 256, (8, 12), dtype=np.uint8)
    stretched = zt.hist_stretch(zt.Image.from_array(mono8, F.Mono8), 20, 200)
    expected = np.clip(np.trunc((mono8.astype(float) - 20) / 180 * 255), 0, 255)
    np.testing.assert_array_equal(np.asarray(stretched), expected)
    assert stretched.format is F.Mono8

    mono12 = rng.integers(0, 4096, (8, 12), dtype=np.uint16)
    stretched12 = zt.hist_stretch(zt.Image.from_array(mono12, F.Mono12), 100, 3000)
    expected12 = np.clip(np.trunc((mono12.astype(float) - 100) / 2900 * 4095), 0, 4095)
    np.testing.assert_array_equal(np.asarray(stretched12), expected12)

    # Packed Mono12p: unpacked afterwards, the same stretch; the source is left alone.
    packed = np.empty((8, 18), np.uint8)
    lo, hi = mono12[:, 0::2], mono12[:, 1::2]
    packed[:, 0::3], packed[:, 1::3], packed[:, 2::3] = lo & 0xFF, (lo >> 8) | ((hi & 0xF) << 4), hi >> 4
    before = packed.copy()
    out = zt.hist_stretch(zt.Image.from_array(packed, F.Mono12p), 100, 3000)
    np.testing.assert_array_equal(zt.unpack12(np.asarray(out), F.Mono12p, 12, 8), expected12)
    np.testing.assert_array_equal(packed, before)

    equalized = zt.hist_equal(zt.Image.from_array(mono8, F.Mono8))
    np.testing.assert_array_equal(np.asarray(equalized), cv2.equalizeHist(mono8))


def test_polarization_of_a_uniform_scene():
    # Every 2 x 2 cell holds I90 I45 / I135 I0 = 40 80 / 120 200, so each angle's interpolated
    # intensity is that value everywhere: S0 / 2 = 110, S1 = 160, S2 = -40.
    frame = np.tile(np.array([[40, 80], [120, 200]], np.uint8), (6, 8))
    src = zt.Image.from_array(frame, F.Mono8)
    s1, s2, s0 = 160.0, -40.0, 220.0
    cases = {
        zt.stokes_s0: s0 / 2, zt.stokes_s1: (s1 + 255) / 2, zt.stokes_s2: (s2 + 255) / 2,
        zt.dolp: 255 * np.hypot(s1, s2) / s0, zt.aolp: 255 * (np.arctan2(s2, s1) / 2 + np.pi / 2) / np.pi,
        zt.glare_reduced: (s0 - np.hypot(s1, s2)) / 2,
    }
    for product, value in cases.items():
        out = np.asarray(product(src))
        assert out.shape == (12, 16) and out.dtype == np.uint8
        # One step for the rounding of the 8-bit result.
        assert np.abs(out.astype(float) - value).max() <= 1, (product.__name__, value, out)

    heat = zt.heatmap(src, 0, 100, 1, 5)
    assert np.asarray(heat).shape == (12, 16, 3) and heat.format is F.RGB8
    np.testing.assert_array_equal(np.asarray(zt.extract_quadrant(src, zt.PolarizationQuadrant.I0)), frame[1::2, 1::2])
    np.testing.assert_array_equal(np.asarray(zt.extract_quadrant(src, 1)), frame[0::2, 1::2])
    tiled = np.block([[frame[0::2, 0::2], frame[0::2, 1::2]], [frame[1::2, 0::2], frame[1::2, 1::2]]])
    np.testing.assert_array_equal(np.asarray(zt.full_quadrants(src)), tiled)
    deep = frame.astype(np.uint16) * 300
    raw = zt.full_quadrants_raw(zt.Image.from_array(deep, F.Mono16))
    assert raw.format is F.Mono16
    np.testing.assert_array_equal(np.asarray(raw), tiled.astype(np.uint16) * 300)


def test_save_writes_what_opencv_reads(tmp_path, rng):
    rgb = rng.integers(0, 256, (5, 7, 3), dtype=np.uint8)
    path = tmp_path / "frame.png"
    zt.save(zt.Image.from_array(rgb, F.RGB8), path)
    np.testing.assert_array_equal(cv2.imread(str(path), cv2.IMREAD_UNCHANGED), rgb[..., ::-1])

    mono16 = rng.integers(0, 65536, (5, 7), dtype=np.uint16)
    zt.save(zt.Image.from_array(mono16, F.Mono16), str(tmp_path / "deep.png"), zt.ImageFileFormat.PNG)
    np.testing.assert_array_equal(cv2.imread(str(tmp_path / "deep.png"), cv2.IMREAD_UNCHANGED), mono16)


def test_unpackers_match_numpy(rng):
    values = rng.integers(0, 1024, (3, 8), dtype=np.uint16)
    groups = values.reshape(-1, 4).astype(np.uint64)
    word = (groups[:, 0] << 30) | (groups[:, 1] << 20) | (groups[:, 2] << 10) | groups[:, 3]
    packed10 = np.stack([(word >> s) & 0xFF for s in (32, 24, 16, 8, 0)], axis=1).astype(np.uint8)
    np.testing.assert_array_equal(zt.unpack10(packed10.tobytes(), F.Mono10p, 8, 3), values)

    # GigE "Packed" pairs: high bytes in bytes 0 and 2, low nibbles in byte 1; 5 pixels leave
    # the last one unwritten, read as 0.
    pix = np.array([0x123, 0xABC, 0x456, 0xDEF, 0x789], np.uint16)
    data = bytes([0x12, 0xC3, 0xAB, 0x45, 0xF6, 0xDE])
    np.testing.assert_array_equal(zt.unpack12(bytearray(data), F.Mono12Packed, 5, 1), [list(pix[:4]) + [0]])


def test_every_refusal_raises(tmp_path):
    mono8 = zt.Image.from_array(np.zeros((4, 6), np.uint8), F.Mono8)
    cases = [
        (lambda: zt.convert(mono8, F.RGB16), ValueError, "no conversion produces RGB16|no conversion from Mono8 to RGB16"),
        (lambda: zt.Converter(F.Mono12).convert(zt.Image.create(F.RGB8, 2, 2)), ValueError,
         "no conversion from RGB8 to Mono12; RGB8 converts to: Mono8"),
        (lambda: zt.Converter(F.BayerRG8), ValueError, "no conversion produces BayerRG8"),
        (lambda: zt.convert(zt.Image(), F.RGB8), ValueError, "convert: the image .* holds no pixels"),
        (lambda: zt.convert(zt.Image.create(F.YUV422_8, 5, 2), F.RGB8), ValueError, "YUV422_8 5 x 2 has an odd width"),
        (lambda: zt.hist_stretch(zt.Image.create(F.RGB8, 2, 2), 0, 9), ValueError,
         "hist_stretch: RGB8 2 x 2 is not Mono8"),
        (lambda: zt.hist_stretch(zt.Image.create(F.Mono8, 2, 2, padding=2), 0, 9), ValueError, "row padding 2"),
        (lambda: zt.hist_equal(zt.Image.create(F.Mono12, 2, 2)), ValueError, "not an 8-bit one-channel"),
        (lambda: zt.stokes_s0(zt.Image.create(F.Mono8, 5, 4)), ValueError, "stokes_s0: Mono8 5 x 4: .*even width"),
        (lambda: zt.dolp(zt.Image.create(F.Mono12p, 4, 4)), ValueError, "dolp: Mono12p 4 x 4 has no conversion to Mono8"),
        (lambda: zt.extract_quadrant(mono8, 4), ValueError, "quadrant 4 is not 0..3"),
        (lambda: zt.full_quadrants_raw(zt.Image.create(F.RGB8, 4, 4)), ValueError, "not a one-sample"),
        (lambda: zt.save(mono8, tmp_path / "x.gif"), ValueError, "no file format for the extension"),
        (lambda: zt.save(mono8, tmp_path / "missing" / "x.png"), OSError, "save: "),
        (lambda: zt.save(zt.Image.create(F.BGR16, 2, 2), tmp_path / "x.png"), ValueError, "BGR16 2 x 2 cannot be saved"),
        (lambda: zt.unpack10(b"\0" * 9, F.Mono10p, 8, 1), ValueError, "9 bytes hold too little .* needs 10"),
        (lambda: zt.unpack12(b"\0" * 9, F.Mono10p, 2, 1), ValueError, "Mono10p is not a packed 12-bit"),
        (lambda: zt.unpack12(b"\0" * 9, F.Mono12p, 0, 1), ValueError, "0 x 1 is not a size"),
    ]
    for call, error, message in cases:
        with pytest.raises(error, match=message):
            call()
    assert not list(tmp_path.iterdir()), "a refused save left a file behind"


@pytest.mark.skipif("ZT_TOOL" not in os.environ, reason="the ztimage tool is not part of this build")
def test_polarization_equals_the_tool(tmp_path):
    # The command-line tool calls the same C++ functions from its own code: equal files mean
    # the module hands them the same frame and the same arguments, in the same order.
    camera = zt.VirtualCamera(F.Mono12, 64, 48, scene=zt.VirtualScene.POLARIZATION, moving=False)
    frame = camera.grab()
    raw = tmp_path / "frame.raw"
    np.asarray(frame).tofile(raw)
    runs = {
        "s1": (zt.stokes_s1(frame), []),
        "aolp": (zt.aolp(frame), []),
        "heatmap": (zt.heatmap(frame, 20, 80, 2, 4), ["--range", "20:80", "--colors", "cyan:yellow"]),
        "i135": (zt.extract_quadrant(frame, zt.PolarizationQuadrant.I135), []),
    }
    for product, (image, options) in runs.items():
        out = tmp_path / f"{product}.png"
        subprocess.run([os.environ["ZT_TOOL"], "polar", str(raw), "--from", "Mono12", "--width", "64",
                        "--height", "48", "--product", product, "-o", str(out), *options], check=True)
        expected = cv2.imread(str(out), cv2.IMREAD_UNCHANGED)
        if expected.ndim == 3:
            expected = cv2.cvtColor(expected, cv2.COLOR_BGR2RGB)
        np.testing.assert_array_equal(np.asarray(image), expected, err_msg=product)
