package com.corvane.kestrova.engine.tabulo.jni;

import static com.corvane.kestrova.engine.tabulo.jni.Errors.assertFails;
import static com.corvane.kestrova.engine.tabulo.jni.JNITboErrorCodes.INDEX_OUT_OF_BOUNDS_ERROR;
import static com.corvane.kestrova.engine.tabulo.jni.JNITboErrorCodes.JNI_ERROR;
import static org.junit.jupiter.api.Assertions.assertEquals;

import com.corvane.kestrova.engine.tabulo.TimestampHolder;
import java.util.ArrayList;
import java.util.List;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.params.ParameterizedTest;
import org.junit.jupiter.params.provider.ValueSource;

/** The lookups, and whom the time stamp of the last good number is given to. */
class LookupTest extends OnTables {
    private static final int APP_TO = 0;
    private static final int APP_FROM = 536870911;
    private static final int ADMIN_TO = 1073741823;
    private static final int ADMIN_FROM = 1342177279;
    private static final int RESENT = 1610612735;
    private static final int[] CLASSES = {APP_TO, APP_FROM, ADMIN_TO, ADMIN_FROM, RESENT};

    /** A holder of the tests' own. */
    static final class Holder {
        final List<Long> values = new ArrayList<>();

        public void setValue(long value) {
            values.add(value);
        }
    }

    /** Takes the value in another width than the library gives it. */
    static final class IntHolder {
        int value;

        public void setValue(int given) {
            value = given;
        }
    }

    /** Refuses its value. */
    static final class ThrowingHolder {
        public void setValue(long value) {
            throw new IllegalArgumentException("thrown by a holder on purpose");
        }
    }

    private static void message(long handle, int seqNum, int connMsgId, long timestamp) {
        write(handle, m -> {
            m.seqNum = seqNum;
            m.connMsgId = connMsgId;
            m.timestamp = timestamp;
        });
    }

    @ParameterizedTest
    @ValueSource(booleans = {false, true})
    void aFreshTableAnswersThatNothingIsThere(boolean reading) {
        long handle = openForWriting();
        if (reading) {
            handle = openForReading();
        }
        for (int base : CLASSES) {
            assertEquals(base, Natives.lastMessageId(handle, base));
            assertEquals(base + 3, Natives.lastMessageId(handle, base + 3));
        }
        assertEquals(0, Natives.lastGood(handle, Long.MIN_VALUE, null));
        assertEquals(-1, Natives.pending(handle, 0, false), "the first pending number is one less than nothing");
        assertEquals(0, Natives.pending(handle, 0, true));
        assertEquals(0, Natives.lastUniform(handle));
    }

    @Test
    void theLastMessageIdIsTheHighestOfItsClass() {
        long handle = openForWriting();
        for (int base : CLASSES) {
            message(handle, 1, base + 7, 1);
            message(handle, 1, base + 4, 1);
        }
        for (int base : CLASSES) {
            assertEquals(base + 7, Natives.lastMessageId(handle, base));
            assertEquals(base + 7, Natives.lastMessageId(handle, base + 1000));
        }
    }

    @Test
    void anIdOfZeroIsAnId() {
        long handle = openForWriting();
        message(handle, 1, 0, 1);
        assertEquals(0, Natives.lastMessageId(handle, APP_TO + 7));
    }

    @ParameterizedTest
    @ValueSource(ints = {-1, Integer.MIN_VALUE})
    void aNegativeClassBaseIsOutOfBoundsWithAWarning(int base) {
        RecordingFacility facility = new RecordingFacility();
        JNITboLibLoader.setLogFacility(facility);
        long handle = openForWriting();
        assertFails(INDEX_OUT_OF_BOUNDS_ERROR, () -> Natives.lastMessageId(handle, base));
        assertEquals("Tabulo/C WARNING: mt_getLastMessageId(): Connection message id offset (" + base
                + ") out of bounds\n", facility.warnings());
    }

    @Test
    void theLastUniformIdIsTheLastOneNotTheHighest() {
        long handle = openForWriting();
        write(handle, m -> m.uniformId = 500);
        write(handle, m -> {
            m.uniformId = -3;
            m.connMsgId = -1;
        });
        assertEquals(-3, Natives.lastUniform(handle));
    }

    @Test
    void theLastGoodNumberIsGivenWithItsTimeStamp() {
        long handle = openForWriting();
        message(handle, 41, APP_FROM, 5_000_000_000L);
        message(handle, 42, APP_TO, 6_000_000_000L);
        Holder holder = new Holder();
        assertEquals(42, Natives.lastGood(handle, 0, holder));
        assertEquals(List.of(6_000_000_000L), holder.values);
        TimestampHolder ours = new TimestampHolder();
        assertEquals(42, Natives.lastGood(handle, 0, ours));
        assertEquals(6_000_000_000L, ours.getValue());
    }

