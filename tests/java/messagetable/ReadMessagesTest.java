package com.corvane.kestrova.engine.tabulo.jni;

import static com.corvane.kestrova.engine.tabulo.jni.Errors.assertFails;
import static com.corvane.kestrova.engine.tabulo.jni.JNITboErrorCodes.JNI_ERROR;
import static com.corvane.kestrova.engine.tabulo.jni.JNITboErrorCodes.MASTER_INACTIVE_ERROR;
import static com.corvane.kestrova.engine.tabulo.jni.JNITboErrorCodes.NULL_POINTER_ERROR;
import static org.junit.jupiter.api.Assertions.assertArrayEquals;
import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertNotEquals;
import static org.junit.jupiter.api.Assertions.assertNotSame;
import static org.junit.jupiter.api.Assertions.assertNull;
import static org.junit.jupiter.api.Assertions.assertThrows;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.corvane.kestrova.engine.tabulo.IKSVTboMessageListener;
import java.util.ArrayList;
import java.util.List;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.params.ParameterizedTest;
import org.junit.jupiter.params.provider.CsvSource;
import org.junit.jupiter.params.provider.ValueSource;

/** readMessages: which messages come, in which batches, and what ends a read. */
class ReadMessagesTest extends OnTables {
    private static final int APP_FROM = 0x1FFFFFFF;
    private static final int RESENT = 0x5FFFFFFF;

    private long tableOf(int messages) {
        long handle = openForWriting();
        writeNumbered(handle, 1, messages);
        return handle;
    }

    @ParameterizedTest
    @CsvSource({"0,0", "1,1", "999,999", "1000,1000", "1001,1000 1", "2000,1000 1000", "2500,1000 1000 500"})
    void messagesComeInBatchesOfAThousand(int messages, String counts) {
        List<Integer> expected = new ArrayList<>();
        for (String count : counts.split(" ")) {
            expected.add(Integer.valueOf(count));
        }
        RecordingListener listener = read(tableOf(messages), range(1, 2500));
        assertEquals(expected, listener.counts());
        List<String> wires = listener.wires();
        for (int i = 0; i < messages; ++i) {
            assertEquals("8=FIX.4.4|34=" + (i + 1), wires.get(i));
            assertEquals(1_001L + i, listener.timestamps().get(i));
        }
    }

    @Test
    void eachBatchHasArraysOfItsOwn() {
        RecordingListener listener = read(tableOf(1001), range(1, 1001));
        RecordingListener.Batch first = listener.batches.get(0);
        RecordingListener.Batch second = listener.batches.get(1);
        assertNotSame(first.timestamps(), second.timestamps());
        assertNotSame(first.wires(), second.wires());
        assertEquals(1_001L, first.timestamps()[0], "a later batch does not change an earlier one");
        assertEquals(1, second.wires().length);
    }

    @Test
    void bothValuesOfAMessageCome() {
        RecordingListener.Batch batch = read(tableOf(1), 1).batches.get(0);
        assertArrayEquals(latin1("8=FIX.4.4|34=1"), batch.wires()[0]);
        assertArrayEquals(latin1("58=1"), batch.others()[0]);
    }

    @Test
    void anAbsentValueIsANullElementAndAnEmptyOneAnEmptyArray() {
        long handle = openForWriting();
        write(handle, m -> m.wire = "");
        write(handle, m -> m.nonMetadata = "x");
        RecordingListener.Batch batch = read(handle, 0).batches.get(0);
        assertArrayEquals(new byte[0], batch.wires()[0]);
        assertNull(batch.others()[0]);
        assertNull(batch.wires()[1]);
        assertArrayEquals(latin1("x"), batch.others()[1]);
    }

