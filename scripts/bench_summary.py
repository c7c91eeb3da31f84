#!/usr/bin/env python3
"""Prints one table of every benchmark that has a peer: the library's time, the peer's time on the
same input, and their ratio (above 1 means the library is slower).

Usage: bench_summary.py BENCH_DIR [BENCHMARK ...]

Runs each benchmark program of BENCH_DIR (or the ones named) with JSON output, REPETITIONS times
(the medians are compared), and pairs the results by the table below. A row whose peer was not built (an optional peer package missing) is
left out. The table is Markdown, so it can be pasted into the README as it stands.
"""
import json
import os
import platform
import re
import subprocess
import sys

# (library benchmark, peer benchmark, peer's name). The library pattern's named groups fill the
# peer's name, so each row compares the same input.
PAIRS = [
    (r"BM_KivChunkedDecode/(?P<n>\d+)", "BM_LlhttpChunkedDecode/{n}", "llhttp"),
    (r"BM_KivStrictChunkedDecode/(?P<n>\d+)", "BM_LlhttpChunkedDecode/{n}", "llhttp"),
    (r"Utf8ToUtf16/kiv/(?P<s>.+)", "Utf8ToUtf16/icu/{s}", "ICU"),
    (r"Utf16ToUtf8/kiv/(?P<s>.+)", "Utf16ToUtf8/icu/{s}", "ICU"),
    (r"Utf8ToUtf16/kiv/(?P<s>Latin.+)", "Utf8ToUtf16/memcpy/{s}", "memcpy"),
    (r"Utf16ToUtf8/kiv/(?P<s>Latin.+)", "Utf16ToUtf8/memcpy/{s}", "memcpy"),
    (r"AsciiToUtf16/kiv/(?P<s>.+)", "AsciiToUtf16/iconv-latin1/{s}", "iconv"),
    (r"BM_Kiv(?P<op>\w+)/(?P<n>\d+)", "BM_Map{op}<&Fixture::map>/{n}", "std::unordered_map"),
    (r"BM_Kiv(?P<op>\w+)/(?P<n>\d+)", "BM_Map{op}<&Fixture::amap>/{n}", "absl::flat_hash_map"),
    (r"BM_KivPathGet", "BM_StdPathGet", "std::unordered_map"),
    (r"BM_Kiv(?P<op>(List|Vector)\w+)/(?P<n>\d+)", "BM_Std{op}/{n}", "std::list/vector"),
    (r"BM_KivDateString", "BM_StdGmtimeStrftime", "gmtime+strftime"),
    (r"BM_ObjectLockLockUnlock", "BM_RecursiveMutexLockUnlock", "std::recursive_mutex"),
    (r"BM_RefCopyDrop", "BM_SharedPtrCopyDrop", "std::shared_ptr"),
    (r"BM_RefAssign", "BM_SharedPtrAssign", "std::shared_ptr"),
    (r"BM_(?P<b>Pairs|Handoff|Stream)<Kiv(?P<q>\w+)>(?P<rest>.*)",
     "BM_{b}<Moodycamel>{rest}", "moodycamel"),
    (r"BM_KivCompare/(?P<n>\d+)", "BM_StdCompare/{n}", "std::u16string"),
    (r"BM_KivIndexOf/(?P<n>\d+)", "BM_StdFind/{n}", "std::u16string"),
    (r"BM_KivConcat/(?P<n>\d+)", "BM_StdConcat/{n}", "std::u16string"),
]


# Each benchmark runs this many times and the table shows the median run: on a shared machine a
# single run moves by 10% or more. KIV_BENCH_REPETITIONS=1 gives the quicker single-run table.
REPETITIONS = max(1, int(os.environ.get("KIV_BENCH_REPETITIONS", "3")))


def run(program):
    command = [program, "--benchmark_format=json"]
    if REPETITIONS > 1:
        command += [f"--benchmark_repetitions={REPETITIONS}",
                    "--benchmark_report_aggregates_only=true"]
    out = subprocess.run(command, check=True, stdout=subprocess.PIPE,
                         stderr=subprocess.DEVNULL, text=True).stdout
    results = {}
    for b in json.loads(out)["benchmarks"]:
        if REPETITIONS == 1 and b.get("run_type", "iteration") == "iteration":
            results[b["name"]] = b
        elif REPETITIONS > 1 and b.get("aggregate_name") == "median":
            results[b["run_name"]] = dict(b, name=b["run_name"])
    return results


def nanoseconds(result):
    # Threaded benchmarks are timed by the clock on the wall; the others by the CPU time of their
    # thread, which a busy machine disturbs less.
    scale = {"ns": 1, "us": 1e3, "ms": 1e6, "s": 1e9}[result.get("time_unit", "ns")]
    field = "real_time" if "/real_time" in result["name"] else "cpu_time"
    return result[field] * scale


def rows(results):
    for name, result in results.items():
        for pattern, peer_form, peer_label in PAIRS:
            match = re.fullmatch(pattern, name)
            if not match:
                continue
            peer = results.get(peer_form.format(**match.groupdict()))
            if peer is None:
                continue
            mine, theirs = nanoseconds(result), nanoseconds(peer)
            yield name, peer_label, mine, theirs, mine / theirs


def main():
    if len(sys.argv) < 2:
        sys.exit(__doc__)
    directory, names = sys.argv[1], sys.argv[2:]
    if not names:
        names = sorted(f for f in os.listdir(directory) if f.endswith("_bench"))
    print(f"Machine: {platform.machine()}, {os.cpu_count()} CPUs, "
          f"{platform.system()} {platform.release()}; medians of {REPETITIONS} runs\n")
    print("| benchmark | peer | library ns | peer ns | ratio |")
    print("|---|---|---:|---:|---:|")
    for program in names:
        for name, peer, mine, theirs, ratio in rows(run(os.path.join(directory, program))):
            print(f"| {program[:-6]}: `{name}` | {peer} | {mine:.1f} | {theirs:.1f} | {ratio:.2f} |")


if __name__ == "__main__":
    main()
