package com.corvane.kestrova.engine.tabulo.jni;

import static org.junit.jupiter.api.Assertions.assertArrayEquals;
import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertNull;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.corvane.kestrova.engine.tabulo.TableConfiguration;
import java.io.IOException;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.List;
import org.junit.jupiter.api.Test;

/** What a watch hands to Java, in which batches, and how it is stopped. */
class JNITboMessageWatcherDeliveryTest extends OnWatchedTables {
    @Test
    void twoTablesAreDeliveredInTheOrderOfTheirUniformIds() {
        CompactRecorder recorder = watchAll(filled("one", 1, 3), filled("two", 2, 4));
        assertEquals(List.of(1, 2, 3, 4), recorder.ids);
        assertEquals(List.of(4, 0), recorder.counts, "what was gathered comes when nothing is new");
        assertEquals(List.of("8=FIX.4.4|34=1", "8=FIX.4.4|34=2", "8=FIX.4.4|34=3", "8=FIX.4.4|34=4"), recorder.wires);
    }

    @Test
    void plainBatchesCarryTimeStampsWireMessagesAndOtherFields() {
        RecordingListener listener = new RecordingListener(call -> call);
        int code = WatcherNatives.watch(watcher(filled("one", 1, 3), filled("two", 2)), 2, FROM_THE_FIRST, listener);
        assertEquals(0, code, "a stop is no error");
        assertEquals(List.of(3), listener.counts());
        assertEquals(List.of(1_001L, 1_002L, 1_003L), listener.timestamps());
        assertEquals(List.of("8=FIX.4.4|34=1", "8=FIX.4.4|34=2", "8=FIX.4.4|34=3"), listener.wires());
        assertArrayEquals(latin1("58=2"), listener.batches.get(0).others()[1]);
    }

    @Test
    void absentTextsAreNullAndEmptyOnesEmpty() {
        long writer = openForWriting();
        write(writer, m -> {
            m.wire = null;
            m.nonMetadata = "";
        });
        RecordingListener listener = new RecordingListener(call -> 1);
        WatcherNatives.watch(watcher(writer), 1, FROM_THE_FIRST, listener);
        assertNull(listener.batches.get(0).wires()[0]);
        assertArrayEquals(new byte[0], listener.batches.get(0).others()[0]);
    }

    @Test
    void aFullBatchIsHandedOverBeforeTheNextMessageIsAdded() {
        long writer = openForWriting();
        writeNumbered(writer, 1, 2500);
        CompactRecorder recorder = watchAll(openForReading());
        assertEquals(List.of(1000, 1000, 500, 0), recorder.counts);
        assertEquals(numbers(1, 2500), recorder.ids);
    }

    @Test
    void aBatchThatIsJustFullComesWhenNothingIsNew() {
        long writer = openForWriting();
        writeNumbered(writer, 1, 1000);
        assertEquals(List.of(1000, 0), watchAll(openForReading()).counts);
    }

    @Test
    void theMessageAtHandWhenJavaStopsIsDeliveredByARestart() {
        long writer = openForWriting();
        writeNumbered(writer, 1, 1500);
        long watcher = watcher(openForReading());
        CompactRecorder first = new CompactRecorder((call, count) -> 7);
        assertEquals(0, WatcherNatives.watchCompact(watcher, 1, FROM_THE_FIRST, first));
        assertEquals(List.of(1000), first.counts, "nothing comes behind a stop");
        CompactRecorder second = new CompactRecorder();
        assertEquals(0, WatcherNatives.watchCompact(watcher, 1, new int[] {1001}, second));
        assertEquals(numbers(1001, 1500), second.ids);
    }

    @Test
    void aStopAtAnEmptyBatchEndsAnIdleWatch() {
        CompactRecorder recorder = watchAll(filled("one"));
        assertEquals(List.of(0), recorder.counts);
        assertEquals(startLine("1 ") + stopLine(-1), facility.warnings());
    }

    @Test
    void anAnswerBelowZeroStopsToo() {
        CompactRecorder recorder = new CompactRecorder((call, count) -> -1);
        assertEquals(0, WatcherNatives.watchCompact(watcher(filled("one", 1)), 1, FROM_THE_FIRST, recorder));
        assertEquals(List.of(1), recorder.counts);
    }

    @Test
    void messagesThatAreStoredDuringAWatchAreDelivered() {
        long writer = openForWriting();
        long watcher = watcher(openForReading());
        CompactRecorder recorder = new CompactRecorder((call, count) -> {
            if (call <= 5) {
                writeNumbered(writer, 400 * call - 399, 400 * call);
            }
            return call > 6 ? 1 : 0;
        });
        assertEquals(0, WatcherNatives.watchCompact(watcher, 1, new int[] {-1}, recorder));
        assertEquals(numbers(1, 2000), recorder.ids);
    }

