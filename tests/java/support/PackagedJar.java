package com.corvane.kestrova.engine.tabulo.jni;

import java.io.IOException;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.List;
import java.util.Set;
import java.util.stream.Stream;

/**
 * What the packaged jar has besides the classes, as a folder of its own for the class path: the library of this build for
 * this machine and its hash, in a version that the test chooses. Virtual machines load it from there.
 */
final class PackagedJar {
    private final Path folder;
    private final String hash;
    private final Path library;

    /** Makes the folder. */
    PackagedJar(Path folder, String version) throws Exception {
        this.folder = folder;
        Path beside = folder.resolve(JNITboLibLoader.class.getPackageName().replace('.', '/'));
        library = beside.resolve(NativePlatform.current()).resolve("libtabulo.so");
        Files.createDirectories(library.getParent());
        Files.copy(Path.of(System.getProperty("tabulo.nativeLibrary")), library);
        hash = BundledLibrary.hashOf(Files.readAllBytes(library));
        Files.writeString(beside.resolve("native.properties"),
                "version=" + version + "\nsha256." + NativePlatform.current() + "=" + hash + "\n");
    }

    /** What a user is told to name a file with. */
    static final String FILE_OPTION = fileOption("<file>");

    /** What gives the library's file. */
    static String fileOption(String file) {
        return "-D%s.%s=%s".formatted("tabulo", "library", file);
    }

    /** What gives the virtual machine's library path. */
    static String pathOption(Object path) {
        return "-D%s.%s.path=%s".formatted("java", "library", path);
    }

    /** The library in the folder. */
    Path libraryFile() {
        return library;
    }

    /** The SHA-256 that is recorded. */
    String hash() {
        return hash;
    }

    /** The class path with the folder in it. */
    String classPath() {
        return folder + ":" + System.getProperty("java.class.path");
    }

    /** Loads the library without a path, uses it, and tells how that went; waits for a line when it is told to. */
    static final class Loading {
        public static void main(String[] arguments) throws IOException {
            try {
                JNITboLibLoader.load();
                JNITboLibLoader.uninitLibrary();
                System.out.println("loaded");
            } catch (UnsatisfiedLinkError error) {
                System.out.println(error.getMessage());
            }
            if (arguments.length > 0) {
                System.in.read();
            }
        }
    }

    /** Starts a virtual machine that extracts below a directory, with options and behind a shell command. */
    ChildJvm start(Path directory, String before, List<String> options, Class<?> main, String... arguments)
            throws IOException {
        List<String> all = new ArrayList<>(List.of("-cp", classPath(), "-Dtabulo.tmpdir=" + directory));
        all.addAll(options);
        return ChildJvm.start(folder, before, all, main, arguments);
    }

    /** What a virtual machine says that loads the library; options that come last win. */
    String load(Path directory, String before, String... options) throws Exception {
        try (ChildJvm child = start(directory, before, List.of(options), Loading.class)) {
            List<String> output = child.finish();
            return output.get(output.size() - 1);
        }
    }

    /** The names in a directory. */
    static Set<String> names(Path directory) throws IOException {
        try (Stream<Path> files = Files.list(directory)) {
            return Set.copyOf(files.map(file -> file.getFileName().toString()).toList());
        }
    }
}
