package com.corvane.kestrova.engine.tabulo.jni;

import java.io.IOException;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.List;
import java.util.Locale;

/** Which of the jar's libraries fits this virtual machine; the names are those that build tools give to systems. */
final class NativePlatform {
    /** The systems that the jar has a library for. */
    static final List<String> SUPPORTED = List.of("linux-x86_64", "linux-aarch_64");

    private NativePlatform() {
    }

    /** The name of this machine's system. */
    static String current() throws NativeLibraryException {
        return of(System.getProperty("os.name", ""), System.getProperty("os.arch", ""), mappedFiles());
    }

    /**
     * The name of a system.
     *
     * @param maps what is mapped into a process of it, as the system lists that; empty where nothing is known
     * @throws NativeLibraryException when the jar has no library for it
     */
    static String of(String system, String processor, String maps) throws NativeLibraryException {
        String name = system.toLowerCase(Locale.ROOT) + "-" + switch (processor.toLowerCase(Locale.ROOT)) {
            case "amd64", "x86_64", "x86-64" -> "x86_64";
            case "aarch64", "arm64" -> "aarch_64";
            default -> processor;
        };
        if (!SUPPORTED.contains(name)) {
            throw new NativeLibraryException("the jar has no library for " + system + " on " + processor
                    + ", only for " + String.join(" and ", SUPPORTED),
                    "build libtabulo.so for this system and name it with " + NativeLibrary.FILE_OPTION);
        }
        if (maps.contains("/ld-musl-") || maps.contains("/libc.musl-")) {
            throw new NativeLibraryException("this virtual machine runs on the C library musl, and the jar's libraries"
                    + " need glibc 2.34 or later",
                    "use a system with glibc, or build libtabulo.so for this one and name it with "
                    + NativeLibrary.FILE_OPTION);
        }
        return name;
    }

    private static String mappedFiles() {
        try {
            return new String(Files.readAllBytes(Path.of("/proc/self/maps")), StandardCharsets.ISO_8859_1);
        } catch (IOException unknown) {
            return "";  // then the system's own error tells what the library lacks
        }
    }
}
