package com.corvane.kestrova.engine.tabulo.jni;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertTrue;
import static org.junit.jupiter.api.Assumptions.assumeTrue;

import java.io.IOException;
import java.nio.file.Files;
import java.nio.file.Path;
import java.nio.file.attribute.PosixFilePermissions;
import java.util.ArrayList;
import java.util.List;
import java.util.Set;
import org.junit.jupiter.api.BeforeEach;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.io.TempDir;

/** The directory to which the jar's library is extracted: whose it is, when it is used again, when it goes. */
class ExtractedLibraryTest {
    private static final int NOBODY = 65534;

    @TempDir
    Path directory;

    private Path base;
    private PackagedJar jar;
    private Path own;

    @BeforeEach
    void makeJar() throws Exception {
        base = Files.createDirectory(directory.resolve("base"));
        jar = new PackagedJar(directory.resolve("jar"), "1.2.3");
        own = base.resolve("tabulo-" + PrivateDirectory.userId() + "-1.2.3-" + jar.hash().substring(0, 16));
    }

    private String load() throws Exception {
        return jar.load(base, "");
    }

    private static void assertTells(String message, String... parts) {
        for (String part : parts) {
            assertTrue(message.contains(part), () -> "\"" + part + "\" is missing in: " + message);
        }
    }

    /** What a refused place is told with. */
    private void assertRefused(String... parts) throws Exception {
        String message = load();
        assertTells(message, parts);
        assertTells(message, "-Dtabulo.tmpdir", "Tried: ", "extracted below " + base);
    }

    private void makeDirectory(String permissions) throws IOException {
        Files.createDirectory(own);
        Files.setPosixFilePermissions(own, PosixFilePermissions.fromString(permissions));
    }

    @Test
    void theLibraryIsExtractedToADirectoryThatTheUserAloneMayEnter() throws Exception {
        assertEquals("loaded", load());
        assertEquals(Set.of(own.getFileName().toString()), PackagedJar.names(base));
        assertEquals("rwx------", PosixFilePermissions.toString(Files.getPosixFilePermissions(own)));
        assertEquals(Set.of("lock", "libtabulo.so"), PackagedJar.names(own));
        assertEquals(-1, Files.mismatch(jar.libraryFile(), own.resolve("libtabulo.so")));
    }

    @Test
    void withoutThePropertyTheSystemsDirectoryIsTaken() throws Exception {
        try (ChildJvm child = ChildJvm.start(directory, "",
                List.of("-cp", jar.classPath(), "-Djava.io.tmpdir=" + base), PackagedJar.Loading.class)) {
            child.awaitLine("loaded");
        }
        assertEquals(Set.of(own.getFileName().toString()), PackagedJar.names(base));
    }

    @Test
    void whatIsThereAndIdenticalIsUsedAgain() throws Exception {
        load();
        Path file = own.resolve("libtabulo.so");
        Object before = Files.getAttribute(file, "unix:ino");
        assertEquals("loaded", load());
        assertEquals(before, Files.getAttribute(file, "unix:ino"), "it was extracted again");
    }

    @Test
    void aLibraryThatWasCleanedAwayIsExtractedAgain() throws Exception {
        load();
        Files.delete(own.resolve("libtabulo.so"));
        assertEquals("loaded", load());
        Files.delete(own.resolve("lock"));
        assertEquals("loaded", load());
        assertEquals(Set.of("lock", "libtabulo.so"), PackagedJar.names(own));
    }

    @Test
    void aFileThatDiffersIsRefused() throws Exception {
        load();
        byte[] bytes = Files.readAllBytes(own.resolve("libtabulo.so"));
        bytes[bytes.length / 2] ^= 1;
        Files.write(own.resolve("libtabulo.so"), bytes);
        assertRefused("is not what was extracted", "it has the SHA-256 " + BundledLibrary.hashOf(bytes),
                "and not " + jar.hash(), "remove it");
    }

    @Test
    void aLinkInTheLibrarysPlaceIsRefused() throws Exception {
        makeDirectory("rwx------");
        Files.createSymbolicLink(own.resolve("libtabulo.so"), jar.libraryFile());
        assertRefused("libtabulo.so is no file", "remove it");
    }

    @Test
    void aJarWhoseLibraryDiffersFromItsHashIsRefused() throws Exception {
        byte[] bytes = Files.readAllBytes(jar.libraryFile());
        bytes[bytes.length - 1] ^= 1;
        Files.write(jar.libraryFile(), bytes);
        assertTells(load(), "the jar is damaged", "and not " + jar.hash(), PackagedJar.FILE_OPTION);
        assertEquals(Set.of(), PackagedJar.names(base));
    }

    @Test
    void aDirectoryThatOthersMayEnterIsRefused() throws Exception {
        makeDirectory("rwxr-xr-x");
        assertRefused("others may enter it: its mode is 755", "is not used", "remove it");
        assertEquals(Set.of(), PackagedJar.names(own));
    }

    @Test
    void aLinkInTheDirectorysPlaceIsRefused() throws Exception {
        Path elsewhere = Files.createDirectory(directory.resolve("elsewhere"));
        Files.setPosixFilePermissions(elsewhere, PosixFilePermissions.fromString("rwx------"));
        Files.createSymbolicLink(own, elsewhere);
        assertRefused("it is no directory", "is not used", "remove it");
        assertEquals(Set.of(), PackagedJar.names(elsewhere));
    }

    @Test
    void aDirectoryOfAnotherUserIsRefused() throws Exception {
        assumeTrue(PrivateDirectory.userId() == 0, "only root can give a directory to another user");
        makeDirectory("rwx------");
        Files.setAttribute(own, "unix:uid", NOBODY);
        assertRefused("it belongs to the user 65534 and not to 0", "is not used", "remove it");
        assertEquals(Set.of(), PackagedJar.names(own));
    }

    @Test
    void whatAnotherVersionLeftIsRemovedWhenNobodyUsesItAnyMore() throws Exception {
        PackagedJar older = new PackagedJar(directory.resolve("older"), "1.2.2");
        try (ChildJvm user = older.start(base, "", List.of(), PackagedJar.Loading.class, "wait")) {
            user.awaitLine("loaded");
            assertEquals("loaded", load());
            assertEquals(2, PackagedJar.names(base).size(), "what is used must stay");
            user.kill();
        }
        Path left = base.resolve(own.getFileName().toString().replace("1.2.3", "1.2.2"));
        Files.writeString(left.resolve("libtabulo.so.unfinished"), "what a process left that was killed");
        Files.createDirectory(base.resolve("tabulo-" + NOBODY + "-1.2.2-0"));
        assertEquals("loaded", load());
        assertEquals(Set.of(own.getFileName().toString(), "tabulo-" + NOBODY + "-1.2.2-0"), PackagedJar.names(base));
    }

    @Test
    void manyProcessesThatBeginTogetherAllGetIt() throws Exception {
        PackagedJar other = new PackagedJar(directory.resolve("other"), "1.2.4");
        List<ChildJvm> children = new ArrayList<>();
        try {
            for (int i = 0; i < 6; ++i) {
                children.add((i % 3 == 0 ? other : jar).start(base, "", List.of(), PackagedJar.Loading.class));
            }
            for (ChildJvm child : children) {
                assertEquals(List.of("loaded"), child.finish());
            }
        } finally {
            children.forEach(ChildJvm::close);
        }
        String name = own.getFileName().toString();
        Set<String> left = PackagedJar.names(base);
        assertTrue(!left.isEmpty() && Set.of(name, name.replace("1.2.3", "1.2.4")).containsAll(left), left::toString);
    }
}
