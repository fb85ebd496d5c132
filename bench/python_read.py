#!/usr/bin/env python3
"""quillhaven.read from Python over the corpus, on one thread and on several,
against the command's `read` over the same files in one process, and against
Python's email parser for .eml files.

Usage: bench/python_read.py [--cli build/quillhaven] [--rounds 10] [--threads 2]
       (the package: PYTHONPATH=build/python, else the build tree is used;
        corpus: $QH_CORPUS or ../shared/corpus)

Each list of files is read ROUNDS times. Wall-clock and CPU seconds are both
reported: on a busy machine CPU seconds are the steadier figure.
"""
import argparse
import concurrent.futures
import email
import os
import resource
import subprocess
import sys
import tempfile
import time
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent
try:
    import quillhaven.bulk
except ImportError:
    sys.path.insert(0, str(ROOT / "build" / "python"))
    import quillhaven.bulk


def corpus_files(corpus: Path, kinds):
    found = []
    for kind in kinds:
        folder = corpus / kind
        if folder.is_dir():
            found += sorted(str(p) for p in folder.iterdir() if p.is_file() and ".expected" not in p.name)
    return found


def timed(work):
    """(wall seconds, CPU seconds of this process) of work()."""
    wall, cpu = time.perf_counter(), time.process_time()
    work()
    return time.perf_counter() - wall, time.process_time() - cpu


def children_cpu():
    usage = resource.getrusage(resource.RUSAGE_CHILDREN)
    return usage.ru_utime + usage.ru_stime


def read_all(files, rounds):
    for _ in range(rounds):
        for name in files:
            quillhaven.read(name)


def read_threads(files, rounds, threads):
    with concurrent.futures.ThreadPoolExecutor(max_workers=threads) as pool:
        for _ in pool.map(quillhaven.read, files * rounds):
            pass


def command_read(cli, files, rounds):
    """(wall, CPU) of `quillhaven read -j 1` over the list ROUNDS times, in one process."""
    before, start = children_cpu(), time.perf_counter()
    subprocess.run([cli, "read", "-j", "1", *(files * rounds)], stdout=subprocess.DEVNULL, check=False)
    return time.perf_counter() - start, children_cpu() - before


def email_parse(files, rounds):
    for _ in range(rounds):
        for name in files:
            with open(name, "rb") as stream:
                message = email.message_from_binary_file(stream)
            for part in message.walk():
                part.get_payload(decode=True)


def per_file_ms(seconds, count):
    return 1000.0 * seconds / count


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--cli", default=str(ROOT / "build" / "quillhaven"))
    parser.add_argument("--corpus", default=os.environ.get("QH_CORPUS", str(ROOT.parent / "shared" / "corpus")))
    parser.add_argument("--rounds", type=int, default=10)
    parser.add_argument("--threads", type=int, default=2)
    arguments = parser.parse_args()
    corpus = Path(arguments.corpus)
    # As the command does for several files, and quillhaven.bulk for its batches.
    quillhaven.bulk.keep_large_buffers_on_heap()
    rounds = arguments.rounds
    print(f"load average {os.getloadavg()[0]:.2f} {os.getloadavg()[1]:.2f} {os.getloadavg()[2]:.2f}, "
          f"{os.cpu_count()} cores, rounds {rounds}")

    everything = corpus_files(corpus, ("msg", "eml", "tnef"))
    if not everything:
        sys.exit(f"no corpus at {corpus}")
    count = len(everything) * rounds
    size = sum(os.path.getsize(name) for name in everything) * rounds / 1e6
    print(f"\ncorpus: {len(everything)} files, {size / rounds:.2f} MB")
    one_wall, one_cpu = timed(lambda: read_all(everything, rounds))
    many_wall, many_cpu = timed(lambda: read_threads(everything, rounds, arguments.threads))
    cli_wall, cli_cpu = command_read(arguments.cli, everything, rounds)
    print(f"  {'':34} {'wall s':>8} {'CPU s':>8} {'ms/file':>8} {'MB/s':>8}")
    for label, wall, cpu in (
        ("quillhaven.read, 1 thread", one_wall, one_cpu),
        (f"quillhaven.read, {arguments.threads} threads", many_wall, many_cpu),
        ("quillhaven read -j 1 (command)", cli_wall, cli_cpu),
    ):
        print(f"  {label:34} {wall:8.3f} {cpu:8.3f} {per_file_ms(cpu, count):8.3f} {size / wall:8.1f}")
    print(f"  Python per file / command per file (CPU): {one_cpu / cli_cpu:.2f}")
    print(f"  {arguments.threads} threads speed-up (wall): {one_wall / many_wall:.2f}x")

    with tempfile.TemporaryDirectory() as work:
        converted = []
        for name in corpus_files(corpus, ("msg",)):
            text = quillhaven.convert(name)
            if text is not None:
                target = Path(work) / (Path(name).stem + ".eml")
                target.write_bytes(text)
                converted.append(str(target))
        for label, files in (("corpus .eml", corpus_files(corpus, ("eml",))),
                             (".eml converted from the corpus .msg", converted)):
            if not files:
                continue
            ours_wall, ours_cpu = timed(lambda: read_all(files, rounds))
            theirs_wall, theirs_cpu = timed(lambda: email_parse(files, rounds))
            megabytes = sum(os.path.getsize(name) for name in files) * rounds / 1e6
            print(f"\n{label}: {len(files)} files, {megabytes / rounds:.2f} MB")
            print(f"  quillhaven.read          {ours_wall:8.3f} s wall {ours_cpu:8.3f} s CPU {megabytes / ours_cpu:8.1f} MB/s")
            print(f"  email (walk + decode)    {theirs_wall:8.3f} s wall {theirs_cpu:8.3f} s CPU {megabytes / theirs_cpu:8.1f} MB/s")
            print(f"  quillhaven.read is {theirs_cpu / ours_cpu:.1f}x faster (CPU)")


if __name__ == "__main__":
    main()
