package com.corvane.kestrova.engine.tabulo.jni;

import static com.corvane.kestrova.engine.tabulo.jni.Errors.assertFails;
import static com.corvane.kestrova.engine.tabulo.jni.JNITboErrorCodes.CONSISTENCY_ERROR;
import static com.corvane.kestrova.engine.tabulo.jni.JNITboErrorCodes.FILE_FLUSH_ERROR;
import static com.corvane.kestrova.engine.tabulo.jni.JNITboErrorCodes.MASTER_INACTIVE_ERROR;
import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;
import static org.junit.jupiter.api.Assertions.assertThrows;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.io.BufferedReader;
import java.io.IOException;
import java.io.InputStreamReader;
import java.io.RandomAccessFile;
import java.nio.file.Files;
import java.nio.file.Path;
import java.nio.file.StandardOpenOption;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.List;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.params.ParameterizedTest;
import org.junit.jupiter.params.provider.ValueSource;

/** Iterators that stay open while their table is written, dropped or reopened, here and in another process. */
class IteratorGrowthTest extends OnQueries {
    @ParameterizedTest
    @ValueSource(ints = {0, 1, 998, 999, 1000, 1001, 2000})
    void anIteratorAtItsEndGoesOnWithWhatIsStored(int before) {
        long table = openForWriting();
        writeNumbered(table, 1, before);
        long iterator = query(table, new RawConditions());
        assertIds(idsFrom(1, before), rest(iterator));
        for (int i = before + 1; i <= before + 3; ++i) {
            writeNumbered(table, i, i);
            assertIds(ids(i), rest(iterator));
        }
        writeNumbered(table, before + 4, before + 2200);
        assertIds(idsFrom(before + 4, before + 2200), rest(iterator));
    }

    @Test
    void anIteratorInTheMiddleOfTheOpenBlockGoesOnAfterTheBlockWasClosed() {
        long table = openForWriting();
        writeNumbered(table, 1, 600);
        long iterator = query(table, new RawConditions());
        List<Integer> seen = new ArrayList<>();
        for (int i = 0; i < 300; ++i) {
            assertTrue(QueryNatives.next(iterator));
            seen.add(QueryNatives.uniformId(iterator));
        }
        writeNumbered(table, 601, 2345);
        seen.addAll(rest(iterator));
        assertIds(idsFrom(1, 2345), seen);
    }

    @Test
    void theMessageAtHandStaysWhileTheTableIsWritten() {
        long table = openForWriting();
        writeNumbered(table, 1, 2);
        long iterator = query(table, new RawConditions());
        assertTrue(QueryNatives.next(iterator));
        writeNumbered(table, 3, 1500);
        assertEquals("8=FIX.4.4|34=1", QueryNatives.get(iterator, "getWireMessage"));
        assertEquals(1001L, QueryNatives.<Long>get(iterator, "getTimestamp"));
        assertIds(idsFrom(2, 1500), rest(iterator));
    }

    @Test
    void lookupsReadsAndOtherIteratorsDoNotDisturbAnIterator() {
        long table = openForWriting();
        writeNumbered(table, 1, 1500);
        long iterator = query(table, new RawConditions());
        RawConditions backward = RawConditions.of(c -> c.backward = true);
        long other = query(table, backward);
        for (int i = 1; i <= 1500; ++i) {
            assertTrue(QueryNatives.next(iterator));
            assertEquals(i, QueryNatives.uniformId(iterator));
            assertTrue(QueryNatives.next(other));
            assertEquals(1501 - i, QueryNatives.uniformId(other));
            if (i % 250 == 0) {
                assertEquals(3, read(table, 1, 700, 1400).timestamps().size());
                assertEquals(1500, Natives.lastUniform(table));
                int number = i;
                assertIds(ids(i), rest(query(table, RawConditions.of(c -> {
                    c.beginSeqNum = number;
                    c.endSeqNum = number;
                }))));
            }
        }
        assertFalse(QueryNatives.next(iterator));
        assertFalse(QueryNatives.next(other));
    }

    @ParameterizedTest
    @ValueSource(ints = {500, 1000, 1500})
    void aBackwardIteratorGivesAllThatWasStoredWhenItWasOpened(int before) {
        long table = openForWriting();
        writeNumbered(table, 1, before);
        long iterator = query(table, RawConditions.of(c -> c.backward = true));
        writeNumbered(table, before + 1, before + 2000);
        List<Integer> ids = rest(iterator);
        int newest = ids.get(0);
        assertTrue(newest >= before, "it begins at the end or behind it");
        assertEquals(newest, ids.size());
        for (int i = 0; i < ids.size(); ++i) {
            assertEquals(newest - i, ids.get(i));
        }
    }

