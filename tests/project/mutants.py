"""Plants small faults in a copy of src/, one at a time, runs the native tests, and lists those that no test has noticed.

    mutants.py N [SEED]            N faults, drawn by a seed that is printed and draws the same ones again
    mutants.py --only FILE[:LINE]  every fault of a file or a line; can be given several times
    mutants.py --faults LIST       the faults that a file lists, in the form that faults.py tells

What no test can notice because it changes nothing is recorded, with the reason, in mutants_that_change_nothing.txt: when
such a fault is drawn it counts without being planted; with --only or --faults it is planted. What does not compile, or
compiles to the same code as before, is no fault: another one is drawn.

Standard output gets each fault that is found to be unnoticed, in the form in which it can be recorded, and a summary;
progress goes to standard error. The exit status is 0 when nothing is unnoticed but what is recorded, 1 when something is,
2 when the run could not be made.
"""

import argparse
import os
import random
import signal
import sys

import fault_run
import fault_tests
import faults
import source_tree

ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
RECORDS = os.path.join("tests", "project", "mutants_that_change_nothing.txt")


def read_sources(root):
    """{path: text} of the files that faults are planted in."""
    found = {}
    for path in source_tree.files(root, source_tree.CPP_SUFFIXES):
        if path.startswith("src/"):
            with open(os.path.join(root, path), encoding="utf-8") as file:
                found[path] = file.read()
    return found


def read_faults(path):
    """The faults that a file lists."""
    with open(path, encoding="utf-8") as file:
        return faults.parse(file.read(), path)


def draw(sources, seed):
    """One fault of each place, in the order in which a seed draws them."""
    chance = random.Random(seed)
    drawn = []
    for path in sorted(sources):
        for place in faults.places(path, sources[path]):
            drawn.append((chance.random() ** (1 / faults.weight(path)), chance.choice(place)))
    drawn.sort(key=lambda entry: entry[0], reverse=True)
    return [fault for _, fault in drawn]


def all_at(sources, where):
    """Every fault of a "FILE" or a "FILE:LINE". ValueError when there is none."""
    path, _, line = where.partition(":")
    if path not in sources:
        raise ValueError(f"{path} is no file of C++ below src/.")
    found = [fault for place in faults.places(path, sources[path]) for fault in place
             if not line or fault.line <= int(line) <= fault.last_line]
    if not found:
        raise ValueError(f"No fault is known for {where}.")
    return found


def listed(sources, path):
    """The faults of a list, all of which must have their place in the sources: ValueError for one that has not."""
    found = []
    for written in read_faults(path):
        fault = faults.locate(written, sources)
        if fault is None:
            raise ValueError(f"{path}: this is not in the source:\n{faults.text_of(written.key, written.line)}")
        found.append(fault)
    return found


def parse_arguments(arguments):
    parser = argparse.ArgumentParser(prog="check mutants", description="Plants small faults and lists those that no test notices.")
    parser.add_argument("count", type=int, nargs="?", metavar="N", help="how many faults to plant")
    parser.add_argument("seed", type=int, nargs="?", help="draws the same faults again")
    parser.add_argument("--only", action="append", default=[], metavar="FILE[:LINE]", help="every fault of this place")
    parser.add_argument("--faults", metavar="LIST", help="the faults that this file lists")
    parser.add_argument("--jobs", type=int, default=os.cpu_count() or 1, help="how many are at work side by side")
    parsed = parser.parse_args(arguments)
    if (parsed.count is not None) == bool(parsed.only or parsed.faults):
        parser.error("give either a number of faults, or --only and --faults")
    return parsed


def main():
    arguments = parse_arguments(sys.argv[1:])
    seed = random.SystemRandom().randrange(1, 1 << 31) if arguments.seed is None else arguments.seed
    sources = read_sources(ROOT)
    records = read_faults(os.path.join(ROOT, RECORDS))
    try:
        if arguments.count is not None:
            print(f"seed {seed}", flush=True)
            chosen = draw(sources, seed)
        else:
            chosen = [fault for where in arguments.only for fault in all_at(sources, where)]
            chosen += listed(sources, arguments.faults) if arguments.faults else []
    except (OSError, ValueError) as error:
        print(error, file=sys.stderr)
        return 2
    for written in records:
        if faults.locate(written, sources) is None:
            print(f"recorded, but not in the source any more:\n{faults.text_of(written.key)}\n")

    processes = fault_tests.Processes()
    signal.signal(signal.SIGTERM, signal.default_int_handler)
    try:
        run = fault_run.Run(ROOT, processes, arguments.jobs, sources, seed, {written.key for written in records})
        run.plant(chosen, arguments.count)
    except KeyboardInterrupt:
        print("stopped", file=sys.stderr)
        return 2
    except (fault_tests.BuildError, fault_tests.CleanRunFailed) as error:
        print(error, file=sys.stderr)
        return 2
    finally:
        processes.stop()
    print(run.summary())
    return 1 if run.unnoticed else 0


if __name__ == "__main__":
    sys.exit(main())
