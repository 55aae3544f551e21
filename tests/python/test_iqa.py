"""The Python module against the iqa program: the same inputs give the same numbers, bit for
bit; bad inputs raise FileNotFoundError or ValueError with the reason the program prints."""
import json
import os
import shutil
import subprocess

import numpy as np
import pytest

import iqa

CLI = os.environ["IQA_CLI"].split()  # the program, behind its emulator when cross-built
# Spelled out rather than asked of the module, so that a folder changed by mistake fails here.
CAMERA = "storage/emulated/0/DCIM/Camera"


def program(*args, status=0):
    done = subprocess.run(CLI + list(args), capture_output=True, text=True)
    assert done.returncode == status, done.stderr
    return done


@pytest.fixture(scope="module")
def sample(tmp_path_factory):
    """A camera root written by `iqa sample`, kept untouched: tests copy it before a run."""
    root = tmp_path_factory.mktemp("sample")
    program("sample", str(root))
    return root


def pairs(root):
    cache = root / CAMERA / "cache"
    for thumbnail in sorted(cache.glob("*.thumbnail")):
        photo = root / CAMERA / (thumbnail.stem + ".jpg")
        if photo.exists():
            yield str(photo), str(thumbnail)


def test_compare_and_its_parts_give_the_programs_numbers(sample):
    compared = 0
    for photo, thumbnail in pairs(sample):
        done = subprocess.run(CLI + ["compare", photo, thumbnail, "--worst", "5", "--json"],
                              capture_output=True, text=True)
        if done.returncode != 0:
            with pytest.raises(ValueError) as refused:
                iqa.compare(photo, thumbnail)
            assert "iqa compare: " + str(refused.value) == done.stderr.strip()
            continue
        expected = json.loads(done.stdout)
        result = iqa.compare(photo, thumbnail, worst=5)
        blocks = result["blocks"]
        assert blocks["ssim"].dtype == np.float64
        assert blocks["ssim"].shape == (expected["blocks"]["rows"], expected["blocks"]["columns"])
        assert blocks["ssim"].ravel().tolist() == expected["blocks"]["ssim"]
        del expected["blocks"]["ssim"], blocks["ssim"]
        images = {key: result.pop(key) for key in ("thumbnail_image", "photo_image")}
        assert result == expected
        # The same pair from arrays, and the parts one by one: the same numbers.
        decoded, thumb = iqa.decode(photo), iqa.read_thumbnail(thumbnail)
        arrays = iqa.compare(decoded, thumb)
        assert (arrays["photo"], arrays["ssim"]) == (None, result["ssim"])
        width, height = result["compared"]["width"], result["compared"]["height"]
        if decoded.shape[0] * decoded.shape[1] > thumb.shape[0] * thumb.shape[1]:
            assert np.array_equal(iqa.reduce(decoded, width, height), images["photo_image"])
        ssim, ssim_map = iqa.block_ssim(images["thumbnail_image"], images["photo_image"])
        assert ssim == result["ssim"]
        assert np.array_equal(ssim_map, arrays["blocks"]["ssim"])
        compared += 1
    assert compared >= 3


