"""Builds a copy of the tree so that the library under its tests can be replaced, and runs the tests against such libraries."""

import hashlib
import json
import os
import re
import selectors
import shlex
import shutil
import signal
import subprocess
import threading
import time

SHARED_OBJECT = "libtabulo_native.so"
# A test may take this many seconds, and as often its own time, before it counts as hanging.
PATIENCE_SECONDS = 10
PATIENCE_TIMES = 10
# Tests that take as many milliseconds at most run before those that take longer.
TIERS = (150, 1500, float("inf"))
_LEFT_OUT = {"build", "__pycache__"}
_VERDICT = re.compile(r"\[ +(RUN|OK|FAILED|SKIPPED) +\] (\S+?)(?:,.*?)?(?: \((\d+) ms\))?$")


class Stopped(Exception):
    """Somebody wants the run to end."""


class BuildError(Exception):
    """Something does not compile or link; the text is the compiler's."""


class CleanRunFailed(Exception):
    """A test fails although no fault is planted."""


class Processes:
    """Starts processes, each the head of a group of its own, and ends all of them when the run is stopped."""

    def __init__(self):
        self._lock = threading.Lock()
        self._running = set()
        self._stopped = False

    def start(self, command, **options):
        with self._lock:
            if self._stopped:
                raise Stopped
            process = subprocess.Popen(command, stdin=subprocess.DEVNULL, start_new_session=True, **options)
            self._running.add(process)
            return process

    def end(self, process):
        """Ends what is left of a process and its group, and gives its exit status."""
        try:
            os.killpg(process.pid, signal.SIGKILL)
        except ProcessLookupError:
            pass
        if process.stdout is not None:
            process.stdout.close()
        status = process.wait()
        with self._lock:
            self._running.discard(process)
        return status

    def stop(self):
        with self._lock:
            self._stopped = True
            for process in self._running:
                try:
                    os.killpg(process.pid, signal.SIGKILL)
                except ProcessLookupError:
                    pass

    def output(self, command, **options):
        """What a command writes; BuildError when it fails."""
        process = self.start(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, errors="replace", **options)
        try:
            text = process.stdout.read()
            process.wait()
        finally:
            status = self.end(process)
        with self._lock:
            if self._stopped:
                raise Stopped
        if status != 0:
            raise BuildError(f"{shlex.join(command)}\n{text}")
        return text


class Test:
    """One test of one program: its name, what it took in milliseconds, and where it stands."""

    def __init__(self, program, name, milliseconds):
        self.program = program
        self.name = name
        self.milliseconds = milliseconds

    @property
    def tier(self):
        return next(number for number, most in enumerate(TIERS) if self.milliseconds <= most)


class Outcome:
    """How a run of some tests of one program ended: the first test that failed, or nothing, and how."""

    def __init__(self, failed=None, how="", times=None):
        self.failed = failed
        self.how = how
        self.times = times or {}


class Place:
    """A directory that one worker runs tests in, with the library that they are to load."""

    def __init__(self, path):
        self.path = path
        self.replaced_in = os.path.join(path, "library")
        os.makedirs(self.replaced_in, exist_ok=True)

    def fresh(self, name):
        """An empty directory in the place."""
        path = os.path.join(self.path, name)
        shutil.rmtree(path, ignore_errors=True)
        os.makedirs(path)
        return path


def copy_tree(root, copy):
    """Makes the copy hold what the root holds; what is the same already is not touched, so that it is not built again."""
    kept = set()
    for directory, folders, names in os.walk(root):
        folders[:] = [f for f in folders if f not in _LEFT_OUT and not f.startswith(".")]
        there = os.path.normpath(os.path.join(copy, os.path.relpath(directory, root)))
        os.makedirs(there, exist_ok=True)
        kept.add(there)
        for name in names:
            if name.startswith("."):
                continue
            source, target = os.path.join(directory, name), os.path.join(there, name)
            kept.add(target)
            if not _same(source, target):
                shutil.copy(source, target)
    for directory, folders, names in os.walk(copy):
        for name in names:
            if os.path.join(directory, name) not in kept:
                os.remove(os.path.join(directory, name))