    @Test
    void theValuesAreTheLastTwoStringsOfATableWithIndexedFields() {
        long handle = open(provider().strings("a", "b").numerics("n"), Natives.WRITE);
        write(handle, m -> {
            m.builtIn0 = "zero";
            m.builtIn1 = "one";
            m.strings = new String[] {"two", "three"};
            m.wire = "wire";
            m.nonMetadata = "rest";
        });
        RecordingListener.Batch batch = read(handle, 0).batches.get(0);
        assertArrayEquals(latin1("wire"), batch.wires()[0]);
        assertArrayEquals(latin1("rest"), batch.others()[0]);
    }

    @ParameterizedTest
    @ValueSource(ints = {1, 2, -1, Integer.MIN_VALUE, Integer.MAX_VALUE})
    void anAnswerOtherThanZeroEndsTheReadAfterThatBatch(int answer) {
        long handle = tableOf(2500);
        RecordingListener first = new RecordingListener(call -> answer);
        Natives.readMessages(handle, range(1, 2500), -1, first);
        assertEquals(List.of(1000), first.counts(), "no call follows, not even at the end of the data");
        RecordingListener second = new RecordingListener(call -> call == 2 ? answer : 0);
        Natives.readMessages(handle, range(1, 2500), -1, second);
        assertEquals(List.of(1000, 1000), second.counts());
    }

    @Test
    void anAnswerAtTheEndOfTheDataIsNoError() {
        RecordingListener listener = new RecordingListener(call -> 1);
        Natives.readMessages(tableOf(3), range(1, 3), -1, listener);
        assertEquals(List.of(3), listener.counts());
    }

    @Test
    void aListenerThatThrowsEndsTheReadWithAJniError() {
        long handle = tableOf(2500);
        RecordingListener listener = new RecordingListener(call -> {
            throw new IllegalStateException("thrown by a listener on purpose");
        });
        assertFails(JNI_ERROR, () -> Natives.readMessages(handle, range(1, 2500), -1, listener));
        assertEquals(List.of(1000), listener.counts(), "no further call");
        assertEquals(2500, read(handle, range(1, 2500)).timestamps().size(), "the table goes on afterwards");
    }

    @Test
    void aListenerThatThrowsAnErrorAtTheEndOfTheDataEndsTheReadWithAJniError() {
        RecordingListener listener = new RecordingListener(call -> {
            throw new AssertionError("thrown by a listener on purpose");
        });
        long handle = openForWriting();
        assertFails(JNI_ERROR, () -> Natives.readMessages(handle, new int[0], 0, listener));
        assertEquals(List.of(0), listener.counts());
    }

    @Test
    void aNullListenerIsANullPointer() {
        long handle = tableOf(1);
        assertFails(NULL_POINTER_ERROR, () -> Natives.readMessages(handle, new int[] {1}, 1, null));
        assertFails(NULL_POINTER_ERROR, () -> Natives.readMessages(handle, null, 1, null));
    }

    /** Has the method but does not implement the interface. */
    static final class NoListener {
        int calls;

        public int onGetMessages(int count, long[] timestamps, byte[][] wires, byte[][] others) {
            ++calls;
            return 0;
        }
    }

    @Test
    void anObjectThatIsNoListenerIsANullPointerAndIsNotCalled() {
        NoListener noListener = new NoListener();
        long handle = tableOf(1);
        assertFails(NULL_POINTER_ERROR, () -> Natives.readMessages(handle, new int[] {1}, 1, noListener));
        assertFails(NULL_POINTER_ERROR, () -> Natives.readMessages(handle, new int[] {1}, 1, "text"));
        assertEquals(0, noListener.calls);
    }

    @Test
    void aLambdaIsAListener() {
        int[] counts = new int[1];
        IKSVTboMessageListener listener = (count, timestamps, wires, others) -> {
            counts[0] += count;
            return 0;
        };
        Natives.readMessages(tableOf(3), range(1, 3), -1, listener);
        assertEquals(3, counts[0]);
    }

