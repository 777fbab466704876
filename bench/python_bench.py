"""Measures the Python module beside the C library: minima over rounds, in which both take turns.

    cmake --build build/release --target python_module python_probe
    PYTHONPATH=build/release/library/python:build/release/bench /usr/bin/python3 bench/python_bench.py
"""
import collections
import subprocess
import sys
import time

import numpy
import offlinetz
import python_probe

POINTS = 1_000_000
SINGLE_POINTS = 200_000
ROUNDS = 15
START = """import time; start = time.perf_counter(); import offlinetz
offlinetz.Database().zone(48.8566, 2.3522); print(time.perf_counter() - start)"""

db = offlinetz.Database()
empty = python_probe.Empty()


def point_sets():
    random = numpy.random.default_rng(1)
    lats = numpy.degrees(numpy.arcsin(random.uniform(-1, 1, 4 * POINTS)))
    lons = random.uniform(-180, 180, 4 * POINTS)
    yield "sphere", lats[:POINTS], lons[:POINTS]
    on_land = numpy.flatnonzero(db.find(lats, lons) < len(db.names) - 25)[:POINTS]
    lats, lons = lats[on_land], lons[on_land]
    yield "land", lats, lons
    order = numpy.lexsort((lons, numpy.floor(lats)))
    yield "land, in the order of places", lats[order], lons[order]


def seconds(function, *arguments, **options):
    start = time.perf_counter()
    function(*arguments, **options)
    return time.perf_counter() - start


def call_each(function, lats, lons):
    collections.deque(map(function, lats, lons), maxlen=0)


def main():
    starts = [float(subprocess.run([sys.executable, "-c", START], capture_output=True).stdout) for _ in range(ROUNDS)]
    print(f"import, open with verification, first zone(): {1e3 * min(starts):.1f} ms at least, "
          f"{1e3 * numpy.median(starts):.1f} ms median\n")
    print("| ns a point | offlinetz_find_many | find | threads=2 | float32 | find_all | offlinetz_find | empty call "
          "| zone |\n|---|--:|--:|--:|--:|--:|--:|--:|--:|")
    for name, lats, lons in point_sets():
        some = slice(0, SINGLE_POINTS)
        lists = lats[some].tolist(), lons[some].tolist()
        floats = lats.astype("f4"), lons.astype("f4")
        times = []
        for _ in range(ROUNDS):
            times.append([
                python_probe.time_in_c(db.path, lats, lons)[1] / lats.size,
                seconds(db.find, lats, lons) / lats.size, seconds(db.find, lats, lons, threads=2) / lats.size,
                seconds(db.find, *floats) / lats.size, seconds(db.find_all, lats, lons) / lats.size,
                python_probe.time_in_c(db.path, lats[some], lons[some])[0] / SINGLE_POINTS,
                seconds(call_each, empty.zone, *lists) / SINGLE_POINTS,
                seconds(call_each, db.zone, *lists) / SINGLE_POINTS])
        many, find, two, float32, find_all, one, call, zone = 1e9 * numpy.min(times, axis=0)
        print(f"| {name} | {many:.1f} | {find:.1f} ({find / many:.2f}) | {two:.1f} ({two / find:.2f} of find) "
              f"| {float32:.1f} | {find_all:.1f} | {one:.1f} | {call:.1f} | {zone:.1f} ({zone / (one + call):.2f}) |")


main()