def _same(one, other):
    if not os.path.isfile(other) or os.path.getsize(one) != os.path.getsize(other):
        return False
    with open(one, "rb") as first, open(other, "rb") as second:
        return first.read() == second.read()


class Build:
    """The copy of a tree and what is built from it, in <work>/tree and <work>/build."""

    def __init__(self, root, work, jobs, processes):
        self.work = work
        self.tree = os.path.join(work, "tree")
        self.build = os.path.join(work, "build")
        self.jobs = jobs
        self.processes = processes
        copy_tree(root, self.tree)
        self._configure()
        targets = processes.output(["ninja", "-C", self.build, "-t", "targets", "all"])
        self.programs = re.findall(r"^tests/(tests_\w+): CXX_EXECUTABLE", targets, re.MULTILINE)
        self._read_commands()

    def _configure(self):
        settings = {
            "CMAKE_BUILD_TYPE": "Release", "CMAKE_CXX_COMPILER": "g++", "CMAKE_CXX_FLAGS": "-w -D_GLIBCXX_ASSERTIONS",
            "CMAKE_SKIP_BUILD_RPATH": "ON", "CMAKE_ENABLE_EXPORTS": "ON", "CMAKE_LINK_DEPENDS_NO_SHARED": "ON",
            "TABULO_REPLACEABLE": "ON", "TABULO_JAVA": "OFF", "TABULO_PROJECT_TESTS": "OFF", "TABULO_TOOL": "OFF",
            "TABULO_QUICKFIX": "OFF",  # its tests are of an older language, and tell nothing of what they reach
        }
        self.processes.output(["cmake", "-S", self.tree, "-B", self.build, "-G", "Ninja",
                               *(f"-D{name}={value}" for name, value in settings.items())])

    def make(self, *targets):
        self.processes.output(["cmake", "--build", self.build, "-j", str(self.jobs), "--target", *targets, "--", "--quiet"])

    def make_all(self):
        self.make("tabulo_native", "tabulo_traced", *self.programs)

    def _read_commands(self):
        with open(os.path.join(self.build, "compile_commands.json"), encoding="utf-8") as file:
            entries = json.load(file)
        self._compile = {}
        for entry in entries:
            words = shlex.split(entry["command"])
            output = words[words.index("-o") + 1]
            if "tabulo_native.dir" in output:
                self._compile[os.path.relpath(entry["file"], self.tree)] = (words, output)
        link = self.processes.output(["ninja", "-C", self.build, "-t", "commands", "tabulo_native"]).splitlines()[-1]
        self._link = [word for word in shlex.split(link) if word not in (":", "&&")]

    def is_compiled(self, path):
        return path in self._compile

    def replace(self, place, path, text, flags=()):
        """Compiles another text of a source. Gives the object file, which may be what there was already, and whether it is."""
        words, output = self._compile[path]
        changed = os.path.join(place.fresh("source"), os.path.basename(path))
        with open(changed, "w", encoding="utf-8") as file:
            file.write(text)
        compiled = os.path.join(place.path, "changed.o")
        words = [word for word in words if not word.startswith("-W")]
        words[words.index("-o") + 1] = compiled
        words[words.index("-c") + 1] = changed
        self.processes.output([*words, *flags], cwd=self.build)
        return compiled, _same(compiled, os.path.join(self.build, output))

    def link(self, place, path, compiled):
        """Puts a library into the place that has another object file for one of its sources."""
        output = self._compile[path][1]
        words = [compiled if word == output else word for word in self._link]
        words[words.index("-o") + 1] = os.path.join(place.replaced_in, SHARED_OBJECT)
        self.processes.output(words, cwd=self.build)

    @property
    def own_library(self):
        """The directory of the library without a fault."""
        return self.build

    def digest(self, *paths):
        """What tells files of the build from others of the same names."""
        digest = hashlib.sha256()
        for path in paths:
            with open(os.path.join(self.build, path), "rb") as file:
                digest.update(file.read())
        return digest.hexdigest()

    def run(self, place, library, tests, seed):
        """Runs tests of one program with the library of a directory until one fails."""
        flags = os.path.join(place.path, "flags")
        with open(flags, "w", encoding="utf-8") as file:
            file.write("--gtest_filter=" + ":".join(test.name for test in tests) + "\n")
        limits = {test.name: PATIENCE_SECONDS + PATIENCE_TIMES * test.milliseconds / 1000 for test in tests}
        return self._run(place, tests[0].program, [f"--gtest_flagfile={flags}"], {"LD_LIBRARY_PATH": library}, seed,
                         limits, PATIENCE_SECONDS)

    def run_traced(self, place, program, log, seed):
        """Runs a whole program with the library that records what it reaches."""
        for path in (log, log + ".map"):
            if os.path.exists(path):
                os.remove(path)
        environment = {"LD_LIBRARY_PATH": os.path.join(self.build, "traced"),
                       "TABULO_REACH_MAP": log + ".map", "TABULO_REACH_LOG": log}
        return self._run(place, program, [], environment, seed, {}, 600)

    def _run(self, place, program, arguments, environment, seed, limits, otherwise):
        """`limits` are seconds by the names of tests, `otherwise` those of all others and of what is no test."""
        variables = dict(os.environ, TMPDIR=place.fresh("tmp"), TABULO_TEST_SEED=str(seed), **environment)
        command = [os.path.join(self.build, "tests", program), "--gtest_color=no", "--gtest_fail_fast", *arguments]
        process = self.processes.start(command, env=variables, cwd=place.fresh("cwd"), stdout=subprocess.PIPE,
                                       stderr=subprocess.DEVNULL)
        watch = _Watch(process, limits, otherwise)
        try:
            hangs = watch.follow()
        finally:
            status = self.processes.end(process)
        if watch.failed:
            return Outcome(watch.failed, "fails", watch.times)
        if hangs:
            return Outcome(watch.current or "its end", "hangs", watch.times)
        if status != 0 or not watch.summed_up:
            how = f"is ended by signal {-status}" if status < 0 else f"ends the program with status {status}"
            return Outcome(watch.current or "its end", how, watch.times)
        return Outcome(times=watch.times)


