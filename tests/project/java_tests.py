"""Runs one class of Java tests with -Xcheck:jni and judges what came of it.

The run fails when a test fails, when no test ran, when the virtual machine ends in another way than by itself, and when it
complains about a JNI call of the library. Complaints about native code of the virtual machine's own are shown but do not
count: nothing in this tree could answer them.
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
    return found


def run(command, work_directory):
    """Runs the command and gives its status and its output, which is also shown line by line while it comes."""
    output = []
    with subprocess.Popen(command, cwd=work_directory, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
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
    parser.add_argument("test_class")
    arguments = parser.parse_args()

    shutil.rmtree(arguments.work_directory, ignore_errors=True)
    os.makedirs(arguments.work_directory)
    command = [
        arguments.java, "-Xcheck:jni", "-XX:-CreateCoredumpOnCrash", "-Dfile.encoding=UTF-8",
        f"-Dtabulo.nativeLibrary={arguments.native_library}", f"-Dtabulo.sourceDirectory={arguments.source_directory}",
        "-cp", arguments.classpath, "org.junit.platform.console.ConsoleLauncher",
        "--disable-banner", "--disable-ansi-colors", "--details=tree", "--select-class", arguments.test_class,
    ]
    status, output = run(command, arguments.work_directory)
    found = problems(output, status)
    for problem in found:
        print(f"{arguments.test_class}: {problem}")
    return 1 if found else 0


if __name__ == "__main__":
    sys.stdout.reconfigure(encoding="utf-8", errors="replace")
    sys.exit(main())
