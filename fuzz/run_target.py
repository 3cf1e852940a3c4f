"""Runs one fuzz target for a while on its corpus, and tells how many inputs it has executed.

Run as run_target.py <executable> <directory> [keep]. The target's inputs in fuzz/corpus are copied to
<directory>/corpus/<target>, which grows; with keep it also holds what earlier runs have found. It runs for TABULO_FUZZ_SECONDS
from the environment, or else for 20 seconds, times TABULO_TEST_EFFORT. Any crash, broken check, hang, leak, or memory beyond the
limits fails the run and leaves its input in <directory>/crashes/<target>.
"""

import os
import re
import shutil
import subprocess
import sys

# The largest input that is tried. Two blocks with their footers fit into a table file of this size.
LONGEST = {"message_table": 6000, "public_api": 6000, "session_info": 500, "frame": 4096, "block_footer": 2000,
           "query_conditions": 600, "operations": 1500, "side_index": 2000, "request_words": 300}
# An input takes about a millisecond and makes files of a few pages: what takes seconds or megabytes has believed a length.
LIMITS = ["-timeout=10", "-rss_limit_mb=1024", "-malloc_limit_mb=64"]
SECONDS = 20

_HERE = os.path.dirname(os.path.abspath(__file__))
_EXECUTED = re.compile(r"^stat::number_of_executed_units:\s*(\d+)", re.MULTILINE)


def seconds_to_run():
    given = os.environ.get("TABULO_FUZZ_SECONDS")
    return int(given) if given else SECONDS * int(os.environ.get("TABULO_TEST_EFFORT") or 1)


def command(executable, corpus, crashes):
    """The target's command line. TABULO_TEST_SEED from the environment repeats a run, as far as its time reaches."""
    line = [executable, f"-max_len={LONGEST[os.path.basename(executable)]}", "-entropic=0", *LIMITS,
            f"-max_total_time={seconds_to_run()}", "-print_final_stats=1", f"-artifact_prefix={crashes}{os.sep}"]
    if os.environ.get("TABULO_TEST_SEED"):
        line.append(f"-seed={os.environ['TABULO_TEST_SEED']}")
    return line + [corpus]


def run(line, directory):
    """The exit code and the output of a run in a directory of its own."""
    environment = {"ASAN_OPTIONS": "malloc_context_size=8:quarantine_size_mb=64", "UBSAN_OPTIONS": "print_stacktrace=1",
                   **os.environ}
    done = subprocess.run(line, cwd=directory, env=environment, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                          stderr=subprocess.STDOUT, text=True, errors="replace", check=False)
    return done.returncode, done.stdout


def main(executable, directory, keep):
    target = os.path.basename(executable)
    corpus = os.path.join(os.path.abspath(directory), "corpus", target)
    crashes = os.path.join(os.path.abspath(directory), "crashes", target)
    seeds = os.path.join(_HERE, "corpus", target)
    if not os.path.isdir(seeds):
        sys.exit(f"The target {target} has no corpus: {seeds} is missing.")
    if not keep:
        shutil.rmtree(corpus, ignore_errors=True)
        shutil.rmtree(crashes, ignore_errors=True)
    shutil.copytree(seeds, corpus, dirs_exist_ok=True)
    os.makedirs(crashes, exist_ok=True)
    before = set(os.listdir(crashes))
    code, output = run(command(executable, corpus, crashes), crashes)
    found = sorted(set(os.listdir(crashes)) - before)
    executed = _EXECUTED.search(output)
    print("\n".join(output.splitlines()[-60:]))
    if code != 0 or found or not executed or int(executed.group(1)) == 0:
        print(f"\nThe target {target} failed with exit code {code}.")
        for name in found:
            path = os.path.join(crashes, name)
            print(f"The input is {path}\nTo see it again: {executable} {path}")
        return 1
    print(f"figure: fuzzing: executions of {target}: {executed.group(1)}")
    print("figure: fuzzing: crashes: 0")
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1], sys.argv[2], sys.argv[3:] == ["keep"]))