class _Watch:
    """Reads what a test program says, and notes which test is at work and for how long."""

    def __init__(self, process, limits, otherwise):
        self._process = process
        self._limits = limits
        self._otherwise = otherwise
        self._rest = b""
        self.current = None
        self.failed = None
        self.summed_up = False
        self.times = {}

    def follow(self):
        """Reads to the end; true when a test has taken longer than it may."""
        descriptor = self._process.stdout.fileno()
        deadline = time.monotonic() + self._otherwise
        with selectors.DefaultSelector() as selector:
            selector.register(descriptor, selectors.EVENT_READ)
            while True:
                if not selector.select(max(0.0, deadline - time.monotonic())):
                    return True
                data = os.read(descriptor, 65536)
                if not data:
                    return self._ends_too_late()
                if self._take(data):
                    deadline = time.monotonic() + self._limits.get(self.current, self._otherwise)

    def _ends_too_late(self):
        try:
            self._process.wait(PATIENCE_SECONDS)
            return False
        except subprocess.TimeoutExpired:
            return True

    def _take(self, data):
        """Takes in what was read; true when a test has begun or ended."""
        lines = (self._rest + data).split(b"\n")
        self._rest = lines.pop()[-4096:]
        moved = False
        for line in lines:
            text = line.decode("utf-8", "replace")
            if re.match(r"\[==========\] \d+ tests? from .* ran\.", text):
                self.summed_up = True
            match = _VERDICT.search(text) if not self.summed_up else None
            if match is None:
                continue
            moved = True
            self.current = match.group(2) if match.group(1) == "RUN" else None
            if match.group(1) == "FAILED":
                self.failed = self.failed or match.group(2)
            if match.group(3) is not None:
                self.times[match.group(2)] = int(match.group(3))
        return moved


