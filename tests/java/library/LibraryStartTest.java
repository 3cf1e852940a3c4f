package com.corvane.kestrova.engine.tabulo.jni;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.io.IOException;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.List;
import java.util.function.Predicate;
import java.util.stream.Stream;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.io.TempDir;

/** What a process sees of the library before and around its settings; each test in a virtual machine of its own. */
class LibraryStartTest {
    private static final String WARNING = "Tabulo/C WARNING: mt_getLastMessageId(): "
            + "Connection message id offset (-1) out of bounds";

    @TempDir
    Path directory;

    private Path log(ChildJvm child) {
        return directory.resolve("tabulo-" + Long.toUnsignedString(child.id()) + ".log");
    }

    private static void warn() {
        long handle = Natives.open(new Provider(Path.of("").toAbsolutePath()), Natives.WRITE);
        try {
            Natives.lastMessageId(handle, -1);
            throw new AssertionError("nothing was thrown");
        } catch (JNITboException expected) {
            Natives.free(handle);
        }
    }

    private static List<String> lines(ChildJvm child, Predicate<String> wanted) {
        return child.errors().stream().filter(wanted).toList();
    }

    /** Loads the library and nothing else. */
    static final class LoadOnly {
        public static void main(String[] arguments) {
            JNITboLibLoader.load(System.getProperty("tabulo.nativeLibrary"));
        }
    }

    @Test
    void loadingAloneLogsNothing() throws Exception {
        try (ChildJvm child = ChildJvm.start(directory, LoadOnly.class)) {
            child.finish();
            assertEquals(List.of(), lines(child, line -> line.contains("Tabulo")));
            assertFalse(Files.exists(log(child)));
        }
    }

    /** Uses everything that can be used first, before anything is loaded. */
    static final class TooEarly {
        private static void expectAdvice(Runnable use) {
            try {
                use.run();
                System.out.println("nothing was thrown");
            } catch (UnsatisfiedLinkError error) {
                System.out.println(error.getMessage().contains("call JNITboLibLoader.load()") + " "
                        + (error.getCause() instanceof UnsatisfiedLinkError));
            }
        }

        public static void main(String[] arguments) {
            Provider provider = new Provider(Path.of(""));
            expectAdvice(() -> JNITboMessageTable.open(provider, JNITboMessageTable.MODE_WRITE));
            expectAdvice(() -> JNITboSessionInfoTable.open(provider, JNITboSessionInfoTable.MODE_WRITE));
            expectAdvice(JNITboMessageWatcher::open);
            expectAdvice(() -> JNITboLibLoader.setLogFacility(new RecordingFacility()));
        }
    }

    @Test
    void aUseBeforeLoadingSaysWhichCallLoads() throws Exception {
        try (ChildJvm child = ChildJvm.start(directory, TooEarly.class)) {
            assertEquals(List.of("true true", "true true", "true true", "true true"), child.finish());
        }
    }

    /** Loads the library by its name and initialises it. */
    static final class Init {
        public static void main(String[] arguments) {
            JNITboLibLoader.load();
            JNITboLibLoader.initLibrary();
            JNITboLibLoader.initLibrary();
        }
    }

    @Test
    void initLibraryBeginsTheLogFileAndAnnouncesItOnce() throws Exception {
        Path library = Path.of(System.getProperty("tabulo.nativeLibrary"));
        String search = "export LD_LIBRARY_PATH='" + library.getParent() + "';";
        try (ChildJvm child = ChildJvm.start(directory, search, List.of(), Init.class)) {
            child.finish();
            assertEquals(List.of("Tabulo/C DEBUG: initing log file tabulo-" + child.id() + ".log..."),
                    lines(child, line -> line.contains("Tabulo")));
            String line = "Tabulo/C DEBUG: initLibrary(): initializing log file\n";
            assertEquals(line + line, Files.readString(log(child)));
        }
    }

