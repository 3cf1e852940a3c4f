package com.corvane.kestrova.engine.tabulo.jni;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.io.IOException;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.List;
import org.junit.jupiter.api.AfterEach;
import org.junit.jupiter.api.BeforeEach;
import org.junit.jupiter.api.Test;

/** setDoSyncToDisk, told by the lines that physical syncs leave in the log file. */
class SyncPolicyTest extends OnTables {
    private static final String SYNC = "Tabulo/C DEBUG: tableFileFlush(): physical sync performed: ";

    private long handle;

    @BeforeEach
    void openATable() {
        handle = openForWriting();
    }

    @AfterEach
    void syncNothing() {
        JNITboLibLoader.setDoSyncToDisk(false, 0, 0);
    }

    private static List<String> syncs() throws IOException {
        Path log = Path.of("tabulo-" + ProcessHandle.current().pid() + ".log");
        return Files.readString(log, StandardCharsets.ISO_8859_1).lines().filter(line -> line.startsWith(SYNC))
                .toList();
    }

    /** How many syncs the messages cost. */
    private int syncsOf(int first, int last) throws IOException {
        int before = syncs().size();
        writeNumbered(handle, first, last);
        return syncs().size() - before;
    }

    private static String lastFlushes() throws IOException {
        List<String> all = syncs();
        String last = all.get(all.size() - 1);
        return last.substring(last.indexOf("flushesCount"));
    }

    @Test
    void atTheStartNothingIsSynced() throws IOException {
        assertEquals(0, syncsOf(1, 50));
    }

    @Test
    void withNeitherIntervalNorCountEveryMessageIsSynced() throws IOException {
        JNITboLibLoader.setDoSyncToDisk(true, 0, 0);
        assertEquals(7, syncsOf(1, 7));
        assertEquals("flushesCount = 1", lastFlushes());
    }

    @Test
    void aCountOfFiveSyncsAtTheTenthFlushNotTheFifth() throws IOException {
        close(handle);
        handle = openForWriting();
        JNITboLibLoader.setDoSyncToDisk(true, 0, 5);
        assertEquals(0, syncsOf(1, 9));
        assertEquals(1, syncsOf(10, 10));
        assertEquals("flushesCount = 10", lastFlushes());
        assertEquals(0, syncsOf(11, 19));
        assertEquals(1, syncsOf(20, 20));
    }

    @Test
    void switchedOffNothingIsSyncedWhateverTheOtherValuesAre() throws IOException {
        JNITboLibLoader.setDoSyncToDisk(false, 1, 1);
        assertEquals(0, syncsOf(1, 20));
        JNITboLibLoader.setDoSyncToDisk(true, 0, 1);
        assertTrue(syncsOf(21, 30) > 0, "the policy holds for tables that are open already");
        JNITboLibLoader.setDoSyncToDisk(false, 0, 1);
        assertEquals(0, syncsOf(31, 40));
    }

    @Test
    void anIntervalSyncsTheFirstFlushAndThenWaits() throws IOException {
        close(handle);
        handle = openForWriting();
        JNITboLibLoader.setDoSyncToDisk(true, 3600, 0);
        assertEquals(1, syncsOf(1, 1));
        assertEquals(0, syncsOf(2, 100));
    }

    @Test
    void anIntervalAndACountTogetherSyncWhenEitherIsDue() throws IOException {
        close(handle);
        handle = openForWriting();
        JNITboLibLoader.setDoSyncToDisk(true, 3600, 2);
        assertEquals(1, syncsOf(1, 1), "the interval is due");
        assertEquals(0, syncsOf(2, 4));
        assertEquals(1, syncsOf(5, 5), "four flushes since");
    }

    @Test
    void theLargestCountsDoNotOverflow() throws IOException {
        close(handle);
        handle = openForWriting();
        JNITboLibLoader.setDoSyncToDisk(true, 0, Integer.MAX_VALUE);
        assertEquals(0, syncsOf(1, 50));
    }
}
