"""A run of ./check mutants: faults are planted one after the other by workers side by side, and judged by the tests."""

import collections
import concurrent.futures
import os
import sys
import threading
import time

import cpp_text
import fault_tests
from fault_tests import BuildError

# What became of a fault: "noticed", "unnoticed", or "none" when it turned out to be none; and the words for it.
Verdict = collections.namedtuple("Verdict", "kind words")


def say(text):
    print(text, file=sys.stderr, flush=True)


def own_program(path):
    """The test program of the folder that a source stands in."""
    return "tests_" + path.split("/")[1]


def in_order(tests, path):
    """The tests in groups of one program each, those first that are likely to notice a fault of this file soon."""
    groups = {}
    for test in tests:
        groups.setdefault((test.tier, test.program), []).append(test)

    def rank(key):
        tier, program = key
        return tier, program != own_program(path), sum(test.milliseconds for test in groups[key])

    return [groups[key] for key in sorted(groups, key=rank)]


class Run:
    """What has been built and is known of the tests, and what has become of the faults so far."""

    def __init__(self, root, processes, jobs, sources, seed, recorded):
        self._sources = sources
        self._parsed = {}
        self._seed = seed
        self._recorded = recorded
        self._lock = threading.Lock()
        self._trusted = set()
        work = os.path.join(root, "build", "mutants")
        os.makedirs(work, exist_ok=True)
        self._places = [fault_tests.Place(os.path.join(work, str(number))) for number in range(jobs)]
        self._processes = processes
        self.noticed = 0
        self.known = 0
        self.unnoticed = []
        self._counted = 0
        begun = time.monotonic()
        say("building a copy of the tree")
        self._build = fault_tests.Build(root, work, jobs, processes)
        self._build.make_all()
        say(f"built in {time.monotonic() - begun:.0f} s; running {len(self._build.programs)} test programs without a fault")
        begun = time.monotonic()
        self._reach = self._measure()
        say(f"{len(self._reach.tests)} tests passed without a fault in {time.monotonic() - begun:.0f} s")

    def summary(self):
        planted = self.noticed + len(self.unnoticed) + self.known
        return f"{planted} planted, {self.noticed} noticed, {len(self.unnoticed)} unnoticed, {self.known} recorded"

    def plant(self, chosen, count):
        """Plants so many of the faults, or all; without a count those that are recorded, too."""
        begun = time.monotonic()
        head = chosen if count is None else chosen[:count]
        for of_headers in (False, True):
            waiting = [fault for fault in chosen if fault.path.endswith(".h") == of_headers]
            wanted = sum(fault.path.endswith(".h") == of_headers for fault in head)
            # A header is changed in the one copy that all programs are built from.
            places = self._places[:1] if of_headers else self._places
            judge = self._judge_header if of_headers else self._judge_source
            self._plant_some(_Waiting(waiting, wanted), places, judge, count is not None)
        seconds = time.monotonic() - begun
        say(f"{seconds:.0f} s, {seconds / max(1, self._counted):.1f} s for each fault that was planted")

    # The tests without a fault.

    def _measure(self):
        reach = fault_tests.Reach(self._build)
        lines = fault_tests.block_lines(self._build)
        reach.know_lines(lines)
        programs = list(self._build.programs)
        found = {}

        def work(place):
            while True:
                with self._lock:
                    if not programs:
                        return
                    program = programs.pop()
                outcome, known = reach.measure(program, place, self._seed)
                if outcome.failed:
                    raise fault_tests.CleanRunFailed(f"without any fault, {program}: {outcome.failed} {outcome.how}")
                found[program] = known

        self._side_by_side(work, self._places)
        for program in self._build.programs:
            reach.add(program, found[program], lines)
        return reach

    def _side_by_side(self, work, places):
        """Runs work(place) for each place. When one fails, or the user has had enough, all end."""
        with concurrent.futures.ThreadPoolExecutor(len(places)) as pool:
            futures = [pool.submit(work, place) for place in places]
            try:
                done, _ = concurrent.futures.wait(futures, return_when=concurrent.futures.FIRST_EXCEPTION)
                for future in done:
                    future.result()
            except BaseException:
                self._processes.stop()
                raise

    # One fault after the other.

    def _plant_some(self, waiting, places, judge, skip_recorded):
        def work(place):
            while True:
                with self._lock:
                    fault = waiting.next()
                    if fault is None:
                        return
                    if skip_recorded and fault.key in self._recorded:
                        self.known += 1
                        waiting.done(True)
                        continue
                begun = time.monotonic()
                verdict = judge(fault, place)
                with self._lock:
                    waiting.done(verdict.kind != "none")
                    self._note(fault, verdict, time.monotonic() - begun)

        self._side_by_side(work, places)

    def _note(self, fault, verdict, seconds):
        recorded = fault.key in self._recorded
        if verdict.kind == "noticed":
            self.noticed += 1
            if recorded:
                print(f"recorded as changing nothing, but noticed by {verdict.words}:\n{fault}\n", flush=True)
        elif verdict.kind == "unnoticed" and recorded:
            self.known += 1
        elif verdict.kind == "unnoticed":
            self.unnoticed.append(fault)
            print(f"{fault}\n    {verdict.words}\n", flush=True)
        self._counted += verdict.kind != "none"
        count = f"{self.noticed + self.known + len(self.unnoticed)}"
        say(f"{count:>5} {verdict.kind:9} {fault.path}:{fault.line}: {verdict.words} ({seconds:.1f} s)")

    def _judge_source(self, fault, place):
        try:
            compiled, is_same = self._build.replace(place, fault.path, fault.planted(self._sources[fault.path]))
            if is_same:
                return Verdict("none", "compiles to the same code")
            self._build.link(place, fault.path, compiled)
        except BuildError:
            return Verdict("none", "does not compile")
        function = self._function_of(fault)
        near = self._reach.of(fault, function)
        verdict = Verdict("unnoticed", "No test reaches it.")
        if near:
            verdict = self._run(fault, in_order(near, fault.path), place, place.replaced_in)
        if verdict.kind != "unnoticed":
            return verdict
        known = set(map(id, near))
        others = [test for test in self._reach.of_function(fault, function) if id(test) not in known]
        if not others:
            return verdict
        last = self._run(fault, in_order(others, fault.path), place, place.replaced_in)
        words = f"{verdict.words} Of those that reach its function alone, {last.words}"
        return last if last.kind != "unnoticed" else Verdict("unnoticed", words)

    def _function_of(self, fault):
        with self._lock:
            if fault.path not in self._parsed:
                self._parsed[fault.path] = cpp_text.Source(fault.path, self._sources[fault.path])
        return self._parsed[fault.path].function_at(fault.line)

    def _run(self, fault, groups, place, library):
        """Runs groups of tests until one test fails twice."""
        doubtful = []
        run = 0
        for group in groups:
            while group:
                outcome = self._build.run(place, library, group, self._seed)
                if not outcome.failed:
                    run += len(group)
                    break
                if self._fails_again(outcome, group, place, library):
                    return Verdict("noticed", f"{outcome.failed} {outcome.how}")
                doubtful.append(f"{outcome.failed} {outcome.how}, but not when repeated.")
                if outcome.failed not in [test.name for test in group]:
                    break
                group = [test for test in group if test.name != outcome.failed]
        return Verdict("unnoticed", " ".join([f"{run} tests reach it and pass.", *doubtful]))

    def _fails_again(self, outcome, group, place, library):
        """Whether a test that has failed fails again on its own, and would not without the fault, where that can be asked."""
        alone = [test for test in group if test.name == outcome.failed] or group
        if outcome.how != "hangs" and not self._build.run(place, library, alone, self._seed).failed:
            return False
        trusted = (alone[0].program, outcome.failed)
        # The build itself has the fault of a header.
        if library != self._build.own_library and trusted not in self._trusted:
            clean = self._build.run(place, self._build.own_library, alone, self._seed)
            if clean.failed:
                raise fault_tests.CleanRunFailed(f"without any fault, {alone[0].program}: {clean.failed} {clean.how}")
            self._trusted.add(trusted)
        return True

    def _judge_header(self, fault, place):
        path = os.path.join(self._build.tree, fault.path)
        clean = self._build.digest(fault_tests.SHARED_OBJECT)
        try:
            with open(path, "w", encoding="utf-8") as file:
                file.write(fault.planted(self._sources[fault.path]))
            try:
                self._build.make("tabulo_native")
            except BuildError:
                return Verdict("none", "does not compile")
            if self._build.digest(fault_tests.SHARED_OBJECT) == clean:
                return Verdict("none", "compiles to the same code")
            return self._run_programs(fault, place)
        finally:
            with open(path, "w", encoding="utf-8") as file:
                file.write(self._sources[fault.path])

    def _run_programs(self, fault, place):
        """Builds one test program after the other with the header as it is now, and runs it."""
        programs = sorted(self._build.programs, key=lambda program: (
            program != own_program(fault.path), sum(t.milliseconds for t in self._reach.tests if t.program == program)))
        words = []
        for program in programs:
            try:
                self._build.make(program)
            except BuildError:
                return Verdict("noticed", f"{program} does not compile")
            tests = [test for test in self._reach.tests if test.program == program]
            verdict = self._run(fault, in_order(tests, fault.path), place, self._build.own_library)
            if verdict.kind != "unnoticed":
                return verdict
            words.append(verdict.words)
        return Verdict("unnoticed", " ".join(words))


class _Waiting:
    """Hands out faults until so many have counted; no more are in work than are wanted. To be used under a lock."""

    def __init__(self, faults, wanted):
        self._faults = iter(faults)
        self._wanted = wanted
        self._in_work = 0

    def next(self):
        if self._in_work >= self._wanted:
            return None
        fault = next(self._faults, None)
        self._in_work += fault is not None
        return fault

    def done(self, counts):
        self._in_work -= 1
        self._wanted -= counts