    @Test
    void theCountTakesTheFirstIdsOfTheArray() {
        long handle = tableOf(5);
        RecordingListener listener = new RecordingListener();
        Natives.readMessages(handle, new int[] {4, 2, 5, 1}, 2, listener);
        assertEquals(List.of(1_002L, 1_004L), listener.timestamps());
    }

    @ParameterizedTest
    @ValueSource(ints = {-1, -2, Integer.MIN_VALUE})
    void aNegativeCountTakesTheWholeArray(int count) {
        RecordingListener listener = new RecordingListener();
        Natives.readMessages(tableOf(5), new int[] {5, 1}, count, listener);
        assertEquals(List.of(1_001L, 1_005L), listener.timestamps());
    }

    @Test
    void aCountOfZeroFindsNothing() {
        RecordingListener listener = new RecordingListener();
        Natives.readMessages(tableOf(5), new int[] {5, 1}, 0, listener);
        assertEquals(List.of(0), listener.counts());
    }

    @ParameterizedTest
    @ValueSource(ints = {3, 1000, Integer.MAX_VALUE})
    void aCountAboveTheArraysLengthIsAJniErrorWithoutACall(int count) {
        RecordingListener listener = new RecordingListener();
        long handle = tableOf(2);
        assertFails(JNI_ERROR, () -> Natives.readMessages(handle, new int[] {1, 2}, count, listener));
        assertEquals(List.of(), listener.counts());
    }

    @ParameterizedTest
    @ValueSource(ints = {-1, 0, 1})
    void aNullIdArrayIsAJniErrorWithoutACall(int count) {
        RecordingListener listener = new RecordingListener();
        long handle = tableOf(2);
        assertFails(JNI_ERROR, () -> Natives.readMessages(handle, null, count, listener));
        assertEquals(List.of(), listener.counts());
    }

    @Test
    void messagesComeInFileOrderWhateverTheOrderOfTheIds() {
        long handle = openForWriting();
        for (int id : new int[] {30, 10, 20}) {
            writeNumbered(handle, id, id);
        }
        assertEquals(List.of(1_030L, 1_010L, 1_020L), read(handle, 10, 20, 30).timestamps());
        assertEquals(List.of(1_030L, 1_010L, 1_020L), read(handle, 20, 30, 10).timestamps());
    }

    @Test
    void anIdGivenTwiceDeliversItsMessagesOnce() {
        assertEquals(List.of(1_002L, 1_003L), read(tableOf(4), 3, 2, 3, 2, 2).timestamps());
    }

    @Test
    void everyMessageWithAnIdComes() {
        long handle = openForWriting();
        for (int i = 1; i <= 3; ++i) {
            long timestamp = i;
            write(handle, m -> {
                m.connMsgId = 7;
                m.timestamp = timestamp;
            });
        }
        assertEquals(List.of(1L, 2L, 3L), read(handle, 7).timestamps());
    }

    @Test
    void idsBetweenTheGivenOnesDoNotCome() {
        assertEquals(List.of(1_002L, 1_009L), read(tableOf(10), 2, 9).timestamps());
    }

    @Test
    void idsOfSeveralClassesMayBeMixed() {
        long handle = openForWriting();
        for (int base : new int[] {RESENT, 0, APP_FROM, 0x3FFFFFFF, 0x4FFFFFFF}) {
            write(handle, m -> {
                m.connMsgId = base;
                m.timestamp = base;
            });
            write(handle, m -> m.connMsgId = base + 1);
        }
        assertEquals(List.of((long) RESENT, 0L, (long) APP_FROM), read(handle, 0, APP_FROM, RESENT).timestamps());
    }

    @Test
    void negativeIdsHaveNoClassAndFindNothing() {
        long handle = openForWriting();
        write(handle, m -> m.connMsgId = -1);
        write(handle, m -> m.connMsgId = 5);
        assertEquals(List.of(0), read(handle, -1, Integer.MIN_VALUE).counts());
        assertEquals(List.of(1), read(handle, -1, 5).counts());
    }

