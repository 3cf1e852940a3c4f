"""Shows that the tree builds where it is not alone and where there is no Java.

Run as outside_program.py program <root> <work directory> <write_messages> <compiler> [setting of CMake...]: builds the program in
outside/, which takes in the tree with add_subdirectory and finds no JDK and no GTest, and lets it read a table that
write_messages has made.

Run as outside_program.py alone <root> <work directory> <compiler> [setting of CMake...]: configures the tree by itself without
a JDK.
"""

import json
import os
import re
import shutil
import subprocess
import sys

_NOWHERE = ["-D", "TABULO_JDK=/nowhere"]


def run(*command):
    """The status and all output of a command that finds no JDK by its environment."""
    done = subprocess.run(command, env={**os.environ, "JAVA_HOME": ""}, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                          text=True, errors="replace", check=False)
    return done.returncode, done.stdout


def run_well(*command):
    status, output = run(*command)
    if status != 0:
        sys.exit(f"{output}\nThis ended with status {status}: {' '.join(command)}")
    return output


def configure(source, build, compiler, settings):
    return ["cmake", "-S", source, "-B", build, "-D", f"CMAKE_CXX_COMPILER={compiler}", *_NOWHERE, *settings]


def command_problems(build):
    """Whether the tree's flags have reached the program, and the program's the tree."""
    with open(os.path.join(build, "compile_commands.json"), encoding="utf-8") as file:
        commands = {entry["file"]: entry["command"] for entry in json.load(file)}
    found = []
    for path, command in commands.items():
        ours = not path.endswith("/outside/main.cpp")
        if "-DOF_THE_PROGRAM" not in command or "-O2" in command:
            found.append(f"{path} is not compiled with the program's flags: {command}")
        if "-Werror" in command or (not ours and ("-Wall" in command or "-fvisibility" in command or "/src" in command)):
            found.append(f"{path} is compiled with flags of the tree's own: {command}")
        if ours and "/src/" not in path:
            found.append(f"{path} is no part of the library and is built.")
    return found


def program(root, work, write_messages, compiler, settings):
    build = os.path.join(work, "build")
    run_well(*configure(os.path.join(root, "tests/project/outside"), build, compiler, settings),
             "-D", f"TABULO_SOURCE={root}", "-D", "CMAKE_BUILD_TYPE=Release", "-D", "CMAKE_DISABLE_FIND_PACKAGE_GTest=ON")
    run_well("cmake", "--build", build, "-j", "2")
    found = command_problems(build)
    run_well(write_messages, work + "/", "orders", "7", "25")
    before = set(os.listdir("."))
    said = run_well(os.path.join(build, "outside"), os.path.join(work, "orders"))
    found += [f"The program has written {name}." for name in sorted(set(os.listdir(".")) - before)]
    expected = ("orders: 25 messages in 3 closed blocks of 7 and 4 in the open one, last id 25\n"
                "25 messages were read, their ids add up to 325\n")
    if said != expected:
        found.append(f"The program says:\n{said}instead of:\n{expected}")
    return found


def alone(root, work, compiler, settings):
    found = []
    build = os.path.join(work, "build")
    output = run_well(*configure(root, build, compiler, settings))
    if "-- No Java development kit with include/jni.h found" not in output:
        found.append(f"Nothing is said of the missing JDK:\n{output}")
    targets = set(re.findall(r"[\w.]+", run_well("cmake", "--build", build, "--target", "help")))
    for target, wanted in (("tests_core", True), ("tabulo_native", True), ("tests_java_jni", False), ("tabulo", False)):
        if (target in targets) != wanted:
            found.append(f"{target} is {'not ' if wanted else ''}to be built without a JDK.")
    status, output = run(*configure(root, os.path.join(work, "asked"), compiler, settings), "-D", "TABULO_JAVA=ON")
    if status == 0 or "and TABULO_JAVA is ON" not in " ".join(output.split()):
        found.append(f"Java that is asked for is left out:\n{output}")
    return found


def main():
    what, root, work = sys.argv[1], os.path.abspath(sys.argv[2]), os.path.abspath(sys.argv[3])
    shutil.rmtree(work, ignore_errors=True)
    os.makedirs(work)
    os.chdir(work)  # for the files that programs leave where they are started
    if what == "program":
        found = program(root, work, sys.argv[4], sys.argv[5], sys.argv[6:])
    else:
        found = alone(root, work, sys.argv[4], sys.argv[5:])
    print("\n".join(found))
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main())