    @Test
    void aBackwardIteratorStaysAtItsEnd() {
        long table = openForWriting();
        writeNumbered(table, 1, 3);
        long iterator = query(table, RawConditions.of(c -> c.backward = true));
        assertIds(ids(3, 2, 1), rest(iterator));
        writeNumbered(table, 4, 1200);
        assertIds(List.of(), rest(iterator));
    }

    @Test
    void aBackwardIteratorOfAReaderSeesTheEndOfThisMoment() {
        long writer = openForWriting();
        long reader = openForReading();
        writeNumbered(writer, 1, 1200);
        assertEquals(1200, rest(query(reader, RawConditions.of(c -> c.backward = true))).get(0));
        writeNumbered(writer, 1201, 2500);
        assertEquals(2500, rest(query(reader, RawConditions.of(c -> c.backward = true))).get(0));
    }

    @ParameterizedTest
    @ValueSource(booleans = {false, true})
    void aDropEndsTheIteratorsOfTheSameTableForGood(boolean backward) {
        long table = openForWriting();
        writeNumbered(table, 1, 1500);
        long iterator = query(table, RawConditions.of(c -> c.backward = backward));
        assertTrue(QueryNatives.next(iterator));
        long fresh = query(table, RawConditions.of(c -> c.backward = backward));
        Natives.drop(table);
        assertFalse(QueryNatives.next(iterator));
        assertEquals(0, QueryNatives.uniformId(iterator));
        writeNumbered(table, 1, 1800);
        assertFalse(QueryNatives.next(iterator), "also when the table has grown beyond its place");
        assertFalse(QueryNatives.next(fresh), "also one that has not begun");
        assertEquals(1800, rest(query(table, new RawConditions())).size());
    }

    @Test
    void aDropByTheWriterEndsTheIteratorsOfAReader() {
        long writer = openForWriting();
        long reader = openForReading();
        writeNumbered(writer, 1, 1500);
        long iterator = query(reader, new RawConditions());
        assertEquals(1500, rest(iterator).size());
        Natives.drop(writer);
        writeNumbered(writer, 1, 10);
        assertIds(List.of(), rest(iterator), "the file is shorter than the iterator's place");
        writeNumbered(writer, 11, 1800);
        assertIds(List.of(), rest(iterator), "it has ended for good");
        assertEquals(1800, rest(query(reader, new RawConditions())).size());
    }

    @Test
    void halfAMessageIsTheEndForNow() throws IOException {
        long table = openForWriting();
        writeNumbered(table, 1, 3);
        close(table);
        byte[] whole = fileBytes();
        Files.write(file(), Arrays.copyOf(whole, whole.length - 1));
        long iterator = query(openForReading(), new RawConditions());
        assertIds(ids(1, 2), rest(iterator));
        assertFalse(QueryNatives.next(iterator));
        Files.write(file(), new byte[] {whole[whole.length - 1]}, StandardOpenOption.APPEND);
        assertIds(ids(3), rest(iterator), "the rest of it has come");
    }

    @ParameterizedTest
    @ValueSource(booleans = {false, true})
    void aDamagedMessageOfAClosedBlockIsAnError(boolean backward) throws IOException {
        long table = openForWriting();
        writeNumbered(table, 1, 500);
        long middle = fileBytes().length;
        writeNumbered(table, 501, 1500);
        close(table);
        try (RandomAccessFile damaged = new RandomAccessFile(file().toFile(), "rw")) {
            damaged.seek(middle - Integer.BYTES);
            damaged.write(new byte[2 * Integer.BYTES]);
        }
        long iterator = query(openForReading(), RawConditions.of(c -> c.backward = backward));
        List<Integer> seen = new ArrayList<>();
        JNITboException thrown = assertThrows(JNITboException.class, () -> {
            while (QueryNatives.next(iterator)) {
                seen.add(QueryNatives.uniformId(iterator));
            }
        });
        assertEquals(CONSISTENCY_ERROR, thrown.getErrorCode());
        // The last length word of 500 and the first one of 501 are gone.
        List<Integer> expected = backward ? idsFrom(-1500, -502).stream().map(id -> -id).toList() : idsFrom(1, 499);
        assertIds(expected, seen, "what lies in front of the damage");
    }