    @Test
    void aListenerMayLookUpAndReadFromTheSameTable() {
        long handle = tableOf(2500);
        List<Integer> inner = new ArrayList<>();
        RecordingListener listener = new RecordingListener(call -> {
            inner.add(read(handle, range(1, 1500)).timestamps().size());
            inner.add(Natives.lastUniform(handle));
            return 0;
        });
        Natives.readMessages(handle, range(1, 2500), -1, listener);
        assertEquals(List.of(1500, 2500, 1500, 2500, 1500, 2500), inner);
        List<Long> timestamps = listener.timestamps();
        assertEquals(2500, timestamps.size());
        for (int i = 0; i < 2500; ++i) {
            assertEquals(1_001L + i, timestamps.get(i), "the outer read keeps its place");
        }
    }

    @Test
    void aListenerMayWriteToTheTableThatItReadsFrom() {
        long handle = tableOf(1500);
        RecordingListener listener = new RecordingListener(call -> {
            if (call == 1) {
                writeNumbered(handle, 1501, 2600);
            }
            return 0;
        });
        Natives.readMessages(handle, range(1, 5000), -1, listener);
        List<Long> timestamps = listener.timestamps();
        assertTrue(timestamps.size() >= 1500, () -> "only " + timestamps.size() + " messages came");
        for (int i = 0; i < timestamps.size(); ++i) {
            assertEquals(1_001L + i, timestamps.get(i), "the read keeps its place");
        }
        assertEquals(2600, read(handle, range(1, 5000)).timestamps().size());
    }

    @Test
    void aListenerThatFreesTheTableEndsTheRead() {
        long handle = Natives.open(provider(), Natives.WRITE);
        writeNumbered(handle, 1, 2500);
        RecordingListener listener = new RecordingListener(call -> {
            Natives.free(handle);
            return 0;
        });
        try {
            Natives.readMessages(handle, range(1, 2500), -1, listener);
        } catch (JNITboException closed) {
            assertEquals(MASTER_INACTIVE_ERROR, closed.getErrorCode());
        }
        assertEquals(List.of(1000), listener.counts(), "no further call");
        assertEquals(2500, read(openForWriting(), range(1, 2500)).timestamps().size());
    }

    @Test
    void aListenerMayDropTheTableThatItReadsFrom() {
        long handle = tableOf(2500);
        RecordingListener listener = new RecordingListener(call -> {
            Natives.drop(handle);
            return 0;
        });
        try {
            Natives.readMessages(handle, range(1, 2500), -1, listener);
        } catch (JNITboException damaged) {
            assertNotEquals(JNI_ERROR, damaged.getErrorCode());
        }
        assertEquals(1000, listener.counts().get(0));
        assertEquals(List.of(0), read(handle, range(1, 2500)).counts());
        writeNumbered(handle, 7, 7);
        assertEquals(List.of(1_007L), read(handle, range(1, 2500)).timestamps());
    }

    @Test
    void aListenerMayThrowWhileAnotherReadGoesOn() {
        long handle = tableOf(1500);
        RecordingListener outer = new RecordingListener(call -> {
            JNITboException thrown = assertThrows(JNITboException.class,
                    () -> Natives.readMessages(handle, null, 0, new RecordingListener()));
            return thrown.getErrorCode() == JNI_ERROR ? 0 : 1;
        });
        Natives.readMessages(handle, range(1, 1500), -1, outer);
        assertEquals(List.of(1000, 500), outer.counts());
    }

    @Test
    void aReadAfterMoreWritesSeesThem() {
        long handle = tableOf(999);
        assertEquals(999, read(handle, range(1, 2000)).timestamps().size());
        writeNumbered(handle, 1000, 1001);
        assertEquals(1001, read(handle, range(1, 2000)).timestamps().size());
        Natives.drop(handle);
        assertEquals(List.of(0), read(handle, range(1, 2000)).counts());
    }
}
