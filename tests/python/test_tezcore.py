"""The tezcore module as a Python program uses it: pictures as arrays, meshes
from arrays, documents with undo and a history that replays, the kernel's
errors as exceptions, Ctrl-C during long work."""

import os
import re
import signal
import subprocess
import sys
import textwrap
import threading
import time

import numpy as np
import pytest

import tezcore

BACKGROUND = (28, 30, 36)


@pytest.fixture(scope="module")
def sample_pattern(tmp_path_factory):
    return tezcore.write_sample_stack(str(tmp_path_factory.mktemp("sample")), 32)


@pytest.fixture(scope="module")
def sample(sample_pattern):
    return tezcore.image_stack(sample_pattern, 0, 31)


def run_python(code, cwd, **kwargs):
    env = dict(os.environ, PYTHONPATH=os.pathsep.join(sys.path))
    return subprocess.Popen([sys.executable, "-c", code], cwd=cwd, env=env, stdout=subprocess.PIPE,
                            stderr=subprocess.PIPE, text=True, **kwargs)


def test_a_volume_renders_to_an_array(sample, tmp_path):
    assert sample.shape == (32, 32, 32) and sample.bits == 8
    octree = tezcore.build_octree(sample)
    picture = tezcore.render(octree, width=64, height=48)
    assert picture.shape == (48, 64, 4) and picture.dtype == np.uint8
    assert (picture[..., 3] == 255).all()
    # The framed volume fills the middle; the corners show the background.
    assert tuple(picture[0, 0, :3]) == BACKGROUND and tuple(picture[-1, -1, :3]) == BACKGROUND
    assert (picture[24, 32, :3] != BACKGROUND).any()
    cut = tezcore.render(octree, width=64, height=48, cut="x")
    assert (cut != picture).any()

    # Saved, loaded back and drawn to a file, the same picture.
    octree.save(str(tmp_path / "sample.oct"))
    loaded = tezcore.load_octree(str(tmp_path / "sample.oct"))
    assert (loaded.node_count, loaded.tree_size) == (octree.node_count, octree.tree_size)
    assert (tezcore.render(loaded, width=64, height=48) == picture).all()
    path = tezcore.render_to_file(loaded, str(tmp_path / "sample.png"), width=64, height=48)
    assert open(path, "rb").read(8) == b"\x89PNG\r\n\x1a\n"


@pytest.mark.skipif(not os.environ.get("TEZ_WRITE_SCANS"), reason="needs the scan writer (TEZ_WRITE_SCANS)")
def test_every_scan_format_gives_the_voxels_of_the_raw_file(tmp_path):
    subprocess.run([os.environ["TEZ_WRITE_SCANS"], str(tmp_path)], check=True)
    raw = tezcore.raw_volume(str(tmp_path / "ball-le.raw"), dims=(24, 20, 12), type="int16", endian="little",
                             spacing=(0.75, 0.5, 2.5))
    assert (raw.shape, raw.bits, raw.spacing) == ((12, 20, 24), 16, (0.75, 0.5, 2.5))
    voxels = raw.to_numpy()
    for volume in (tezcore.dicom_folder(str(tmp_path / "dicom")), tezcore.nrrd(str(tmp_path / "ball.nrrd")),
                   tezcore.nrrd(str(tmp_path / "ball.nhdr")), tezcore.metaimage(str(tmp_path / "ball.mhd")),
                   tezcore.open_volume(tmp_path / "ball.mha")):
        assert volume.spacing == raw.spacing and (volume.to_numpy() == voxels).all()
    picture = tezcore.render(tezcore.build_octree(raw), width=32, height=24)
    assert (picture[12, 16, :3] != BACKGROUND).any()
    with pytest.raises(ValueError, match=re.escape("--endian little|big is needed for 16-bit samples")):
        tezcore.raw_volume(str(tmp_path / "ball-le.raw"), dims=(24, 20, 12), type="int16")
    with pytest.raises(tezcore.Error):
        tezcore.nrrd(str(tmp_path / "bomb.nrrd"))