    /** Warns without a facility. */
    static final class NoFacility {
        public static void main(String[] arguments) {
            Natives.load();
            warn();
        }
    }

    @Test
    void withoutAFacilityWarningsAreOnStandardErrorAndNotesNowhere() throws Exception {
        try (ChildJvm child = ChildJvm.start(directory, NoFacility.class)) {
            List<String> output = child.finish();
            assertEquals(List.of(WARNING), lines(child, line -> line.contains("WARNING: ")));
            assertEquals(List.of(), lines(child, line -> line.contains("NOTE")));
            assertFalse(output.stream().anyMatch(line -> line.contains("Tabulo/C")), "nothing on standard output");
            String debug = Files.readString(log(child));
            assertTrue(debug.contains("Tabulo/C DEBUG: + mt_create(): "), "debug lines are in the file in any case");
            assertFalse(debug.contains("NOTE") || debug.contains("WARNING"), "and no others");
        }
    }

    /** Warns behind uninitLibrary, with and without a facility before it. */
    static final class Uninit {
        public static void main(String[] arguments) {
            Natives.load();
            if (arguments.length > 0) {
                JNITboLibLoader.setLogFacility(new RecordingFacility());
            }
            JNITboLibLoader.uninitLibrary();
            warn();
        }
    }

    @Test
    void afterUninitLibraryNotesAndWarningsAreDropped() throws Exception {
        for (String[] arguments : new String[][] {{}, {"with a facility"}}) {
            try (ChildJvm child = ChildJvm.start(directory, Uninit.class, arguments)) {
                child.finish();
                assertEquals(List.of(), lines(child, line -> line.contains("NOTE") || line.contains("WARNING: ")));
                assertTrue(Files.readString(log(child)).contains("Tabulo/C DEBUG: - mt_create(): "));
            }
        }
    }

    /** Installs what is no facility, then warns. */
    static final class WrongFacility {
        public static void main(String[] arguments) {
            Natives.load();
            JNITboLibLoader.setLogFacility((Object) null);
            JNITboLibLoader.setLogFacility(new Object());
            warn();
        }
    }

    @Test
    void aWrongFacilityLeavesWarningsOnStandardError() throws Exception {
        try (ChildJvm child = ChildJvm.start(directory, WrongFacility.class)) {
            child.finish();
            assertEquals(List.of(WARNING), lines(child, line -> line.contains("WARNING: ")));
        }
    }

    /** Prints the limit of open files before and after initLibrary. */
    static final class Limits {
        public static void main(String[] arguments) throws IOException {
            System.out.println("before " + openFiles());
            Natives.load();
            System.out.println("after " + openFiles());
        }

        private static String openFiles() throws IOException {
            try (Stream<String> lines = Files.lines(Path.of("/proc/self/limits"))) {
                return lines.filter(line -> line.startsWith("Max open files")).findFirst().orElseThrow()
                        .split("\\s+")[3];
            }
        }
    }

    private List<String> limits(String shell) throws Exception {
        try (ChildJvm child = ChildJvm.start(directory, shell, List.of("-XX:-MaxFDLimit"), Limits.class)) {
            return child.finish().stream().filter(line -> line.matches("(before|after) \\d+")).toList();
        }
    }

    @Test
    void initLibraryRaisesALowLimitOfOpenFilesTo2048() throws Exception {
        assertEquals(List.of("before 512", "after 2048"), limits("ulimit -Sn 512;"));
    }

    @Test
    void initLibraryLeavesAHigherLimitOfOpenFiles() throws Exception {
        assertEquals(List.of("before 2500", "after 2500"), limits("ulimit -Sn 2500;"));
    }

    @Test
    void initLibraryRaisesTheLimitOfOpenFilesAsFarAsItMay() throws Exception {
        assertEquals(List.of("before 512", "after 1000"), limits("ulimit -Sn 512; ulimit -Hn 1000;"));
    }
}