def test_run_inspect_extract_and_recover_give_the_programs_results(sample, tmp_path):
    roots = [tmp_path / "program", tmp_path / "module"]
    for root in roots:
        shutil.copytree(sample, root)
    by_program = json.loads(program("run", str(roots[0]), "--json").stdout)["photos"]
    assert iqa.run(str(roots[1])) == by_program
    assert os.getcwd() != str(roots[1])  # the working directory is given back
    inserted = [p["name"] for p in by_program if p["record"] == "inserted"]
    assert inserted
    for name in inserted:
        photos = [str(root / CAMERA / (name + ".jpg")) for root in roots]
        inspected = iqa.inspect(photos[1])
        assert inspected == json.loads(program("inspect", photos[1], "--json").stdout)
        preview = iqa.extract(photos[1])
        image = inspected["records"][1]["image"]
        assert preview.shape == (image["height"], image["width"], 3)
        assert preview.dtype == np.uint8
    assert iqa.recover(str(roots[1])) == {"completed": 0, "discarded": 0, "kept": 0, "lines": []}
    # An empty journal, which only damage leaves, is discarded and counted.
    journal = roots[1] / CAMERA / "iqathumb" / (inserted[0] + ".jpg.iqajournal")
    journal.parent.mkdir(exist_ok=True)
    journal.write_bytes(b"")
    recovered = iqa.recover(str(roots[1]))
    assert (recovered["completed"], recovered["discarded"], recovered["kept"]) == (0, 1, 0)
    assert len(recovered["lines"]) == 1
    # The scan of what the run left, as the program prints it; previews only on request.
    scanned = iqa.scan(str(roots[1]), previews=True)
    assert {k: v for k, v in scanned.items() if k != "photos"} == {
        k: v for k, v in iqa.scan(str(roots[1])).items() if k != "photos"}
    flagged = [p for p in scanned["photos"] if p["flagged"]]
    assert [p["file"] for p in flagged] == [f"{CAMERA}/{name}.jpg" for name in inserted]
    for photo in flagged:
        image = photo.pop("preview")
        assert image.shape == (photo["records"][1]["image"]["height"],
                               photo["records"][1]["image"]["width"], 3)
    assert scanned == json.loads(program("scan", str(roots[1]), "--json").stdout)


def test_files_round_trip_and_the_detector_reports_a_green_frame(tmp_path):
    rgb = np.random.default_rng(3).integers(0, 256, (24, 40, 3), dtype=np.uint8)
    iqa.write_thumbnail(str(tmp_path / "t.thumbnail"), rgb)
    assert np.array_equal(iqa.read_thumbnail(str(tmp_path / "t.thumbnail")), rgb)
    iqa.write_image(str(tmp_path / "t.png"), rgb)
    assert (tmp_path / "t.png").read_bytes()[:8] == b"\x89PNG\r\n\x1a\n"
    green = np.zeros(64 * 48 * 3 // 2, np.uint8)  # luma 0, chroma 0: green
    found = iqa.anomaly(green, 64, 48, 64, "frame.jpg")
    assert found["event"]["event_id"] == 8
    assert (found["event"]["name"], found["event"]["type"]) == ("frame.jpg", 0)
    assert iqa.anomaly(np.full(64 * 48 * 3 // 2, 128, np.uint8), 64, 48, 64, "x")["event"] is None


def test_bad_input_raises_with_the_programs_reason(sample, tmp_path):
    photo, thumbnail = next(pairs(sample))
    (tmp_path / "noise.jpg").write_bytes(bytes(range(256)) * 8)
    (tmp_path / "bad.thumbnail").write_bytes(b"\0" * 8 + (-5).to_bytes(4, "little", signed=True)
                                             + (7).to_bytes(4, "little") + b"\0" * 64)
    os.mkfifo(tmp_path / "fifo.jpg")
    cases = [
        (FileNotFoundError, str(tmp_path / "missing.jpg"), thumbnail),
        (ValueError, str(tmp_path / "fifo.jpg"), thumbnail),
        (ValueError, str(tmp_path), thumbnail),
        (ValueError, str(tmp_path / "noise.jpg"), thumbnail),
        (ValueError, photo, str(tmp_path / "bad.thumbnail")),
    ]
    for error, p, t in cases:
        said = program("compare", p, t, status=1).stderr.strip()
        with pytest.raises(error) as raised:
            iqa.compare(p, t)
        assert "iqa compare: " + str(raised.value) == said
    with pytest.raises(FileNotFoundError):
        iqa.run(str(tmp_path / "nowhere"))
    with pytest.raises(ValueError):
        iqa.decode(str(tmp_path / "noise.jpg"))
    good = np.zeros((16, 16, 3), np.uint8)
    for bad in [good.astype(np.float32), good[:, :, :2], good[:, ::2], good[0], np.zeros((0, 8, 3),
                                                                                          np.uint8)]:
        with pytest.raises(ValueError):
            iqa.block_ssim(bad, bad)
        with pytest.raises(ValueError):
            iqa.compare(photo, bad)
    with pytest.raises(ValueError):
        iqa.block_ssim(good, np.zeros((16, 24, 3), np.uint8))
    with pytest.raises(ValueError):
        iqa.anomaly(np.zeros(10, np.uint8), 64, 48, 64, "short")
