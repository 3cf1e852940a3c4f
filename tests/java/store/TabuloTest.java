package com.corvane.kestrova.engine.tabulo.jni;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertThrows;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.corvane.kestrova.engine.tabulo.store.MessageStore;
import com.corvane.kestrova.engine.tabulo.store.SyncPolicy;
import com.corvane.kestrova.engine.tabulo.store.Tabulo;
import com.corvane.kestrova.engine.tabulo.store.TabuloLockedException;
import java.io.IOException;
import java.lang.reflect.Proxy;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Path;
import java.time.Duration;
import java.util.List;
import org.junit.jupiter.api.AfterEach;
import org.junit.jupiter.api.Test;

/** What holds for the library as a whole: loading, logging, commits to the disk. */
class TabuloTest extends OnStores {
    private static final String COMMIT = "flushesCount = ";

    @AfterEach
    void commitNothing() {
        Tabulo.sync(SyncPolicy.off());
    }

    @Test
    void loadingAgainDoesNothing() {
        Tabulo.load();  // which would not find the library
        Tabulo.load(Path.of("no such file"));
        storeNumbered(orders(), 1, 1);
    }

    @Test
    void oneLineOfTheLibraryIsOneRecordOfItsLevel() {
        RecordingLogger logger = new RecordingLogger();
        Tabulo.logTo(logger);
        orders();
        assertThrows(TabuloLockedException.class, () -> MessageStore.openWriter(file()));
        List<String> records = logger.records();
        assertTrue(records.stream().anyMatch(record -> record.startsWith("DEBUG: ")), records::toString);
        assertTrue(records.stream().anyMatch(record -> record.startsWith("WARNING: ")), records::toString);
        for (String record : records) {
            assertTrue(record.matches("(DEBUG|WARNING): Tabulo/C[^\n]*"), record);
        }
    }

    @Test
    void whatALoggerThrowsIsDropped() {
        Tabulo.logTo((System.Logger) Proxy.newProxyInstance(getClass().getClassLoader(),
                new Class<?>[] {System.Logger.class}, (proxy, method, arguments) -> {
                    throw new OnPurpose("a logger");
                }));
        storeNumbered(orders(), 1, 1);
        Tabulo.logTo(new RecordingLogger());
    }

    /** The library's own log has a line for each commit. */
    private static long commits() throws IOException {
        Path log = Path.of("tabulo-" + ProcessHandle.current().pid() + ".log");
        try (var lines = Files.lines(log, StandardCharsets.ISO_8859_1)) {
            return lines.filter(line -> line.contains(COMMIT)).count();
        }
    }

    private static long commitsOf(MessageStore store, int messages) throws IOException {
        long before = commits();
        storeNumbered(store, 1, messages);
        return commits() - before;
    }

    @Test
    void eachPolicyCommitsAsItSays() throws IOException {
        MessageStore store = orders();
        assertEquals(0, commitsOf(store, 20), "as loaded");
        Tabulo.sync(SyncPolicy.always());
        assertEquals(20, commitsOf(store, 20));
        for (int count : new int[] {2, 3, 7, 10}) {
            Tabulo.sync(SyncPolicy.everyMessages(count));
            long commits = commitsOf(store, 100);
            assertTrue(commits >= 100 / count - 1, () -> commits + " commits of 100 messages, every " + count);
            assertTrue(commits <= 100 / (count - 1) + 1, () -> commits + " commits of 100 messages, every " + count);
        }
        Tabulo.sync(SyncPolicy.everyMessages(1));
        assertEquals(5, commitsOf(store, 5));
        Tabulo.sync(SyncPolicy.every(Duration.ofHours(1)));
        assertTrue(commitsOf(store, 50) <= 1);
        Tabulo.sync(SyncPolicy.off());
        assertEquals(0, commitsOf(store, 20));
    }

    @Test
    void impossiblePoliciesAreRefused() {
        assertThrows(IllegalArgumentException.class, () -> SyncPolicy.everyMessages(0));
        assertThrows(IllegalArgumentException.class, () -> SyncPolicy.every(Duration.ofMillis(999)));
        assertThrows(IllegalArgumentException.class, () -> SyncPolicy.every(Duration.ofSeconds(1L << 31)));
        SyncPolicy.every(Duration.ofSeconds(Integer.MAX_VALUE));
    }
}