def test_gaps_in_a_slice_stack_are_warned_about_and_filled(tmp_path):
    pattern = tezcore.write_sample_stack(str(tmp_path), 32)
    (tmp_path / "slice0010.png").unlink()
    (tmp_path / "slice0012.png").write_bytes(b"not a picture")
    with pytest.warns(UserWarning) as warned:
        octree = tezcore.build_octree(tezcore.image_stack(pattern, 0, 31))
    messages = [str(w.message) for w in warned]
    assert "1 of 32 slices missing (10): filled by interpolation" in messages
    assert any(m.startswith("1 of 31 slice files cannot be read as images") for m in messages)
    assert octree.dimensions == (32, 32, 32)


def test_an_array_becomes_a_volume_and_comes_back():
    voxels = np.zeros((20, 24, 28), np.uint8)
    voxels[5:15, 6:18, 7:21] = 200
    volume = tezcore.volume_from_numpy(voxels)
    assert volume.shape == (20, 24, 28)
    assert (volume.to_numpy() == voxels).all()
    # The box in the middle of the picture, lit; nothing else in it.
    picture = tezcore.render(tezcore.build_octree(volume), width=40, height=40, view="front",
                             tf=[(0, 0), (99, 0), (100, 1)])
    assert (picture[20, 20, :3] != BACKGROUND).any()
    assert tuple(picture[0, 0, :3]) == BACKGROUND
    # Marching cubes close the box: volume about 10 x 12 x 14 voxels.
    box = tezcore.tessellate(volume, iso=100)
    assert box.hole_count == 0
    assert box.volume == pytest.approx(10 * 12 * 14, rel=0.1)
    with pytest.raises(TypeError):
        tezcore.volume_from_numpy(voxels.astype(np.float32))


def cube():
    vertices = np.array([[x, y, z] for z in (0, 1) for y in (0, 1) for x in (0, 1)], np.float32)
    triangles = np.array([[0, 2, 1], [1, 2, 3], [4, 5, 6], [5, 7, 6], [0, 1, 4], [1, 5, 4],
                          [2, 6, 3], [3, 6, 7], [0, 4, 2], [2, 4, 6], [1, 3, 5], [3, 7, 5]])
    return vertices, triangles


def test_a_hole_in_a_mesh_from_arrays_is_filled():
    vertices, triangles = cube()
    closed = tezcore.Mesh(vertices, triangles)
    assert closed.hole_count == 0 and closed.volume == pytest.approx(1.0)

    open_box = tezcore.Mesh(vertices, triangles[2:])  # the bottom face taken off
    assert open_box.hole_count == 1
    report = open_box.fill_holes()
    assert (report["holes"], report["filled"], report["skipped"]) == (1, 1, 0)
    assert open_box.hole_count == 0
    assert open_box.volume == pytest.approx(1.0, abs=1e-4)
    assert open_box.triangles.max() < len(open_box.vertices)
    assert len(open_box.triangles) == 10 + report["triangles_added"]
    # The patch lies in the plane of the face it replaces.
    assert np.allclose(open_box.vertices[8:, 2], 0.0) if len(open_box.vertices) > 8 else True

    small = tezcore.Mesh(vertices, triangles[2:])
    assert small.fill_holes(max_edges=3)["skipped"] == 1 and small.hole_count == 1


