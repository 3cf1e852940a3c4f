package com.corvane.kestrova.engine.tabulo.jni;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertTrue;
import static org.junit.jupiter.api.Assumptions.assumeTrue;

import java.nio.file.Files;
import java.nio.file.Path;
import org.junit.jupiter.api.BeforeEach;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.io.TempDir;

/** Places to which the library cannot be extracted, or from which it cannot be loaded: file systems of the test's own. */
class RefusedExtractionTest {
    @TempDir
    Path directory;

    private Path base;
    private PackagedJar jar;

    @BeforeEach
    void makeJar() throws Exception {
        base = Files.createDirectory(directory.resolve("base"));
        jar = new PackagedJar(directory.resolve("jar"), "1.2.3");
    }

    /** Runs what comes behind it where these commands have mounted something that nobody else sees. */
    private static String behind(String mounting) throws Exception {
        String unshare = PrivateDirectory.userId() == 0 ? "unshare -m" : "unshare -rm";
        Process tried = new ProcessBuilder("sh", "-c", unshare + " true").start();
        assumeTrue(tried.waitFor() == 0, "file systems cannot be mounted here");
        return "exec " + unshare + " sh -c '" + mounting + " && exec \"$@\"' sh \"$@\";";
    }

    private void assertTells(String message, String... parts) {
        for (String part : parts) {
            assertTrue(message.contains(part), () -> "\"" + part + "\" is missing in: " + message);
        }
        assertTrue(message.contains("set -Dtabulo.tmpdir to a directory") && message.contains("Tried: ")
                && message.contains("extracted below " + base), message);
    }

    @Test
    void aPlaceWithoutExecutionIsTold() throws Exception {
        assertTells(jar.load(base, behind("mount -t tmpfs -o noexec none " + base)), "noexec", PackagedJar.FILE_OPTION);
    }

    @Test
    void aFullDiskIsTold() throws Exception {
        String said = jar.load(base, behind("mount -t tmpfs -o size=64k none " + base));
        assertTells(said, "cannot be extracted to ", "No space left on device");
    }

    @Test
    void aDiskThatCannotBeWrittenIsTold() throws Exception {
        assertTells(jar.load(base, behind("mount -t tmpfs -o ro none " + base)), "cannot be extracted to ",
                "Read-only file system");
    }

    @Test
    void whatIsOnADiskThatCannotBeWrittenIsUsed() throws Exception {
        assertEquals("loaded", jar.load(base, ""));
        assertEquals("loaded",
                jar.load(base, behind("mount --bind " + base + " " + base + " && mount -o remount,ro,bind " + base)));
    }

    @Test
    void aFileSizeLimitIsToldAndNothingOfTheLibraryIsLeft() throws Exception {
        assertTells(jar.load(base, "ulimit -f 64;"), "cannot be extracted to ", "File too large");
        Path made = base.resolve(PackagedJar.names(base).iterator().next());
        assertEquals("[lock]", PackagedJar.names(made).toString());
    }

    @Test
    void aDirectoryThatDoesNotExistIsTold() throws Exception {
        base = directory.resolve("none");
        assertTells(jar.load(base, ""), "none is no directory");
    }
}
