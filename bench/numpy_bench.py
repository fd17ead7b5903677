#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""What an analyst's NumPy needs for the same conversion: frombuffer + astype of big-endian items.

Prints one JSON object a line, as the C++ benchmarks write them with --results: usage: numpy_bench.py >> FILE
"""
import json
import statistics
import time

import numpy

rounds = 9
for bits in (16, 32):
    for count in (32, 700, 1601, 16_000, 1_000_000):
        wire = numpy.arange(count, dtype=f">i{bits // 8}").tobytes()
        calls = max(3, 2_000_000 // max(count, 200))
        samples = []
        for _ in range(rounds):
            begin = time.perf_counter_ns()
            for _ in range(calls):
                items = numpy.frombuffer(wire, dtype=f">i{bits // 8}").astype(f"=i{bits // 8}")
            samples.append((time.perf_counter_ns() - begin) / calls)
        assert items[1] == 1 and items[31] == 31, "items in host order"
        quartiles = statistics.quantiles(samples, n=4)
        median = statistics.median(samples)
        print(json.dumps({"program": "numpy_bench.py", "name": f"numpy{bits}/{count}", "ns": median, "wall_ns": median,
                          "spread": (quartiles[2] - quartiles[0]) / 2 / median, "bytes": count * bits // 8, "peer": ""}))