class Reach:
    """Which tests there are, and which of them reach which lines of the library; the answers are kept beside the build."""

    def __init__(self, build):
        self._build = build
        self._lines = {}  # path: sorted lines that begin a block of code
        self._tests = {}  # (path, line): set of indices of tests
        self.tests = []

    def measure(self, program, place, seed):
        """Runs one program with the recording library, unless an earlier run has told. Gives the test that failed, or nothing,
        and what is known of the program for add()."""
        kept = os.path.join(self._build.work, f"{program}.reach")
        key = self._build.digest(f"tests/{program}", f"traced/{SHARED_OBJECT}")
        try:
            with open(kept, encoding="utf-8") as file:
                known = json.load(file)
            if known["key"] == key:
                return Outcome(), known
        except (OSError, ValueError, KeyError):
            pass
        log = os.path.join(place.path, "reached")
        outcome = self._build.run_traced(place, program, log, seed)
        if outcome.failed:
            return outcome, None
        known = {"key": key, "times": outcome.times, "blocks": _reached_blocks(log)}
        with open(kept, "w", encoding="utf-8") as file:
            json.dump(known, file)
        return outcome, known

    def add(self, program, known, lines_of_blocks):
        """Takes in what measure() has found; the lines are those of block_lines()."""
        first = len(self.tests)
        self.tests += [Test(program, name, time) for name, time in known["times"].items()]
        numbers = {test.name: number for number, test in enumerate(self.tests[first:], first)}
        for name, blocks in known["blocks"].items():
            if name == "*":
                reaching = set(numbers.values())
            elif name.endswith(".*"):
                reaching = {number for test, number in numbers.items() if test.startswith(name[:-1])}
            else:
                reaching = {numbers[name]} if name in numbers else set()
            for block in blocks:
                if block in lines_of_blocks:
                    self._tests.setdefault(lines_of_blocks[block], set()).update(reaching)

    def know_lines(self, lines_of_blocks):
        for path, line in sorted(set(lines_of_blocks.values())):
            self._lines.setdefault(path, []).append(line)

    def of(self, fault, function):
        """The tests that reach the place of a fault; all of them where that cannot be told."""
        if function is None or {"constexpr", "consteval"} & set(function.type_words):
            return self.tests
        if re.search(r"\b(static|constexpr|thread_local)\b", fault.before):
            return self.tests
        blocks = [line for line in self._lines.get(fault.path, []) if function.first_line <= line <= fault.last_line]
        if not blocks:
            return self.tests
        begin = max([line for line in blocks if line <= fault.line], default=blocks[0])
        return self._reaching(fault.path, [line for line in blocks if line >= begin])

    def of_function(self, fault, function):
        """The tests that reach anything in the function of a fault: the compiler may say of the fault's code that it stands at
        other lines, so that of() misses some."""
        if function is None:
            return []
        return self._reaching(fault.path, [line for line in self._lines.get(fault.path, [])
                                           if function.first_line <= line <= function.last_line])

    def _reaching(self, path, lines):
        numbers = set().union(*(self._tests.get((path, line), set()) for line in lines))
        return [self.tests[number] for number in sorted(numbers)]


def _reached_blocks(log):
    """{name: offsets} of what the recording library has listed."""
    reached = {}
    with open(log, encoding="utf-8") as file:
        for line in file:
            name, *offsets = line.split()
            reached.setdefault(name, set()).update(int(offset, 16) for offset in offsets)
    return {name: sorted(offsets) for name, offsets in reached.items()}


def block_lines(build):
    """{offset: (path, line)} of every block of the recording library, by the address behind its call."""
    library = os.path.join(build.build, "traced", SHARED_OBJECT)
    offsets = []
    is_behind_call = False
    for line in build.processes.output(["objdump", "-d", "--no-show-raw-insn", library]).splitlines():
        if is_behind_call and ":" in line:
            offsets.append(int(line.split(":", 1)[0], 16))
        is_behind_call = "call" in line and "<__sanitizer_cov_trace_pc" in line
    listed = os.path.join(build.work, "offsets")
    with open(listed, "w", encoding="utf-8") as file:
        file.writelines(f"{offset - 1:x}\n" for offset in offsets)  # the call itself, not what is behind it
    with open(listed, encoding="utf-8") as file:
        places = subprocess.run(["addr2line", "-e", library], stdin=file, capture_output=True, text=True, check=True)
    found = {}
    for offset, where in zip(offsets, places.stdout.splitlines()):
        path, line = where.split(" ", 1)[0].rsplit(":", 1)
        path = os.path.relpath(os.path.realpath(path), os.path.realpath(build.tree))
        if line.isdigit() and int(line) > 0 and not path.startswith(".."):
            found[offset] = (path, int(line))
    return found