    @Test
    void messagesBelowTheStartingIdAreNotDelivered() {
        CompactRecorder recorder = new CompactRecorder();
        long watcher = watcher(filled("one", 1, 3, 5, 4), filled("two", 2, 6));
        WatcherNatives.watchCompact(watcher, 2, new int[] {5, 3}, recorder);
        assertEquals(List.of(5, 6), recorder.ids);
        assertEquals(startLine("5 3 ") + stopLine(6), facility.warnings());
    }

    @Test
    void moreIdsThanTablesAreIgnored() {
        CompactRecorder recorder = new CompactRecorder();
        WatcherNatives.watchCompact(watcher(filled("one", 1, 2)), 3, new int[] {2, 1, 1, 1}, recorder);
        assertEquals(List.of(2), recorder.ids);
        assertEquals(startLine("2 1 1 ") + stopLine(2), facility.warnings());
    }

    @Test
    void theSameTableTwiceIsDeliveredTwice() {
        long table = filled("one", 1, 2);
        assertEquals(List.of(1, 1, 2, 2), watchAll(table, table).ids);
    }

    @Test
    void aDroppedTableIsFollowedFromItsBeginning() {
        long writer = openForWriting();
        writeNumbered(writer, 1, 1200);
        long watcher = watcher(openForReading());
        CompactRecorder recorder = new CompactRecorder((call, count) -> {
            if (call == 3) {
                Natives.drop(writer);
            } else if (call == 5) {
                writeNumbered(writer, 1201, 1203);
            }
            return call > 7 ? 1 : 0;
        });
        WatcherNatives.watchCompact(watcher, 1, FROM_THE_FIRST, recorder);
        assertEquals(numbers(1, 1203), recorder.ids);
    }

    @Test
    void theDebugLogTracesEveryStepAndAGapOnce() throws IOException {
        long table = filled("one", 1, 2, 4);
        Path log = Path.of("tabulo-" + ProcessHandle.current().pid() + ".log");
        long before = Files.exists(log) ? Files.readString(log).length() : 0;
        watchAll(table);
        List<String> lines = Files.readString(log).substring((int) before).lines()
                .filter(line -> line.startsWith("Tabulo/C DEBUG: messageWatcher_startWatching(): ")
                        || line.startsWith("Tabulo/C DEBUG: findNextUniformId(): ")).toList();
        String watch = "Tabulo/C DEBUG: messageWatcher_startWatching(): ";
        String find = "Tabulo/C DEBUG: findNextUniformId(): ";
        String looking = find + "looking for nextUniformId...";
        List<String> expected = List.of(watch + "Watcher started from uniformIds = [ 1 ]",
                looking, find + "found nextUniformId = 1 at reader 0, error code = 0.",
                watch + "uniformId = 1, reader src = 0.",
                looking, find + "found nextUniformId = 2 at reader 0, error code = 0.",
                watch + "uniformId = 2, reader src = 0.",
                looking, find + "found nextUniformId = 4 at reader 0, error code = 0.",
                watch + "uniform id gap occured: prevUniformId = 2, nextUniformId = 4",
                looking, find + "found nextUniformId = 4 at reader 0, error code = 0.",
                watch + "uniformId = 4, reader src = 0.",
                looking);
        assertEquals(expected, lines.subList(0, expected.size()));
        assertTrue(lines.get(expected.size()).contains(" at reader 1, error code = "), lines::toString);
    }

    @Test
    void thePeersFollowTheirTables() {
        long writer = openForWriting();
        writeNumbered(writer, 1, 3);
        TableConfiguration configuration = TableConfiguration.builder("orders", directory).build();
        try (JNITboMessageTable table = JNITboMessageTable.open(configuration, JNITboMessageTable.MODE_READ);
                JNITboMessageWatcher watcher = JNITboMessageWatcher.open(table)) {
            CompactRecorder compact = new CompactRecorder();
            watcher.startWatchingCompact(new int[] {JNITboMessageWatcher.FROM_BEGINNING}, compact);
            assertEquals(List.of(1, 2, 3), compact.ids);
            RecordingListener plain = new RecordingListener(call -> call == 2 ? 1 : 0);
            watcher.startWatching(new int[] {2}, plain);
            assertEquals(List.of(2, 0), plain.counts());
            assertEquals(List.of(1_002L, 1_003L), plain.timestamps());
        }
    }
}