    /** A table that is closed but not freed has its file open still. */
    @Test
    void anIteratorOutlivesTheCloseThatSavesTheBookkeeping() {
        long table = openForWriting();
        writeNumbered(table, 1, 5);
        long iterator = query(table, new RawConditions());
        Natives.close(table);
        assertIds(ids(1, 2, 3, 4, 5), rest(iterator));
    }

    /** Writes the messages from one number to another for each line "from to"; drops for an empty line. */
    static final class Writer {
        public static void main(String[] arguments) throws IOException {
            long table = Natives.open(new Provider(Path.of(arguments[0])), Natives.WRITE);
            System.out.println("ready");
            BufferedReader in = new BufferedReader(new InputStreamReader(System.in));
            for (String line = in.readLine(); line != null; line = in.readLine()) {
                if (line.isEmpty()) {
                    Natives.drop(table);
                } else {
                    String[] numbers = line.split(" ");
                    writeNumbered(table, Integer.parseInt(numbers[0]), Integer.parseInt(numbers[1]));
                }
                System.out.println("done " + line);
            }
            Natives.free(table);
        }
    }

    private static void write(ChildJvm writer, int first, int last) throws InterruptedException {
        writer.tell(first + " " + last);
        writer.awaitLine("done " + first + " " + last);
    }

    @Test
    void anIteratorFollowsAWriterInAnotherProcessOverTheEndsOfBlocks() throws Exception {
        try (ChildJvm writer = ChildJvm.start(directory, Writer.class, directory.toString())) {
            writer.awaitLine("ready");
            long reader = openForReading();
            long iterator = query(reader, new RawConditions());
            int stored = 0;
            for (int next : new int[] {1, 2, 10, 999, 1000, 1001, 1999, 2000, 2500, 5500}) {
                write(writer, stored + 1, next);
                assertIds(idsFrom(stored + 1, next), rest(iterator));
                stored = next;
            }
        }
    }

    @Test
    void anIteratorDeliversEveryMessageOnceWhileAnotherProcessWrites() throws Exception {
        int last = 30_000;
        try (ChildJvm writer = ChildJvm.start(directory, Writer.class, directory.toString())) {
            writer.awaitLine("ready");
            long iterator = query(openForReading(), new RawConditions());
            writer.tell("1 " + last);
            int expected = 1;
            long deadline = System.nanoTime() + 60_000_000_000L;
            while (expected <= last) {
                assertTrue(System.nanoTime() < deadline, "message " + expected + " does not come");
                if (QueryNatives.next(iterator)) {
                    assertEquals(expected, QueryNatives.uniformId(iterator));
                    assertEquals("8=FIX.4.4|34=" + expected, QueryNatives.get(iterator, "getWireMessage"));
                    ++expected;
                }
            }
            assertFalse(QueryNatives.next(iterator));
        }
    }

    @Test
    void aDropInAnotherProcessEndsAnIterator() throws Exception {
        try (ChildJvm writer = ChildJvm.start(directory, Writer.class, directory.toString())) {
            writer.awaitLine("ready");
            write(writer, 1, 1500);
            long reader = openForReading();
            long forward = query(reader, new RawConditions());
            long backward = query(reader, RawConditions.of(c -> c.backward = true));
            for (int i = 0; i < 100; ++i) {
                assertTrue(QueryNatives.next(forward));
            }
            writer.tell("");
            writer.awaitLine("done ");
            assertIds(List.of(), rest(backward));
            // What the forward one has read ahead may still come; then it ends.
            List<Integer> left = rest(forward);
            assertIds(idsFrom(101, 100 + left.size()), left);
            write(writer, 1, 5);
            assertIds(List.of(), rest(forward));
            assertIds(idsFrom(1, 5), rest(query(reader, new RawConditions())));
        }
    }

    @Test
    void anIteratorOfATableWhoseFileHasFailedSaysSo() throws IOException {
        long table = openForWriting();
        writeNumbered(table, 1, 3);
        long iterator = query(table, new RawConditions());
        assertTrue(QueryNatives.next(iterator));
        FileSizeLimit.during(fileBytes().length, () ->
                assertFails(FILE_FLUSH_ERROR, () -> writeNumbered(table, 4, 4)));
        assertFails(MASTER_INACTIVE_ERROR, () -> QueryNatives.next(iterator));
        assertEquals(0, QueryNatives.uniformId(iterator));
        long late = query(table, new RawConditions());
        assertFails(MASTER_INACTIVE_ERROR, () -> QueryNatives.next(late));
    }
}
