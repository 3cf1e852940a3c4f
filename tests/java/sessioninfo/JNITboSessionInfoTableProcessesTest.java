package com.corvane.kestrova.engine.tabulo.jni;

import static com.corvane.kestrova.engine.tabulo.jni.Errors.assertFails;
import static com.corvane.kestrova.engine.tabulo.jni.JNITboErrorCodes.FILE_OPEN_ERROR;
import static org.junit.jupiter.api.Assertions.assertArrayEquals;
import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.io.IOException;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.Arrays;
import java.util.List;
import org.junit.jupiter.api.Test;

/** Session info tables in the hands of other virtual machines. */
class JNITboSessionInfoTableProcessesTest extends OnSessionTables {
    private static final long ALTERNATIONS = 100_000;
    private static final long FOR_EVER = Long.MAX_VALUE;

    private ChildJvm startWriter(Path turns, long count) throws IOException {
        return ChildJvm.start(directory, SessionWriterProgram.class, directory.toString(), turns.toString(),
                Long.toString(count));
    }

    @Test
    void aReaderSeesEveryValueAsSoonAsTheWriteInAnotherProcessHasReturned() throws Exception {
        place(fileOf(DEFAULT_TAGS, SOME_VALUES));
        long reader = openForReading();
        Path file = directory.resolve("turns");
        Turns turns = new Turns(file);
        try (ChildJvm child = startWriter(file, ALTERNATIONS)) {
            long[] values = new long[DEFAULT_TAGS.length];
            for (long n = 1; n <= ALTERNATIONS; ++n) {
                turns.ask(n);
                turns.awaitAnswered(n);
                SessionNatives.read(reader, values.length, DEFAULT_TAGS, values);
                if (!Arrays.equals(SessionWriterProgram.valuesOf(n), values)) {
                    throw new AssertionError("the reader does not see what write " + n + " has written");
                }
            }
            child.finish();
        }
    }

    @Test
    void aKilledWriterLeavesTheLastAcknowledgedValuesOrTheOnesBeingWritten() throws Exception {
        Path file = directory.resolve("turns");
        Turns turns = new Turns(file);
        try (ChildJvm child = startWriter(file, FOR_EVER)) {
            turns.ask(FOR_EVER);
            turns.awaitAnswered(1000);
            assertFails(FILE_OPEN_ERROR, this::openForWriting);
            child.kill();
        }
        long last = turns.answered();
        long[] found = SessionNatives.read(openForReading(), DEFAULT_TAGS);
        assertTrue(Arrays.equals(SessionWriterProgram.valuesOf(last), found)
                || Arrays.equals(SessionWriterProgram.valuesOf(last + 1), found),
                () -> "neither write " + last + " nor the next one: " + Arrays.toString(found));
        assertArrayEquals(found, SessionNatives.read(openForWriting(), DEFAULT_TAGS), "the writer's lock is gone");
    }

    @Test
    void whereTheSystemTakesNoByteEachStepFailsWithItsCode() throws Exception {
        byte[] whole = fileOf(DEFAULT_TAGS, SOME_VALUES);
        byte[] cut = Arrays.copyOf(whole, 100);
        Files.write(directory.resolve("whole"), whole);
        Files.write(directory.resolve("cut"), cut);
        try (ChildJvm child = ChildJvm.start(directory, "ulimit -f 0;", List.of(), SessionFullDiskProgram.class,
                directory.toString())) {
            assertEquals(List.of("writer writes: error 16", "writer reads: 33", "writer writes again: error 13",
                    "writer drops: error 13", "reader reads: 30", "reader writes: error 16",
                    "reader reads again: error 31", "cut table: error 16", "new table: error 16"), child.finish());
            assertEquals(List.of(
                    "Tabulo/C WARNING: si_write(): Replica 0 closed due to file write error: I/O error: unable to flush"
                            + " a file",
                    "Tabulo/C WARNING: si_write(): Replica 0 closed due to file write error: I/O error: unable to flush"
                            + " a file",
                    "Tabulo/C WARNING: tsX_openReplica(): Table " + directory + "/cut recovery failed!"),
                    child.errors().stream().filter(line -> line.startsWith("Tabulo/C WARNING")).toList());
        }
        assertArrayEquals(whole, Files.readAllBytes(directory.resolve("whole")));
        assertArrayEquals(cut, Files.readAllBytes(directory.resolve("cut")));
    }
}
