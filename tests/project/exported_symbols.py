"""Compares what libtabulo.so exports with the list below, what the Java classes declare as native with the same list, and
what the library needs at run time with what every machine has: the C library of version 2.34 at most, and libgcc_s. The C++
library is inside, except where sanitizers must find it.

Run as exported_symbols.py library <libtabulo.so> or exported_symbols.py java <directory of javac's native headers>.
"""

import glob
import os
import re
import subprocess
import sys

PACKAGE = "Java_com_corvane_kestrova_engine_tabulo_jni_"

ENTRY_POINTS = {
    "JNITboLibLoader": ["initLibrary", "uninitLibrary", "setLogFacility", "setDoSyncToDisk"],
    "JNITboSessionInfoTable": [
        "initializeNative",
        "uninitializeNative",
        "dropNative",
        "writeFieldsNative",
        "readFieldsNative",
    ],
    "JNITboMessageTable": [
        "initializeNative",
        "uninitializeNative",
        "closeNative",
        "dropNative",
        "writeMessage__JIIIIJCLjava_lang_String_2ZZ"
        "Ljava_lang_String_2Ljava_lang_String_2Ljava_lang_String_2Ljava_lang_String_2_3Ljava_lang_String_2_3D",
        "writeMessage__JIIIIJCLjava_lang_String_2ZZ"
        "Ljava_lang_String_2Ljava_lang_String_2_3BII_3BII_3BII_3Ljava_lang_String_2_3I_3J_3D",
        "writeMessage__J_3BII",
        "readMessages",
        "getMessages",
        "getLastMessageId",
        "getLastGoodMsgSeqNum",
        "getPendingMsgSeqNum",
        "getLastUniformMessageId",
    ],
    "JNITboMessageTableIterator": [
        "next",
        "close",
        "getConnectionMsgId",
        "getUniformMessageId",
        "getMsgSeqNum",
        "getPrevSeqNum",
        "getTimestamp",
        "getMsgType",
        "getIsPossDupFlag",
        "getIsOutOfSequence",
        "getWireMessage",
        "getWireMessageAsByteArray",
        "getNonMetadataFields",
        "getNonMetadataFieldsAsByteArray",
        "getStringField",
        "getNumericFieldAsLong",
        "getNumericFieldAsDouble",
    ],
    "JNITboMessageWatcher": ["initialize", "startWatching", "uninitialize"],
}

NEEDED_LIBRARIES = {"libm.so.6", "libgcc_s.so.1", "libc.so.6"}
NEWEST_GLIBC = (2, 34)


def native_methods():
    return {f"{PACKAGE}{java_class}_{method}" for java_class, methods in ENTRY_POINTS.items() for method in methods}


def _tool(*command):
    return subprocess.run(command, check=True, stdout=subprocess.PIPE, text=True).stdout


def _compare(expected, found, who):
    return ([f"{name} is missing from {who}." for name in sorted(expected - found)] +
            [f"{name} must not be in {who}." for name in sorted(found - expected)])


def newer_versions(version_needs):
    """The versions of glibc that readelf -V lists as needed and that are newer than what machines are sure to have."""
    found = set(re.findall(r"Name: GLIBC_(\S+)", version_needs))
    if not found:
        return ["The library's needed versions of glibc could not be read."]
    return [f"The library needs glibc {version}, newer than {'.'.join(map(str, NEWEST_GLIBC))}."
            for version in sorted(found)
            if not re.fullmatch(r"[0-9.]+", version) or tuple(map(int, version.split("."))) > NEWEST_GLIBC]


def check_library(library):
    exported = {line.split()[-1] for line in _tool("nm", "-D", "--defined-only", library).splitlines() if line}
    needed = set(re.findall(r"\(NEEDED\).*\[(.*)\]", _tool("readelf", "-dW", library)))
    loaders = {name for name in needed if name.startswith("ld-linux")}
    problems = _compare(native_methods() | {"JNI_OnLoad"}, exported, "the symbol table")
    problems += [f"The library needs {name}, which not every machine has." for name in
                 sorted(needed - NEEDED_LIBRARIES - loaders)]
    problems += newer_versions(_tool("readelf", "-VW", library))
    if not needed:
        problems.append("The library's list of needed libraries could not be read.")
    return problems


def check_java(directory):
    declared = set()
    for path in glob.glob(os.path.join(directory, "*.h")):
        with open(path, encoding="utf-8") as file:
            declared |= set(re.findall(r"JNICALL (Java_\w+)", file.read()))
    return _compare(native_methods(), declared, "the native methods of the Java classes")


def main():
    if len(native_methods()) != 42:
        sys.exit(f"The list has {len(native_methods())} entry points, not 42.")
    problems = {"library": check_library, "java": check_java}[sys.argv[1]](sys.argv[2])
    for problem in problems:
        print(problem)
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main())
