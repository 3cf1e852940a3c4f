package com.corvane.kestrova.engine.tabulo.jni;

import static com.corvane.kestrova.engine.tabulo.jni.Errors.assertFails;
import static com.corvane.kestrova.engine.tabulo.jni.JNITboErrorCodes.CONSISTENCY_ERROR;
import static com.corvane.kestrova.engine.tabulo.jni.JNITboErrorCodes.INDEX_OUT_OF_BOUNDS_ERROR;
import static com.corvane.kestrova.engine.tabulo.jni.JNITboErrorCodes.JNI_ERROR;
import static com.corvane.kestrova.engine.tabulo.jni.JNITboErrorCodes.NULL_POINTER_ERROR;
import static com.corvane.kestrova.engine.tabulo.jni.JNITboErrorCodes.TABLE_CLOSED_ERROR;
import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertThrows;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.corvane.kestrova.engine.tabulo.TableConfiguration;
import java.io.IOException;
import java.io.UncheckedIOException;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.List;
import org.junit.jupiter.api.Test;

/** Wrong arguments of a watch, and errors that end it. */
class JNITboMessageWatcherErrorsTest extends OnWatchedTables {
    private static final String OUT_OF_BOUNDS = "Tabulo/C DEBUG: JNITboMessageWatcher_startWatching(): index out of"
            + " bounds while obtaiting uniformMessageIds from passed array (passed size = ";

    private static String debugLog() {
        try {
            Path log = Path.of("tabulo-" + ProcessHandle.current().pid() + ".log");
            return Files.exists(log) ? Files.readString(log) : "";
        } catch (IOException unreadable) {
            throw new UncheckedIOException(unreadable);
        }
    }

    private static CompactRecorder neverCalled() {
        return new CompactRecorder((call, count) -> {
            throw new AssertionError("the listener is called");
        });
    }

    private void assertRefused(int code, long watcher, int count, int[] ids) {
        CompactRecorder recorder = neverCalled();
        assertFails(code, () -> WatcherNatives.watchCompact(watcher, count, ids, recorder));
        assertEquals(List.of(), recorder.counts);
    }

    @Test
    void aZeroHandleAmongTheTablesIsAClosedTable() {
        long table = filled("one", 1);
        assertFails(TABLE_CLOSED_ERROR, () -> WatcherNatives.initialize(0));
        assertFails(TABLE_CLOSED_ERROR, () -> WatcherNatives.initialize(table, 0, 0));
    }

    @Test
    void aNullArrayOfTablesIsAnErrorOfTheBinding() {
        assertFails(JNI_ERROR, () -> WatcherNatives.initialize((long[]) null));
    }

    @Test
    void anEmptyArrayOfTablesMakesAWatcherThatOnlyIdles() {
        CompactRecorder recorder = new CompactRecorder((call, count) -> call == 5 ? 1 : 0);
        assertEquals(0, WatcherNatives.watchCompact(watcher(), 0, new int[0], recorder));
        assertEquals(List.of(0, 0, 0, 0, 0), recorder.counts);
        assertEquals(startLine("") + stopLine(-1), facility.warnings());
    }

    @Test
    void anEmptyArrayOfTablesNeedsNoArrayOfIds() {
        assertEquals(0, WatcherNatives.watchCompact(watcher(), 0, null, new CompactRecorder()));
    }

    @Test
    void aCountAboveTheArrayIsOutOfBoundsBeforeTheWatcherStarts() {
        long watcher = watcher(filled("one", 1));
        int before = debugLog().length();
        assertRefused(INDEX_OUT_OF_BOUNDS_ERROR, watcher, 2, new int[] {1});
        assertRefused(INDEX_OUT_OF_BOUNDS_ERROR, watcher, 1, new int[0]);
        String log = debugLog().substring(before);
        assertTrue(log.contains(OUT_OF_BOUNDS + "2)\n"), log);
        assertTrue(log.contains(OUT_OF_BOUNDS + "1)\n"), log);
        assertEquals("", facility.warnings(), "the watcher starts");
    }

    @Test
    void aNegativeCountIsOutOfBounds() {
        long watcher = watcher(filled("one", 1));
        int before = debugLog().length();
        assertRefused(INDEX_OUT_OF_BOUNDS_ERROR, watcher, -1, new int[] {1});
        assertRefused(INDEX_OUT_OF_BOUNDS_ERROR, watcher, Integer.MIN_VALUE, null);
        String log = debugLog().substring(before);
        assertTrue(log.contains(OUT_OF_BOUNDS + "-1)\n"), log);
        assertTrue(log.contains(OUT_OF_BOUNDS + "-2147483648)\n"), log);
    }

    @Test
    void aNullArrayOfIdsIsANullPointer() {
        assertRefused(NULL_POINTER_ERROR, watcher(filled("one", 1)), 1, null);
        assertEquals("", facility.warnings(), "the watcher starts");
    }

    @Test
    void theIdsAreCheckedBeforeTheHandle() {
        assertRefused(INDEX_OUT_OF_BOUNDS_ERROR, 0, 2, new int[] {1});
        assertRefused(NULL_POINTER_ERROR, 0, 1, new int[] {1});
        assertRefused(NULL_POINTER_ERROR, 0, 1, null);
    }

    @Test
    void fewerIdsThanTablesAreOutOfBoundsWithALineForTheStartAndTheEnd() {
        long watcher = watcher(filled("one", 1), filled("two", 2));
        assertRefused(INDEX_OUT_OF_BOUNDS_ERROR, watcher, 1, new int[] {1, 1});
        assertEquals(startLine("1 ") + errorLine(INDEX_OUT_OF_BOUNDS_ERROR, -1), facility.warnings());
    }

