package com.corvane.kestrova.engine.tabulo.jni;

import java.nio.file.Path;
import java.util.ArrayList;
import java.util.List;

/** Finds the library for {@link JNITboLibLoader#load()}: the file that a property names, the library path, the jar. */
final class NativeLibrary {
    /** What all properties of the library begin with. */
    static final String PREFIX = "tabulo.";
    private static final String FILE_PROPERTY = PREFIX + "library";
    /** How a user names a file. */
    static final String FILE_OPTION = "-D" + FILE_PROPERTY + "=<file>";
    private static final String PATH = "the library path";

    private static boolean isLoaded;

    private NativeLibrary() {
    }

    /** Loads the library from the first place that has it; does nothing when it is loaded. */
    static synchronized void load() {
        if (isLoaded) {
            return;
        }
        List<String> tried = new ArrayList<>();
        try {
            if (!loadNamedFile(tried) && !loadFromLibraryPath(tried)) {
                loadFromJar(tried);
            }
        } catch (NativeLibraryException failed) {
            UnsatisfiedLinkError error = new UnsatisfiedLinkError("The native library of Tabulo is not loaded: "
                    + failed.getMessage() + ". What helps: " + failed.advice() + ". Tried: "
                    + String.join("; ", tried));
            error.initCause(failed.getCause());
            throw error;
        }
        isLoaded = true;
    }

    /** Loads the library from a file, each time it is called. */
    static synchronized void load(Path file) {
        System.load(file.toAbsolutePath().toString());
        isLoaded = true;
    }

    /** Whoever names a file wants that file: when it cannot be loaded, no other is. */
    private static boolean loadNamedFile(List<String> tried) throws NativeLibraryException {
        String named = System.getProperty(FILE_PROPERTY, "");
        if (named.isEmpty()) {
            tried.add("-D" + FILE_PROPERTY + " is not set");
            return false;
        }
        tried.add("-D" + FILE_PROPERTY + "=" + named);
        try {
            System.load(Path.of(named).toAbsolutePath().toString());
            return true;
        } catch (UnsatisfiedLinkError | RuntimeException failed) {
            throw new NativeLibraryException("the file that -D" + FILE_PROPERTY + " names cannot be loaded ("
                    + failed.getMessage() + ")", isOfAnotherLoader(failed)
                            ? forOtherLoaders("name a copy of the file with -D" + FILE_PROPERTY)
                            : "correct -D" + FILE_PROPERTY + ", or leave it out to take the library from "
                                    + PATH + " or from the jar", failed);
        }
    }

    private static boolean loadFromLibraryPath(List<String> tried) throws NativeLibraryException {
        try {
            System.loadLibrary("tabulo");
            return true;
        } catch (UnsatisfiedLinkError failed) {
            tried.add(PATH + " (" + failed.getMessage() + ")");
            if (isOfAnotherLoader(failed)) {
                throw new NativeLibraryException("another class loader of this virtual machine has loaded it from "
                        + PATH, forOtherLoaders("name a copy of the file with -D" + FILE_PROPERTY), failed);
            }
            return false;
        }
    }

    private static void loadFromJar(List<String> tried) throws NativeLibraryException {
        String platform;
        BundledLibrary bundled;
        try {
            platform = NativePlatform.current();
            bundled = BundledLibrary.of(platform);
        } catch (NativeLibraryException none) {
            tried.add("the jar");
            throw none;
        }
        Path base = Path.of(System.getProperty(ExtractedLibrary.PROPERTY, System.getProperty("java.io.tmpdir", "/tmp")))
                .toAbsolutePath();
        tried.add("the jar's library for " + platform + ", extracted below " + base);
        Path file = ExtractedLibrary.of(bundled, base);
        try {
            System.load(file.toString());
        } catch (UnsatisfiedLinkError failed) {
            throw explained(failed, file);
        }
    }

    /** The system and the virtual machine have only words for what went wrong; these are theirs. */
    private static NativeLibraryException explained(UnsatisfiedLinkError failed, Path file) {
        String words = String.valueOf(failed.getMessage());
        if (isOfAnotherLoader(failed)) {
            return new NativeLibraryException("another class loader of this virtual machine has loaded " + file,
                    forOtherLoaders("set -D" + ExtractedLibrary.PROPERTY
                            + " to another directory before this one loads it"), failed);
        }
        if (words.contains("failed to map segment") || words.contains("Operation not permitted")) {
            return new NativeLibraryException("the system does not allow code to be loaded from " + file
                    + ", as where a file system is mounted noexec (" + words + ")",
                    ExtractedLibrary.ADVICE + ", or name a libtabulo.so elsewhere with " + FILE_OPTION,
                    failed);
        }
        if (words.contains("GLIBC_")) {
            return new NativeLibraryException("the jar's library needs glibc 2.34 or later (" + words + ")",
                    "build libtabulo.so for this system and name it with " + FILE_OPTION, failed);
        }
        return new NativeLibraryException("the jar's library, extracted to " + file + ", cannot be loaded (" + words
                + ")", "name another libtabulo.so with " + FILE_OPTION, failed);
    }

    private static boolean isOfAnotherLoader(Throwable failed) {
        return String.valueOf(failed.getMessage()).contains("loaded in another classloader");
    }

    private static String forOtherLoaders(String otherwise) {
        return "give tabulo.jar to a class loader that both share, or, for a library of its own with a log facility and"
                + " a sync policy of its own, " + otherwise;
    }
}