def test_meshes_refuse_bad_arrays_and_travel_through_files(tmp_path):
    vertices, triangles = cube()
    with pytest.raises(ValueError, match="triangle 0 names vertex 8; there are 8"):
        tezcore.Mesh(vertices, triangles + 8)
    with pytest.raises(ValueError, match=r"shape \(n, 3\)"):
        tezcore.Mesh(vertices[:, :2], triangles)
    mesh = tezcore.Mesh(vertices, triangles)
    for name in ("cube.stl", "cube.obj", "cube.ply"):
        mesh.save(str(tmp_path / name))
        back = tezcore.read_mesh(str(tmp_path / name))
        assert len(back.triangles) == 12 and back.volume == pytest.approx(1.0), name
    with pytest.raises(ValueError, match="no mesh extension"):
        mesh.save(str(tmp_path / "cube.txt"))
    with pytest.raises(tezcore.Error, match="cannot read mesh"):
        tezcore.read_mesh(str(tmp_path / "none.stl"))


def test_a_document_undoes_and_its_history_replays(sample_pattern, tmp_path):
    tezcore.new()
    document = tezcore.active_document()
    index = document.add_volume(tezcore.build_octree(tezcore.image_stack(sample_pattern, 0, 31)))
    before = document.transfer_function(index)
    document.set_transfer_function(index, [(0.0, 0.0), (0.5, 0.0), (0.6, 1.0), (1.0, 1.0)])
    changed = document.transfer_function(index)
    assert changed != before and document.can_undo
    tezcore.undo()
    assert document.transfer_function(index) == before and document.can_redo
    tezcore.redo()
    assert document.transfer_function(index) == changed
    # Undoing the addition takes the volume off; redoing brings it back.
    tezcore.undo()
    tezcore.undo()
    assert document.volume_count == 0
    tezcore.redo()
    tezcore.redo()
    assert document.volume_count == 1 and document.transfer_function(index) == changed

    saved = tmp_path / "saved.mvne"
    tezcore.save_as(str(saved))
    lines = tezcore.history()
    assert lines[:3] == ["import tez\n", "\n", "tez.start()\n"] and lines[-1] == "tez.stop()\n"
    assert any(".add_volume(tez.build_octree(tez.image_stack(" in line for line in lines)
    script = tmp_path / "history.py"
    tezcore.export_history(str(script))

    # The history is plain Python: in a fresh interpreter, and through tez
    # script run, it makes the same document again.
    replays = [lambda: run_python(open(script).read(), cwd=tmp_path)]
    if os.environ.get("TEZ_BIN"):
        replays.append(lambda: subprocess.Popen([os.path.abspath(os.environ["TEZ_BIN"]), "script", "run", str(script)], cwd=tmp_path,
                                                stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True))
    for replay in replays:
        saved.unlink()
        child = replay()
        out, err = child.communicate(timeout=120)
        assert child.returncode == 0, err
        tezcore.open(str(saved))
        replayed = tezcore.active_document()
        assert replayed.volume_count == 1
        assert replayed.transfer_function(0) == changed
        assert replayed.octree(0).node_count == document.octree(index).node_count


def test_kernel_errors_come_as_exceptions_with_the_kernels_text(tmp_path):
    tezcore.new()
    with pytest.raises(tezcore.Error) as caught:
        tezcore.save()
    assert str(caught.value) == "The active document has never been saved. Try save_as."
    assert isinstance(caught.value, RuntimeError)

    (tmp_path / "junk.oct").write_bytes(b"not an archive")
    with pytest.raises(tezcore.Error, match="junk.oct is not a readable octree"):
        tezcore.load_octree(str(tmp_path / "junk.oct"))
    with pytest.raises(tezcore.Error, match="^no file matches .*none%03d.png for 0..3$"):
        tezcore.image_stack(str(tmp_path / "none%03d.png"), 0, 3)
    tiny = tezcore.build_octree(tezcore.volume_from_numpy(np.ones((4, 4, 4), np.uint8)))
    with pytest.raises(ValueError, match="unknown view 'sideways'"):
        tezcore.render(tiny, view="sideways")
    with pytest.raises(ValueError, match="width and height must be 1 to 16384"):
        tezcore.render(tiny, width=0)
    with pytest.raises(ValueError, match="the value rising from point to point"):
        tezcore.render(tiny, tf=[(10, 0), (5, 1)])
    with pytest.raises(TypeError):
        tezcore.save_as()


