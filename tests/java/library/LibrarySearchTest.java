package com.corvane.kestrova.engine.tabulo.jni;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertThrows;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.io.IOException;
import java.lang.reflect.InvocationTargetException;
import java.net.URL;
import java.net.URLClassLoader;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.List;
import java.util.Set;
import org.junit.jupiter.api.BeforeEach;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.io.TempDir;

/** Where load() without a path looks, in which order, and what it says when nothing is found. */
class LibrarySearchTest {
    private static final String BUILT = System.getProperty("tabulo.nativeLibrary");
    private static final String NAMED = PackagedJar.fileOption("").replace("=", "");

    @TempDir
    Path directory;

    private Path extracted;
    private PackagedJar jar;

    @BeforeEach
    void makeJar() throws Exception {
        extracted = Files.createDirectory(directory.resolve("extracted"));
        jar = new PackagedJar(directory.resolve("jar"), "1.2.3");
    }

    private static void assertTells(String message, String... parts) {
        for (String part : parts) {
            assertTrue(message.contains(part), () -> "\"" + part + "\" is missing in: " + message);
        }
    }

    @Test
    void theFileThatThePropertyNamesIsTakenFirst() throws Exception {
        assertEquals("loaded", jar.load(extracted, "", PackagedJar.fileOption(BUILT), PackagedJar.pathOption("/nowhere")));
        assertEquals(Set.of(), PackagedJar.names(extracted));
    }

    @Test
    void aNamedFileThatCannotBeLoadedIsToldAndNoOtherIsTaken() throws Exception {
        String said = jar.load(extracted, "", PackagedJar.fileOption("/nowhere/libtabulo.so"),
                PackagedJar.pathOption(Path.of(BUILT).getParent()));
        assertTells(said, "the file that " + NAMED + " names cannot be loaded", "correct " + NAMED,
                "Tried: " + PackagedJar.fileOption("/nowhere/libtabulo.so"));
        assertEquals(Set.of(), PackagedJar.names(extracted));
    }

    @Test
    void theLibraryPathComesBeforeTheJar() throws Exception {
        assertEquals("loaded", jar.load(extracted, "", PackagedJar.pathOption(Path.of(BUILT).getParent())));
        assertEquals(Set.of(), PackagedJar.names(extracted));
    }

    @Test
    void aLibraryInThePathThatCannotBeLoadedLeavesTheJar() throws Exception {
        Path path = Files.createDirectory(directory.resolve("path"));
        Files.writeString(path.resolve("libtabulo.so"), "no library");
        assertEquals("loaded", jar.load(extracted, "", PackagedJar.pathOption(path)));
        assertEquals(1, PackagedJar.names(extracted).size());
    }

    @Test
    void aJarWithoutALibraryIsToldWithAllThatWasTried() throws Exception {
        Files.delete(jar.libraryFile());
        assertTells(jar.load(extracted, "", PackagedJar.pathOption("/nowhere")), "which is not the packaged one",
                PackagedJar.FILE_OPTION, "Tried: " + NAMED + " is not set; the library path (",
                "/nowhere", "; the jar");
    }

    @Test
    void anotherSystemIsToldWithThoseThatThereAreLibrariesFor() throws Exception {
        assertTells(jar.load(extracted, "", "-Dos.arch=riscv64"), "no library for Linux on riscv64",
                "linux-x86_64 and linux-aarch_64", PackagedJar.FILE_OPTION, "Tried: ");
    }

    @Test
    void systemsHaveTheNamesThatBuildToolsGiveThem() throws Exception {
        String glibc = "7f00-7f01 r-xp 0 08:01 1 /lib/x86_64-linux-gnu/libc.so.6\n";
        assertEquals("linux-x86_64", NativePlatform.of("Linux", "amd64", glibc));
        assertEquals("linux-aarch_64", NativePlatform.of("Linux", "aarch64", ""));
        assertThrows(NativeLibraryException.class, () -> NativePlatform.of("Mac OS X", "aarch64", ""));
        assertThrows(NativeLibraryException.class, () -> NativePlatform.of("Windows 11", "amd64", ""));
    }

    @Test
    void aSystemWithMuslIsToldThatGlibcIsNeeded() {
        NativeLibraryException refused = assertThrows(NativeLibraryException.class, () -> NativePlatform.of("Linux",
                "amd64", "7f00-7f01 r-xp 00000000 08:01 1 /lib/ld-musl-x86_64.so.1\n"));
        assertTells(refused.getMessage() + refused.advice(), "musl", "glibc 2.34", PackagedJar.FILE_OPTION);
    }

    /** Loads again when nothing could be loaded any more. */
    static final class LoadingAgain {
        public static void main(String[] arguments) throws IOException {
            if (arguments.length > 0) {
                JNITboLibLoader.load(arguments[0]);
            } else {
                JNITboLibLoader.load();
            }
            System.setProperty(String.join(".", "tabulo", "library"), "/nowhere");
            JNITboLibLoader.load();
            System.out.println("free");
        }
    }

    @Test
    void onceItIsLoadedLoadingAgainDoesNothing() throws Exception {
        try (ChildJvm first = jar.start(extracted, "", List.of(), LoadingAgain.class);
                ChildJvm second = jar.start(directory.resolve("none"), "", List.of(), LoadingAgain.class, BUILT)) {
            assertEquals(List.of("free"), first.finish());
            assertEquals(List.of("free"), second.finish());
        }
    }

    /** Loads the library in several class loaders. */
    static final class Loaders {
        private static final List<URLClassLoader> KEPT = new ArrayList<>();

        private static String load() throws Exception {
            List<URL> urls = new ArrayList<>();
            for (String entry : System.getProperty("java.class.path").split(":")) {
                urls.add(Path.of(entry).toUri().toURL());
            }
            KEPT.add(new URLClassLoader(urls.toArray(new URL[0]), ClassLoader.getPlatformClassLoader()));
            Class<?> loader = KEPT.get(KEPT.size() - 1).loadClass(JNITboLibLoader.class.getName());
            try {
                loader.getMethod("load").invoke(null);
                loader.getMethod("uninitLibrary").invoke(null);
                return "loaded";
            } catch (InvocationTargetException thrown) {
                return thrown.getCause().getMessage();
            }
        }

        public static void main(String[] arguments) throws Exception {
            System.out.println(load());
            System.out.println(load());
            System.setProperty("tabulo.tmpdir", arguments[0]);
            System.out.println(load());
            System.out.println("end");
            System.in.read();
        }
    }

    @Test
    void aSecondClassLoaderIsToldWhatHelpsAndThatHelps() throws Exception {
        Path other = Files.createDirectory(directory.resolve("other"));
        try (ChildJvm child = jar.start(extracted, "", List.of(), Loaders.class, other.toString())) {
            assertEquals("loaded", child.nextLine());
            assertTells(child.nextLine(), "another class loader of this virtual machine has loaded",
                    "a class loader that both share", "-Dtabulo.tmpdir", "Tried: ");
            assertEquals("loaded", child.nextLine());
            assertEquals("end", child.nextLine());
            // The refused one must not have given up the first one's lock.
            new PackagedJar(directory.resolve("newer"), "1.2.4").load(extracted, "");
            assertEquals(2, PackagedJar.names(extracted).size(), "a directory that is used was removed");
        }
    }
}
