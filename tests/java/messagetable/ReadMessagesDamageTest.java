package com.corvane.kestrova.engine.tabulo.jni;

import static com.corvane.kestrova.engine.tabulo.jni.Errors.assertFails;
import static com.corvane.kestrova.engine.tabulo.jni.JNITboErrorCodes.CONSISTENCY_ERROR;
import static com.corvane.kestrova.engine.tabulo.jni.JNITboErrorCodes.HEADER_CORRUPTED_ERROR;
import static com.corvane.kestrova.engine.tabulo.jni.JNITboErrorCodes.JNI_ERROR;
import static org.junit.jupiter.api.Assertions.assertEquals;

import java.io.IOException;
import java.nio.ByteBuffer;
import java.nio.ByteOrder;
import java.nio.file.Files;
import java.util.List;
import java.util.function.IntUnaryOperator;
import java.util.stream.LongStream;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.params.ParameterizedTest;
import org.junit.jupiter.params.provider.CsvSource;
import org.junit.jupiter.params.provider.ValueSource;

/** readMessages of a table with a damaged frame: what was gathered in front of it is handed over before the error. */
class ReadMessagesDamageTest extends OnTables {
    private static final int HEADER = 140;
    private static final int WORD = 8;
    private static final int FOOTER = 2652;
    private static final int PER_BLOCK = 1000;
    private static final int MESSAGES = 2500;  // two closed blocks and half of the open one

    /** The file of a table with numbered messages. */
    private ByteBuffer table() throws IOException {
        Files.deleteIfExists(file());
        long handle = openForWriting();
        writeNumbered(handle, 1, MESSAGES);
        close(handle);
        return ByteBuffer.wrap(fileBytes()).order(ByteOrder.nativeOrder());
    }

    private static int frameOf(ByteBuffer table, int message) {
        int position = HEADER + WORD;
        for (int i = 1; i < message; ++i) {
            position += table.getInt(position) + (i % PER_BLOCK == 0 ? FOOTER + WORD : 0);
        }
        return position;
    }

    /** A reader of the table with this message's frame damaged. */
    private long damagedAt(int message) throws IOException {
        ByteBuffer table = table();
        int frame = frameOf(table, message);
        table.putInt(frame, table.getInt(frame) + 1);
        Files.write(file(), table.array());
        return openForReading();
    }

    private static RecordingListener failingRead(long handle, int code, IntUnaryOperator answers, int... ids) {
        RecordingListener listener = new RecordingListener(answers);
        assertFails(code, () -> Natives.readMessages(handle, ids, -1, listener));
        return listener;
    }

    private static RecordingListener failingRead(long handle, int code) {
        return failingRead(handle, code, call -> 0, range(1, MESSAGES));
    }

    private static List<Long> timestamps(int last) {
        return LongStream.rangeClosed(1_001, 1_000 + last).boxed().toList();
    }

    @ParameterizedTest
    @CsvSource({"2,1", "500,499", "1000,999", "1001,1000", "1002,1000 1", "2000,1000 999", "2001,1000 1000",
            "2300,1000 1000 299"})
    void whatIsHeldIsHandedOverBeforeTheErrorIsThrown(int damaged, String counts) throws IOException {
        RecordingListener listener = failingRead(damagedAt(damaged), CONSISTENCY_ERROR);
        List<Integer> expected = List.of(counts.split(" ")).stream().map(Integer::valueOf).toList();
        assertEquals(expected, listener.counts());
        assertEquals(timestamps(damaged - 1), listener.timestamps());
    }

    @Test
    void whatIsHeldIsHandedOverInFrontOfADamagedBlockToo() throws IOException {
        ByteBuffer table = table();
        table.putLong(frameOf(table, 1001) - WORD, 0);
        int frame = frameOf(table, 1100);
        table.put(frame, new byte[table.getInt(frame)]);
        Files.write(file(), table.array());
        RecordingListener listener = failingRead(openForReading(), HEADER_CORRUPTED_ERROR);
        assertEquals(List.of(1000, 99), listener.counts());
        assertEquals(timestamps(1099), listener.timestamps());
    }

    @Test
    void withNothingHeldThereIsNoCall() throws IOException {
        assertEquals(List.of(), failingRead(damagedAt(1), CONSISTENCY_ERROR).counts());
        long handle = damagedAt(700);
        assertEquals(List.of(), failingRead(handle, CONSISTENCY_ERROR, call -> 0, 800, 900).counts(),
                "none of the messages in front of the damage was asked for");
    }

    @ParameterizedTest
    @ValueSource(ints = {1, -1})
    void aListenerThatHasStoppedIsNotCalledAgain(int answer) throws IOException {
        long handle = damagedAt(1500);
        RecordingListener listener = new RecordingListener(call -> answer);
        Natives.readMessages(handle, range(1, MESSAGES), -1, listener);
        assertEquals(List.of(1000), listener.counts());
    }

    @Test
    void aListenerThatHasThrownIsNotCalledAgain() throws IOException {
        RecordingListener listener = failingRead(damagedAt(1500), JNI_ERROR, call -> {
            throw new OnPurpose("a listener");
        }, range(1, MESSAGES));
        assertEquals(List.of(1000), listener.counts());
    }

    @Test
    void whatTheLastHandOverAnswersOrThrowsChangesNothing() throws IOException {
        long handle = damagedAt(1500);
        for (boolean throwing : new boolean[] {false, true}) {
            RecordingListener listener = failingRead(handle, CONSISTENCY_ERROR, call -> {
                if (call == 2 && throwing) {
                    throw new OnPurpose("a listener at the last hand-over");
                }
                return call == 2 ? 1 : 0;
            }, range(1, MESSAGES));
            assertEquals(List.of(1000, 499), listener.counts());
        }
        assertEquals(List.of(1_001L), read(handle, 1).timestamps(), "the table goes on afterwards");
    }
}