    @Test
    void aZeroWatcherIsFreedWithoutAWord() {
        WatcherNatives.uninitialize(0);
    }

    @Test
    void aListenerThatThrowsEndsTheWatch() {
        long writer = openForWriting();
        writeNumbered(writer, 1, 2);
        long watcher = watcher(openForReading());
        CompactRecorder recorder = new CompactRecorder((call, count) -> {
            throw new IllegalStateException("thrown by a listener on purpose");
        });
        assertFails(JNI_ERROR, () -> WatcherNatives.watchCompact(watcher, 1, FROM_THE_FIRST, recorder));
        assertEquals(List.of(2), recorder.counts, "it is called no more");
        assertEquals(startLine("1 ") + errorLine(JNI_ERROR, 2), facility.warnings());
        CompactRecorder again = new CompactRecorder();
        assertEquals(0, WatcherNatives.watchCompact(watcher, 1, FROM_THE_FIRST, again));
        assertEquals(List.of(1, 2), again.ids, "the watcher can be started again");
    }

    @Test
    void aListenerThatThrowsAtAFullBatchEndsTheWatch() {
        long writer = openForWriting();
        writeNumbered(writer, 1, 1001);
        CompactRecorder recorder = new CompactRecorder((call, count) -> {
            throw new IllegalStateException("thrown by a listener on purpose");
        });
        long watcher = watcher(writer);
        assertFails(JNI_ERROR, () -> WatcherNatives.watchCompact(watcher, 1, FROM_THE_FIRST, recorder));
        assertEquals(List.of(1000), recorder.counts);
    }

    /** Stores three messages and one whose trailing length differs from its leading one. */
    private void writeDamaged(long writer) {
        try {
            writeNumbered(writer, 1, 4);
            byte[] bytes = fileBytes();
            bytes[bytes.length - 1] = 1;
            Files.write(file(), bytes);
        } catch (IOException failed) {
            throw new UncheckedIOException(failed);
        }
    }

    @Test
    void whatWasGatheredIsHandedOverBeforeAnErrorIsThrown() {
        long writer = openForWriting();
        long watcher = watcher(openForReading());
        CompactRecorder recorder = new CompactRecorder((call, count) -> {
            if (call == 1) {
                writeDamaged(writer);
            }
            return 0;
        });
        assertFails(CONSISTENCY_ERROR, () -> WatcherNatives.watchCompact(watcher, 1, FROM_THE_FIRST, recorder));
        assertEquals(List.of(0, 3), recorder.counts);
        assertEquals(List.of(1, 2, 3), recorder.ids);
        assertEquals(startLine("1 ") + errorLine(CONSISTENCY_ERROR, 3), facility.warnings());
    }

    @Test
    void whatTheLastHandOverAnswersOrThrowsChangesNothing() {
        long writer = openForWriting();
        long watcher = watcher(openForReading());
        for (boolean throwing : new boolean[] {false, true}) {
            Natives.drop(writer);
            CompactRecorder recorder = new CompactRecorder((call, count) -> {
                if (call == 1) {
                    writeDamaged(writer);
                    return 0;
                }
                if (throwing) {
                    throw new IllegalStateException("thrown by a listener on purpose");
                }
                return 1;
            });
            assertFails(CONSISTENCY_ERROR, () -> WatcherNatives.watchCompact(watcher, 1, FROM_THE_FIRST, recorder));
            assertEquals(List.of(0, 3), recorder.counts);
        }
    }

    @Test
    void aClosedWatcherAndAClosedTableAreRefusedByThePeers() {
        openForWriting();
        TableConfiguration configuration = TableConfiguration.builder("orders", directory).build();
        JNITboMessageTable table = JNITboMessageTable.open(configuration, JNITboMessageTable.MODE_READ);
        JNITboMessageWatcher watcher = JNITboMessageWatcher.open(table);
        table.close();
        JNITboException closedTable = assertThrows(JNITboException.class,
                () -> watcher.startWatchingCompact(new int[] {1}, neverCalled()));
        assertEquals(TABLE_CLOSED_ERROR, closedTable.getErrorCode());
        watcher.close();
        watcher.close();
        JNITboException closedWatcher = assertThrows(JNITboException.class,
                () -> watcher.startWatchingCompact(new int[] {1}, neverCalled()));
        assertEquals(NULL_POINTER_ERROR, closedWatcher.getErrorCode());
        assertThrows(JNITboException.class, () -> JNITboMessageWatcher.open(table));
    }

    @Test
    void neitherTheWatcherNorItsTablesCanBeClosedByTheirOwnListener() {
        writeNumbered(openForWriting(), 1, 1);
        TableConfiguration configuration = TableConfiguration.builder("orders", directory).build();
        try (JNITboMessageTable table = JNITboMessageTable.open(configuration, JNITboMessageTable.MODE_READ);
                JNITboMessageWatcher watcher = JNITboMessageWatcher.open(table)) {
            CompactRecorder recorder = new CompactRecorder((call, count) -> {
                assertThrows(IllegalStateException.class, watcher::close);
                assertThrows(IllegalStateException.class, table::close);
                assertThrows(IllegalStateException.class,
                        () -> watcher.startWatchingCompact(new int[] {1}, neverCalled()));
                return 1;
            });
            watcher.startWatchingCompact(new int[] {1}, recorder);
            assertEquals(List.of(1), recorder.ids);
        }
    }
}