def test_other_python_threads_run_during_long_work(tmp_path):
    pattern = tezcore.write_sample_stack(str(tmp_path), 128)
    mesh = tezcore.tessellate(tezcore.image_stack(pattern, 0, 127), 60)
    span = {}

    def fill():
        span["start"] = time.monotonic()
        mesh.fill_holes()
        span["end"] = time.monotonic()

    worker = threading.Thread(target=fill)
    ticks = []
    worker.start()
    while worker.is_alive():
        ticks.append(time.monotonic())
    worker.join()
    took = span["end"] - span["start"]
    if took < 0.1:
        pytest.skip("the work was too short to tell")
    inside = [t for t in ticks if span["start"] <= t <= span["end"]]
    gaps = np.diff([span["start"]] + inside + [span["end"]])
    # Held, the GIL would stop this loop for the whole call.
    assert gaps.max() < 0.6 * took


def test_ctrl_c_stops_long_work_and_the_next_call_runs(tmp_path):
    # Builds back to back, so that the interrupt lands inside one of them.
    code = textwrap.dedent("""
        import sys, numpy as np, tezcore
        noise = np.random.default_rng(7).integers(0, 256, (256, 256, 256), dtype=np.uint8)
        volume = tezcore.volume_from_numpy(noise)
        print("ready", flush=True)
        try:
            for _ in range(10000):
                tezcore.build_octree(volume, memory_limit=64)
        except KeyboardInterrupt:
            # The stop flag is down again: the next build runs through.
            print("stopped", tezcore.build_octree(volume).node_count > 0, flush=True)
            sys.exit(3)
    """)
    child = run_python(code, cwd=tmp_path)
    assert child.stdout.readline().strip() == "ready"
    time.sleep(0.5)
    child.send_signal(signal.SIGINT)
    out, err = child.communicate(timeout=120)
    assert child.returncode == 3, err
    assert out.strip() == "stopped True"


@pytest.mark.skipif(not os.environ.get("TEZ_BIN"), reason="needs the tez program (TEZ_BIN)")
def test_tez_script_run_reaches_the_same_operations(tmp_path):
    script = tmp_path / "script.py"
    script.write_text(textwrap.dedent("""
        import tez
        pattern = tez.write_sample_stack(r'%s', 32)
        octree = tez.build_octree(tez.image_stack(pattern, 0, 31))
        assert tez.render(octree, width=20, height=10).shape == (10, 20, 4)
        tez.new()
        tez.active_document().add_volume(octree)
        assert tez.active_document().volume_count == 1
    """ % (tmp_path / "stack")))
    done = subprocess.run([os.path.abspath(os.environ["TEZ_BIN"]), "script", "run", str(script)], capture_output=True, text=True,
                          timeout=120)
    assert done.returncode == 0, done.stderr


def test_a_scan_with_thick_slices_keeps_its_proportions(tmp_path):
    # A ball in slices twice as far apart as the pixels: drawn from the side,
    # as tall as it is wide.
    z, y, x = np.mgrid[0:32, 0:64, 0:64]
    ball = ((x - 31.5) ** 2 + (y - 31.5) ** 2 + ((z - 15.5) * 2) ** 2 < 26 ** 2).astype(np.uint8) * 200
    path = tmp_path / "ball.raw"
    ball.tofile(path)
    scan = tezcore.raw_volume(str(path), dims=(64, 64, 32), type="uint8", spacing=(1, 1, 2))
    octree = tezcore.build_octree(scan)
    for view in ("front", "right", "top"):
        lit = (tezcore.render(octree, width=200, height=200, view=view, perspective=False)[..., :3]
               != BACKGROUND).any(axis=2)
        rows, cols = np.nonzero(lit)
        width, height = cols.max() - cols.min() + 1, rows.max() - rows.min() + 1
        assert abs(width / height - 1) < 0.06, (view, width, height)