    @Test
    void aNullHolderIsNotNeeded() {
        long handle = openForWriting();
        message(handle, 42, APP_TO, 9);
        assertEquals(42, Natives.lastGood(handle, 0, null));
    }

    @Test
    void theGivenTimeIsTheEarliestThatCounts() {
        long handle = openForWriting();
        message(handle, 42, APP_TO, 100);
        Holder holder = new Holder();
        assertEquals(42, Natives.lastGood(handle, 100, holder));
        assertEquals(0, Natives.lastGood(handle, 101, holder));
        assertEquals(List.of(100L), holder.values, "nothing found sets nothing");
    }

    @Test
    void aTimeStampOfZeroIsNotGivenToTheHolder() {
        long handle = openForWriting();
        message(handle, 42, APP_TO, 0);
        Holder holder = new Holder();
        assertEquals(42, Natives.lastGood(handle, -1, holder));
        assertEquals(List.of(), holder.values);
        message(handle, 43, APP_TO, -5);
        assertEquals(43, Natives.lastGood(handle, -5, holder));
        assertEquals(List.of(-5L), holder.values, "a negative one is");
    }

    @Test
    void aHolderWithoutTheMethodIsAJniErrorOnlyWhenItIsNeeded() {
        long handle = openForWriting();
        assertEquals(0, Natives.lastGood(handle, 0, "no holder"));
        message(handle, 42, APP_TO, 9);
        assertFails(JNI_ERROR, () -> Natives.lastGood(handle, 0, "no holder"));
        IntHolder wrongWidth = new IntHolder();
        assertFails(JNI_ERROR, () -> Natives.lastGood(handle, 0, wrongWidth));
        assertEquals(0, wrongWidth.value);
    }

    @Test
    void aHolderThatThrowsIsAJniError() {
        long handle = openForWriting();
        message(handle, 42, APP_TO, 9);
        assertFails(JNI_ERROR, () -> Natives.lastGood(handle, 0, new ThrowingHolder()));
        assertEquals(42, Natives.lastGood(handle, 0, null), "the table goes on afterwards");
    }

    @Test
    void resentAndOutOfSequenceAndPendingMessagesAreNotGood() {
        long handle = openForWriting();
        message(handle, 7, ADMIN_FROM, 10);
        message(handle, 8, RESENT, 20);
        write(handle, m -> {
            m.seqNum = 9;
            m.outOfSequence = true;
            m.timestamp = 30;
        });
        message(handle, -1, APP_TO, 40);
        message(handle, 0, APP_TO, 50);
        assertEquals(7, Natives.lastGood(handle, 0, null));
    }

    @Test
    void pendingNumbersAreFoundByTheirTime() {
        long handle = openForWriting();
        message(handle, -1, APP_TO, 100);
        message(handle, -2, APP_TO, 200);
        write(handle, m -> {
            m.seqNum = 5;
            m.prevSeqNum = -1;
            m.timestamp = 300;
        });
        assertEquals(-2, Natives.pending(handle, 200, true));
        assertEquals(0, Natives.pending(handle, 201, true));
        assertEquals(-2, Natives.pending(handle, 300, false), "one less than the pending number that was sent last");
        assertEquals(-1, Natives.pending(handle, 301, false));
    }

    @Test
    void onlyOutgoingApplicationMessagesArePending() {
        long handle = openForWriting();
        message(handle, -4, ADMIN_TO, 100);
        message(handle, -4, APP_FROM, 100);
        write(handle, m -> {
            m.seqNum = 5;
            m.prevSeqNum = -4;
            m.possDup = true;
        });
        assertEquals(0, Natives.pending(handle, 0, true));
        assertEquals(-1, Natives.pending(handle, 0, false));
    }

    @Test
    void lookupsAnswerTheSameAfterACloseAndAfterACrash() {
        long handle = openForWriting();
        message(handle, -2, APP_TO, 50);
        message(handle, 42, APP_FROM + 9, 100);
        close(handle);
        handle = openForWriting();
        assertEquals(42, Natives.lastGood(handle, 0, null));
        message(handle, 43, APP_FROM + 10, 200);
        free(handle);
        handle = openForWriting();
        assertEquals(43, Natives.lastGood(handle, 0, null));
        assertEquals(-2, Natives.pending(handle, 0, true));
        assertEquals(APP_FROM + 10, Natives.lastMessageId(handle, APP_FROM));
    }
}
