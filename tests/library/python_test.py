"""Tests the Python module. OFFLINETZ_READER names the shipped library, whose reader is the reference."""
import ast
import contextlib
import ctypes
import datetime
import doctest
import importlib.util
import io
import multiprocessing
import os
import pathlib
import pickle
import re
import runpy
import signal
import subprocess
import sys
import tempfile
import threading
import time
import tracemalloc
import unittest
import zipfile

import numpy
import offlinetz

ROOT = pathlib.Path(__file__).resolve().parents[2]
WORLD = ROOT / "data/world.bin"
PACKAGE = pathlib.Path(offlinetz.__file__).parent
PARIS = 48.8566, 2.3522
ATLANTIC = 30, -40


def random_points(count):
    """All over the world. A quarter of them has whole degrees: many of those are on borders."""
    points = numpy.random.default_rng(20).uniform((-90, -180), (90, 180), (count, 2))
    points[: count // 4] = points[: count // 4].round()
    return points.T.copy()


def reference_zones(points):
    """The names of the zones of each point, from the reader of the shipped library."""
    class Result(ctypes.Structure):
        _fields_ = [("result", ctypes.c_int32), ("record", ctypes.c_uint32), ("fields", ctypes.c_uint8),
                    ("names", ctypes.c_void_p), ("values", ctypes.POINTER(ctypes.c_char_p))]
    library = ctypes.CDLL(os.environ["OFFLINETZ_READER"])
    library.ZDOpenDatabase.restype = ctypes.c_void_p
    library.ZDLookup.restype = ctypes.POINTER(Result)
    library.ZDFreeResults.argtypes = [ctypes.POINTER(Result)]
    library.GetEtcAreaTimezone.restype = ctypes.c_char_p
    database = ctypes.c_void_p(library.ZDOpenDatabase(os.fsencode(WORLD)))
    for point in points:
        lat, lon = map(ctypes.c_float, point)
        results, names = library.ZDLookup(database, lat, lon, None), []
        while results[len(names)].result != -2:
            names.append(results[len(names)].values[0])
        library.ZDFreeResults(results)
        yield [name.decode().strip('"') for name in names or [library.GetEtcAreaTimezone(database, lon, lat)]]


def run_python(*command):
    environment = {**os.environ, "PYTHONPATH": str(PACKAGE.parent)}
    return subprocess.run(command, check=True, stdout=subprocess.PIPE, text=True, env=environment, cwd="/").stdout


class PythonTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.db = offlinetz.Database()

    def setUp(self):
        directory = tempfile.TemporaryDirectory()
        self.addCleanup(directory.cleanup)
        self.directory = pathlib.Path(directory.name)
        self.file = self.directory / "a.bin"

    def test_answers_are_those_of_the_reader(self):
        lats, lons = random_points(100_000)
        points = list(zip(lats.tolist(), lons.tolist()))
        expected = list(reference_zones(points))
        firsts = [zones[0] for zones in expected]
        self.assertGreater(sum(len(zones) > 1 for zones in expected), 100)
        self.assertEqual([self.db.zones(*point) for point in points], expected)
        self.assertEqual([self.db.zone(*point) for point in points], firsts)
        names = numpy.array(self.db.names)
        self.assertEqual(names[self.db.find(lats, lons)].tolist(), firsts)
        offsets, values = self.db.find_all(lats, lons)
        self.assertEqual((offsets.dtype, values.dtype), (numpy.int64, numpy.int32))
        found = names[values].tolist()
        self.assertEqual([found[a:b] for a, b in zip(offsets, offsets[1:])], expected)
        disputed = self.db.find_all([43.8256] * 40, [87.6168] * 40)  # More values than are expected.
        self.assertEqual(disputed[0].tolist(), list(range(0, 81, 2)))
        self.assertEqual(names[disputed[1]].tolist(), ["Asia/Shanghai", "Asia/Urumqi"] * 40)

    def test_distances_of_arrays_are_those_of_points(self):
        lats, lons = random_points(2000)
        metres = numpy.geomspace(1, 1e6, 2000)
        borders = self.db.find_borders(lats, lons, limit=metres)
        offsets, values, distances = self.db.find_within(lats, lons, metres)
        found = 0
        for i, point in enumerate(zip(lats.tolist(), lons.tolist())):
            border = self.db.nearest_border(*point, limit=metres[i])
            found += border is not None
            row = borders[i].item()
            if border is None:
                self.assertTrue(numpy.isnan(row[0]) and row[1] > 0 and row[5:] == (offlinetz.NO_ZONE, 0) or metres[i] < 50)
            else:
                self.assertEqual(row, (*border[:5], self.db.zone_id(border.zones[0]), len(border.zones)))
            part = slice(offsets[i], offsets[i + 1])
            zones = self.db.zones_within(*point, metres[i])
            self.assertEqual([*zones], [self.db.names[id] for id in values[part]])
            self.assertEqual([*zones.values()], distances[part].tolist())
            own = self.db.zones(*point)
            self.assertEqual(sorted([*zones][: len(own)]), sorted(own))
            if border and border.metres < metres[i] - 0.001:
                self.assertLessEqual({*border.zones}, {*zones})
        self.assertGreater(found, 200)

    def test_arrays_of_every_kind(self):
        lats, lons = random_points(150_000)  # More than two blocks.
        table = numpy.stack([lats, lons, lons], axis=1)
        packed = numpy.zeros(lats.size, "u1, f8")  # Its doubles are not aligned.
        packed["f1"] = lats
        for kind, x, y in [
            ("columns", table[:, 0], table[:, 1]), ("backwards", lats[::-1], table[::-1, 1]), ("unaligned", packed["f1"], lons),
            ("swapped", lats.astype(">f8"), lons), ("float32", lats.astype("f4"), lons), ("int16", lats.astype("i2"), lons),
            ("long double", lats.astype("g"), lons), ("planes", lats.reshape(3, 500, 100)[:, ::-1], lons.reshape(3, 500, 100)),
            ("Fortran order", lats.reshape(500, 300, order="F"), lons.reshape(500, 300)), ("one", lats[:1].reshape(()), 1),
            ("constant", numpy.broadcast_to(1.5, 9), range(9)), ("lists", [1, 2.5], [3, 4]), ("none", lats[:0], lons[:0]),
        ]:
            plain = [numpy.ravel(array).astype("f8") for array in (x, y)]
            for threads in 1, 2, 100:
                with self.subTest(kind, threads=threads):
                    result = self.db.find(x, y, threads=threads)
                    self.assertEqual((result.shape, result.dtype), (numpy.shape(x), "int32"))
                    numpy.testing.assert_array_equal(result.ravel(), self.db.find(*plain))
                    few = [numpy.asarray(array)[:50] if numpy.ndim(array) else array for array in (x, y)]
                    borders = self.db.find_borders(*few, limit=1000, threads=threads)
                    self.assertEqual(borders.shape, numpy.shape(few[0]))
                    plain_few = [numpy.ravel(array).astype("f8") for array in few]
                    self.assertEqual(borders.tobytes(), self.db.find_borders(*plain_few, limit=1000).tobytes())
                    for result, expected in zip(self.db.find_all(x, y, threads=threads), self.db.find_all(*plain)):
                        numpy.testing.assert_array_equal(result, expected)

    def test_arrays_are_not_copied(self):
        points = random_points(500_000)
        for (lats, lons), blocks in (points, 0), (points.astype("f4"), 2 * 65536 * 8):
            tracemalloc.start()
            result = self.db.find(lats, lons)
            peak = tracemalloc.get_traced_memory()[1]
            tracemalloc.stop()
            self.assertLess(peak, result.nbytes + blocks + 20_000)

    def test_points_without_a_zone(self):
        land = offlinetz.Database(nautical=False)
        self.assertEqual((land.zone(*ATLANTIC), land.zones(*ATLANTIC)), (None, []))
        ids = land.find([30, 90.001, 1, 48.8566], [-40, 0, float("nan"), 2.3522])
        self.assertEqual(ids.tolist()[:3], [offlinetz.NO_ZONE, offlinetz.INVALID_POINT, offlinetz.INVALID_POINT])
        self.assertEqual(numpy.array([*land.names, None, None])[ids].tolist(), [None, None, None, "Europe/Paris"])
        self.assertEqual([array.tolist() for array in land.find_all([30, 91], [-40, 0])], [[0, 1, 2], [-2, -1]])
        self.assertIsNone(self.db.nearest_border(*ATLANTIC, limit=1000))
        self.assertEqual(land.nearest_border(36.9, -8.9).zones, ())
        borders = land.find_borders([30, 90.001], [-40, 0], limit=1000)
        self.assertEqual((borders["zone"].tolist(), borders["holds"].round().tolist()), ([-2, -1], [970, 0]))
        offsets, ids, metres = land.find_within([30, 90.001], [-40, 0], 1000)
        self.assertEqual((offsets.tolist(), ids.tolist(), numpy.isnan(metres).all()), ([0, 1, 2], [-2, -1], True))
        self.assertEqual(self.db.zone_id("Etc/GMT-12"), len(self.db.names) - 1)

    def test_local_time(self):
        noon = datetime.datetime(2026, 7, 1, 12, tzinfo=datetime.timezone.utc)
        for point, expected in (PARIS, "2026-07-01 14:00:00+02:00 CEST"), (ATLANTIC, "2026-07-01 09:00:00-03:00 -03"):
            local = self.db.local_time(*point, noon)
            self.assertEqual((f"{local} {local.tzname()}", local), (expected, noon))
        self.assertLess(abs(self.db.local_time(*PARIS) - datetime.datetime.now(datetime.timezone.utc)).total_seconds(), 60)
        self.assertIsNone(offlinetz.Database(nautical=False).local_time(*ATLANTIC, noon))
        with self.assertRaisesRegex(ValueError, "has no offset from UTC"):
            self.db.local_time(*PARIS, noon.replace(tzinfo=None))

    def test_errors(self):
        self.file.write_bytes(b"PLB\0" + WORLD.read_bytes()[4:])
        whole = offlinetz.Database(self.file, verify=False)
        for error, message, call, *arguments in [
            (ValueError, "the latitude 90.5 is not within -90 to 90", self.db.zone, 90.5, 0),
            (ValueError, "the longitude nan is not within -180 to 180", self.db.zones, 0, float("nan")),
            (ValueError, "the latitude -inf is not", self.db.nearest_border, -float("inf"), 0),
            (ValueError, "the longitude 181.0 is not", self.db.zones_within, 0, 181, 5),
            (TypeError, "incompatible function arguments", self.db.zone, "1", 2),
            (ValueError, r"differ in shape: \(2,\) and \(1, 2\)", self.db.find, [1, 2], [[1, 2]]),
            (TypeError, "lons has no real numbers but the type object", self.db.find, [1], [None]),
            (ValueError, r"lats and metres differ in shape: \(1,\) and \(2,\)", self.db.find_within, [1], [1], [5, 6]),
            (TypeError, "lats has no real numbers but the type complex128", self.db.find_all, [1j], [1]),
            (ValueError, "threads is less than 1", lambda: self.db.find([1], [1], threads=0)),
            (KeyError, "Nowhere", self.db.zone_id, "Nowhere"), (KeyError, "Paris", self.db.zone_id, "Europe/Paris\0"),
            (ValueError, "a.bin: is not tiled", whole.nearest_border, 1, 2), (ValueError, "is not tiled", whole.find_within, [1], [2], 3),
        ]:
            with self.subTest(message), self.assertRaisesRegex(error, message):
                call(*arguments)

    def test_files_that_cannot_be_opened(self):
        world = WORLD.read_bytes()
        for content, message in [(b"", "is empty"), (b"text", "is not a zone database"), (world[:-30], "is cut short"),
                                 (world[:-1] + b"x", "is damaged: the digest"), (b"PLB" + bytes(60), "is damaged")]:
            self.file.write_bytes(content)
            for mapped in False, True:
                with self.subTest(message), self.assertRaisesRegex(ValueError, re.escape(f"{self.file}: {message}")):
                    offlinetz.Database(self.file, mapped=mapped)
        for path, error in (self.directory / "none", FileNotFoundError), (self.directory, IsADirectoryError):
            with self.assertRaisesRegex(error, re.escape(str(path))) as caught:
                offlinetz.Database(os.fsencode(path))
            self.assertEqual(caught.exception.filename, str(path))
        with self.assertRaises(TypeError):
            offlinetz.Database(5)
        os.truncate(self.file, 2**30)
        self.assertIn("a.bin: ", run_python(sys.executable, "-c", (
            "import offlinetz, resource, sys; resource.setrlimit(resource.RLIMIT_AS, (2**29, 2**29))\n"
            "try: offlinetz.Database(sys.argv[1])\nexcept MemoryError as error: print(error)"), self.file))

    def test_closed_database(self):
        with offlinetz.Database(WORLD, mapped=True) as db:
            self.assertEqual(db.zone(*PARIS), "Europe/Paris")
            self.assertIn(str(WORLD), pathlib.Path("/proc/self/maps").read_text())
        hints = ast.parse((PACKAGE / "__init__.pyi").read_text()).body[-1].body
        members = {hint.name for hint in hints if not hint.name.startswith("_")}
        self.assertEqual(members, {name for name in dir(db) if not name.startswith("_")})
        arguments = {"zone_id": ["Europe/Paris"], "__getstate__": [], **dict.fromkeys(
            ["zone", "zones", "local_time", "nearest_border", "find", "find_all", "find_borders"], PARIS),
            **dict.fromkeys(["zones_within", "find_within"], [*PARIS, 5])}
        for name in (members | {"__getstate__"}) - {"path", "close"}:
            with self.subTest(name), self.assertRaisesRegex(ValueError, "the database is closed"):
                getattr(db, name)(*arguments.get(name, []))

    def test_other_threads_run_and_may_close(self):
        lats, lons = random_points(1_000_000)
        db, results = offlinetz.Database(), []
        worker = threading.Thread(target=lambda: results.append(db.find(lats, lons)))
        worker.start()
        pauses = 0
        while worker.is_alive():
            time.sleep(0.001)
            pauses += 1
            if pauses == 3:
                db.close()
        self.assertRaises(ValueError, db.zone, *PARIS)
        self.assertGreater(pauses, 10)
        numpy.testing.assert_array_equal(results[0], self.db.find(lats, lons))

    def test_a_signal_ends_the_work(self):
        def interrupt(*_):
            raise InterruptedError
        self.addCleanup(signal.signal, signal.SIGALRM, signal.signal(signal.SIGALRM, interrupt))
        nowhere = numpy.broadcast_to(numpy.nan, 2 * 10**8)  # Takes more than a second.
        start = time.monotonic()
        signal.setitimer(signal.ITIMER_REAL, 0.02)
        with self.assertRaises(InterruptedError):
            self.db.find(nowhere, nowhere)
        self.assertLess(time.monotonic() - start, 0.5)

    def test_pickling(self):
        with multiprocessing.get_context("spawn").Pool(1) as pool:
            self.assertEqual(pool.apply(self.db.zone, PARIS), "Europe/Paris")
        self.file.write_bytes(WORLD.read_bytes()[:-1] + b"x")
        with contextlib.chdir(self.directory):
            stored = pickle.dumps(offlinetz.Database("a.bin", verify=False, mapped=True, nautical=False))
        copy = pickle.loads(stored)
        self.assertEqual((copy.path, copy.zone(*ATLANTIC)), (str(self.file), None))

    def test_numpy_is_imported_for_arrays_only(self):
        run_python(sys.executable, "-c", "import offlinetz, sys; db = offlinetz.Database(); db.zone(1, 2); "
                   "db.zones(1, 2); db.nearest_border(1, 2); db.zones_within(1, 2, 3); assert 'numpy' not in sys.modules")

    def test_wheel(self):
        make_wheel = ROOT / "library/python/make-wheel"
        wheel = run_python(sys.executable, make_wheel, PACKAGE, offlinetz.__version__, self.directory).strip()
        run_python(sys.executable, "-m", "venv", "--without-pip", self.directory / "venv")
        [packages] = self.directory.glob("venv/lib/python*/site-packages")
        with zipfile.ZipFile(wheel) as archive:
            archive.extractall(packages)
        script = f"import offlinetz; db = offlinetz.Database(); print(db.path, db.zone{PARIS})"
        output = run_python(self.directory / "venv/bin/python", "-I", "-c", script)
        self.assertEqual(output, f"{packages / 'offlinetz/world.bin'} Europe/Paris\n")
        metadata = (packages / f"offlinetz-{offlinetz.__version__}.dist-info/METADATA").read_text()
        self.assertRegex(metadata, "(?s)Apache-2.0.*ODbL-1.0.*OpenStreetMap contributors")

    def test_examples(self):
        for text in (ROOT / "docs/library.md").read_text().replace("```", "\n"), offlinetz.__doc__:
            test = doctest.DocTestParser().get_doctest(text, {}, "examples", None, 0)
            self.assertGreater(len(test.examples), 1)
            self.assertEqual(doctest.DocTestRunner().run(test).failed, 0)

    @unittest.skipUnless(importlib.util.find_spec("distributed"), "Dask is not installed")
    def test_analysis(self):
        [script] = re.findall(r"```python\n(.*?)```", (ROOT / "docs/analysis.md").read_text(), re.DOTALL)
        file = self.directory / "analysis.py"
        file.write_text(script.replace("20_000_000", "200_000").replace("500_000", "50_000"))
        output = io.StringIO()
        with contextlib.redirect_stdout(output):
            ran = runpy.run_path(str(file), run_name="__main__")
        points = [ran[name].compute(scheduler="synchronous") for name in ("lats", "lons")]
        self.assertEqual(points[0].size, 200_000)
        counts = numpy.bincount(self.db.find(*points), minlength=len(self.db.names))
        numpy.testing.assert_array_equal(ran["counts"], counts)
        self.assertIn(f"{counts.max()} {self.db.names[counts.argmax()]}\n", output.getvalue())


if __name__ == "__main__":
    unittest.main()
