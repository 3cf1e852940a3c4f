"""Runs one class of Java tests with -Xcheck:jni and judges what came of it.

The run fails when a test fails, when no test ran, when the virtual machine ends in another way than by itself, and when it
complains about a JNI call of the library. Complaints about native code of the virtual machine's own are shown but do not
count: nothing in this tree could answer them.

A library that was built with sanitizers needs their run-time libraries before everything else in the process: --preload names
them. What they report, in the virtual machine or in one that a test starts, fails the run.
"""

import argparse
import os
import re
import shutil
import subprocess
import sys

_COMPLAINTS = (
    re.compile(r"(WARNING|FATAL ERROR) in native method:"),
    re.compile(r"WARNING: JNI local refs: \d+, exceeds capacity"),
    re.compile(r"Warning: Calling other JNI functions in the scope of"),
)
_SANITIZERS = re.compile(r"(ERROR: AddressSanitizer|runtime error): ?.*")
# Signals are the virtual machine's, it works with them. Its memory cannot be searched for leaks, and it never gives its own
# back; a huge allocation gives null as it does without a sanitizer.
_ASAN_OPTIONS = ("handle_segv=0:handle_sigbus=0:handle_sigfpe=0:handle_sigill=0:allow_user_segv_handler=1:use_sigaltstack=0:"
                 "detect_leaks=0:abort_on_error=1:allocator_may_return_null=1:max_allocation_size_mb=512")
# Faults of the virtual machine's own: it names a library for its event log after the library is unloaded.
_SUPPRESSIONS = "interceptor_via_fun:os::dll_unload\n"
_UBSAN_OPTIONS = "print_stacktrace=1:abort_on_error=1"
_FRAME = re.compile(r"\s+at (\S+)\((.*)\)")
_CLASS_OF_A_MODULE = re.compile(r"(java|jdk)\.[a-z.]+@")
_COUNT = re.compile(r"^\[\s*(\d+) tests (successful|failed)\s*\]", re.MULTILINE)


def _is_of_the_virtual_machine(frame_line):
    """Whether the native method on top of the stack is the virtual machine's own. While a library loads, that is the
    loader's, but the code that runs is the library's JNI_OnLoad."""
    frame = _FRAME.match(frame_line)
    return bool(frame and _CLASS_OF_A_MODULE.match(frame.group(2)) and "NativeLibraries.load" not in frame.group(1))


def jni_complaints(output):
    """The complaints of -Xcheck:jni about the library, each with the native method that it is about."""
    lines = output.splitlines()
    found = []
    for number, line in enumerate(lines):
        if any(complaint.search(line) for complaint in _COMPLAINTS):
            below = lines[number + 1] if number + 1 < len(lines) else ""
            if not _is_of_the_virtual_machine(below):
                found.append(line.strip() + (" " + below.strip() if _FRAME.match(below) else ""))
    return found


def sanitizer_reports(output):
    """The first line of each report of a sanitizer."""
    return [report.group(0) for report in _SANITIZERS.finditer(output)]


def environment(preloaded, suppressions, inherited):
    """The environment of a virtual machine into which libraries are loaded first; the inherited one without any."""
    if not preloaded:
        return dict(inherited)
    return {**inherited, "LD_PRELOAD": ":".join(preloaded), "ASAN_OPTIONS": f"{_ASAN_OPTIONS}:suppressions={suppressions}",
            "UBSAN_OPTIONS": _UBSAN_OPTIONS}


def problems(output, status):
    """Everything that makes the run a failure, in sentences."""
    counts = {what: int(number) for number, what in _COUNT.findall(output)}
    found = []
    if status < 0:
        found.append(f"The virtual machine was ended by signal {-status}.")
    elif status != 0:
        found.append(f"The virtual machine ended with status {status}.")
    if "failed" not in counts:
        found.append("The run has no summary: it did not come to its end.")
    elif counts["failed"] != 0:
        found.append(f"{counts['failed']} tests failed.")
    if counts.get("successful", 0) == 0:
        found.append("No test ran to a good end.")
    found += [f"-Xcheck:jni complains: {complaint}" for complaint in jni_complaints(output)]
    found += [f"A sanitizer reports: {report}" for report in sanitizer_reports(output)]
    return found


def run(command, work_directory, variables):
    """Runs the command and gives its status and its output, which is also shown line by line while it comes."""
    output = []
    with subprocess.Popen(command, cwd=work_directory, env=variables, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                          stderr=subprocess.STDOUT) as process:
        for line in process.stdout:
            output.append(line.decode("utf-8", errors="replace"))
            print(output[-1], end="", flush=True)
    return process.returncode, "".join(output)


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--java", required=True)
    parser.add_argument("--classpath", required=True)
    parser.add_argument("--library", dest="native_library", required=True)
    parser.add_argument("--source-directory", required=True)
    parser.add_argument("--work-directory", required=True)
    parser.add_argument("--preload", action="append", default=[], help="a library to be loaded before all others")
    parser.add_argument("test_class")
    arguments = parser.parse_args()

    shutil.rmtree(arguments.work_directory, ignore_errors=True)
    os.makedirs(arguments.work_directory)
    suppressions = os.path.join(arguments.work_directory, "suppressions")
    with open(suppressions, "w", encoding="utf-8") as file:
        file.write(_SUPPRESSIONS)
    command = [
        arguments.java, "-Xcheck:jni", "-XX:-CreateCoredumpOnCrash", "-Dfile.encoding=UTF-8",
        f"-Dtabulo.nativeLibrary={arguments.native_library}", f"-Dtabulo.sourceDirectory={arguments.source_directory}",
        "-cp", arguments.classpath, "org.junit.platform.console.ConsoleLauncher",
        "--disable-banner", "--disable-ansi-colors", "--details=tree", "--select-class", arguments.test_class,
    ]
    status, output = run(command, arguments.work_directory, environment(arguments.preload, suppressions, os.environ))
    found = problems(output, status)
    for problem in found:
        print(f"{arguments.test_class}: {problem}")
    return 1 if found else 0


if __name__ == "__main__":
    sys.stdout.reconfigure(encoding="utf-8", errors="replace")
    sys.exit(main())
