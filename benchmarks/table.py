#!/usr/bin/env python3
"""One table from the JSON of several Google Benchmark programs: medians of interleaved repetitions.

    benchmarks/table.py FILE.json...

Each row is one operation: our own time, then how many times as long each other way takes. Whole frames have a table of
their own.
"""
import json
import re
import sys

OURS = ["corvane", "avx2", "forward", "Corvane", "QueryWithCorvane", "SplitByChar", "portable"]
# In the order of the table.
NICKNAMES = {"opencv": "OpenCV", "libyuv": "libyuv", "onednn": "oneDNN", "swscale": "swscale",
             "pixman": "pixman", "SimpleIni": "SimpleIni", "QueryWithSimpleIni": "SimpleIni",
             "SplitByStream": "string stream", "SplitByOffsets": "copies alone", "kernel": "kernel",
             "memset_only": "memset", "write_only": "memset", "fill_only": "fill", "portable": "plain"}


def operation_and_way(name):
    """'warp/640x480/opencv' -> ('warp/640x480', 'opencv'); 'Save<Corvane>/5' -> ('Save/5', 'Corvane')."""
    template = re.fullmatch(r"(\w+)<(\w+)>(.*)", name)
    if template:
        return template[1] + template[3], template[2]
    split = re.fullmatch(r"(SplitBy\w+)/(.*)", name)
    if split:
        return "Split/" + split[2], split[1]
    operation, way = name.rsplit("/", 1)
    return operation, way


def natural(name):
    return [int(part) if part.isdigit() else part for part in re.split(r"(\d+)", name)]


def duration(nanoseconds):
    for unit in ("ns", "us", "ms"):
        if nanoseconds < 1000:
            return f"{nanoseconds:.3g} {unit}"
        nanoseconds /= 1000
    return f"{nanoseconds:.3g} s"


def print_frames(frames):
    """frames: {network: {number of backends: (frames a second, CPU time for one of them in nanoseconds)}}."""
    print("| network | one backend: frames/s | two taking turns | CPU for a frame, the network apart | of one backend's time |")
    print("|---|---|---|---|---|")
    for network in sorted(frames, key=natural):
        (one, cpu), (two, _) = frames[network]["1"], frames[network]["2"]
        print(f"| {network} | {one:.0f} | {two:.0f}, {two / one:.2f} times | {duration(cpu)} | {cpu * one / 1e7:.1f} % |")


def main(files):
    rows, frames = {}, {}
    factor = {"ns": 1, "us": 1e3, "ms": 1e6, "s": 1e9}
    for file in files:
        for run in json.load(open(file))["benchmarks"]:
            if run.get("aggregate_name") == "median":
                whole = re.match(r"frames/(\w+)/(\d)/", run["run_name"])
                if whole:
                    a_second = run["items_per_second"]
                    cpu = run["cpu_time"] / run["real_time"] / a_second * 1e9
                    frames.setdefault(whole[1], {})[whole[2]] = a_second, cpu
                    continue
                operation, way = operation_and_way(re.sub(r"/iterations:\d+", "", run["run_name"]))
                rows.setdefault(operation, {})[way] = run["cpu_time"] * factor[run["time_unit"]]
    if rows:
        print("| operation | ours | others, as multiples of ours |\n|---|---|---|")
    for operation in sorted(rows, key=natural):
        times = rows[operation]
        ours = next((way for way in OURS if way in times), None)
        if ours is None:
            continue
        others = ", ".join(f"{nickname} {times[way] / times[ours]:.2f}"
                           for way, nickname in NICKNAMES.items() if way in times and way != ours)
        print(f"| {operation} | {duration(times[ours])} | {others} |")
    if frames:
        print_frames(frames)


main(sys.argv[1:])
