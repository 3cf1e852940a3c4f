package com.corvane.kestrova.engine.tabulo.jni;

import static com.corvane.kestrova.engine.tabulo.jni.Errors.assertFails;
import static com.corvane.kestrova.engine.tabulo.jni.JNITboErrorCodes.CONSISTENCY_ERROR;
import static com.corvane.kestrova.engine.tabulo.jni.JNITboErrorCodes.INDEX_OUT_OF_BOUNDS_ERROR;
import static com.corvane.kestrova.engine.tabulo.jni.JNITboErrorCodes.ITERATOR_CLOSED_ERROR;
import static org.junit.jupiter.api.Assertions.assertArrayEquals;
import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;
import static org.junit.jupiter.api.Assertions.assertNull;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.io.IOException;
import java.io.RandomAccessFile;
import java.util.Arrays;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.params.ParameterizedTest;
import org.junit.jupiter.params.provider.ValueSource;

/** What an iterator answers about its message, and about none. */
class IteratorFieldsTest extends OnQueries {
    private static final byte[] LATIN_1 = {'5', '8', '=', (byte) 0xFC, 0, 1, 'x'};

    private int tables;

    private Provider fields() {
        return provider().strings("s0", "s1").numerics("n0", "n1", "n2");
    }

    private long tableWithFields() {
        return open(fields(), Natives.WRITE);
    }

    /** A message in which everything is given. */
    private static Message full() {
        return Message.of(m -> {
            m.uniformId = 7;
            m.seqNum = -8;
            m.prevSeqNum = 9;
            m.connMsgId = 10;
            m.timestamp = Long.MIN_VALUE + 11;
            m.msgType = "AE";
            m.possDup = true;
            m.builtIn0 = "CLIENT";
            m.builtIn1 = "BROKER";
            m.strings = new String[] {"first", "zw\u00f6lf \u20ac"};
            m.setWire("35=AE\001".getBytes());
            m.setNonMetadata(LATIN_1);
            m.typeMap = new int[] {1, -1, 0};
            m.longs = new long[] {Long.MAX_VALUE};
            m.doubles = new double[] {-1.75};
        });
    }

    /** A message in which all that can be absent is. */
    private static Message bare() {
        return Message.of(m -> {
            m.uniformId = 1;
            m.outOfSequence = true;
            m.strings = new String[2];
            m.typeMap = new int[3];
        });
    }

    /** An iterator at the only message of a table of its own. */
    private long at(Message message) {
        long table = open(fields().named("table" + tables++), Natives.WRITE);
        Natives.writeBytes(table, message);
        long iterator = query(table, new RawConditions());
        assertTrue(QueryNatives.next(iterator));
        return iterator;
    }

    @Test
    void theMetadataComesAsItWasWritten() {
        long it = at(full());
        assertEquals(7, QueryNatives.<Integer>get(it, "getUniformMessageId"));
        assertEquals(-8, QueryNatives.<Integer>get(it, "getMsgSeqNum"));
        assertEquals(9, QueryNatives.<Integer>get(it, "getPrevSeqNum"));
        assertEquals(10, QueryNatives.<Integer>get(it, "getConnectionMsgId"));
        assertEquals(Long.MIN_VALUE + 11, QueryNatives.<Long>get(it, "getTimestamp"));
        assertEquals("AE", QueryNatives.get(it, "getMsgType"));
        assertEquals(true, QueryNatives.get(it, "getIsPossDupFlag"));
        assertEquals(false, QueryNatives.get(it, "getIsOutOfSequence"));
        long other = at(bare());
        assertEquals(false, QueryNatives.get(other, "getIsPossDupFlag"));
        assertEquals(true, QueryNatives.get(other, "getIsOutOfSequence"));
    }

    @Test
    void bytesComeWithoutTheirNulAndUnchanged() {
        long it = at(full());
        assertArrayEquals("35=AE\001".getBytes(), QueryNatives.<byte[]>get(it, "getWireMessageAsByteArray"));
        assertArrayEquals(LATIN_1, QueryNatives.<byte[]>get(it, "getNonMetadataFieldsAsByteArray"));
    }

    @Test
    void textsComeAsStrings() {
        long it = at(full());
        assertEquals("35=AE\001", QueryNatives.get(it, "getWireMessage"));
        String nonMetadata = QueryNatives.get(it, "getNonMetadataFields");
        assertTrue(nonMetadata.startsWith("58=") && nonMetadata.endsWith("\001x"), nonMetadata);
    }

    @Test
    void everySlotHasItsString() {
        long it = at(full());
        assertEquals("CLIENT", QueryNatives.string(it, 0));
        assertEquals("BROKER", QueryNatives.string(it, 1));
        assertEquals("first", QueryNatives.string(it, 2));
        assertEquals("zw\u00f6lf \u20ac", QueryNatives.string(it, 3));
        assertEquals("35=AE\001", QueryNatives.string(it, 4));
        assertEquals(QueryNatives.<String>get(it, "getNonMetadataFields"), QueryNatives.string(it, 5));
        assertEquals("AE", QueryNatives.string(it, 6), "the index behind the last string is the MsgType");
    }

    @ParameterizedTest
    @ValueSource(ints = {7, -1, Integer.MAX_VALUE, Integer.MIN_VALUE})
    void aStringIndexOutOfRangeIsRefused(int index) {
        long it = at(full());
        assertFails(INDEX_OUT_OF_BOUNDS_ERROR, () -> QueryNatives.string(it, index));
    }

    @Test
    void absentTextsAreNullAndEmptyOnesAreEmpty() {
        long it = at(bare());
        for (int index = 0; index < 6; ++index) {
            assertNull(QueryNatives.string(it, index), "string " + index);
        }
        assertEquals("D", QueryNatives.string(it, 6));
        assertNull(QueryNatives.get(it, "getWireMessage"));
        assertNull(QueryNatives.get(it, "getWireMessageAsByteArray"));
        assertNull(QueryNatives.get(it, "getNonMetadataFields"));
        assertNull(QueryNatives.get(it, "getNonMetadataFieldsAsByteArray"));
        Message empty = bare();
        empty.builtIn0 = "";
        empty.setWire(new byte[0]);
        long other = at(empty);
        assertEquals("", QueryNatives.string(other, 0));
        assertEquals("", QueryNatives.get(other, "getWireMessage"));
        assertArrayEquals(new byte[0], QueryNatives.<byte[]>get(other, "getWireMessageAsByteArray"));
    }

    @Test
    void numbersAreConverted() {
        long it = at(full());
        assertEquals(Long.MAX_VALUE, QueryNatives.asLong(it, 0));
        assertEquals(0x1p63, QueryNatives.asDouble(it, 0));
        assertEquals(-1, QueryNatives.asLong(it, 1), "truncated towards zero");
        assertEquals(-1.75, QueryNatives.asDouble(it, 1));
    }

    @Test
    void anAbsentNumberIsZeroOrNotANumber() {
        long it = at(full());
        assertEquals(0, QueryNatives.asLong(it, 2));
        assertTrue(Double.isNaN(QueryNatives.asDouble(it, 2)));
    }

    @Test
    void theIndexesBehindTheNumbersAreTheMetadata() {
        long it = at(full());
        long[] expected = {7, -8, 9, 10, Long.MIN_VALUE + 11, 1, 0};
        for (int i = 0; i < expected.length; ++i) {
            assertEquals(expected[i], QueryNatives.asLong(it, 3 + i), "index " + (3 + i));
            assertEquals((double) expected[i], QueryNatives.asDouble(it, 3 + i), "index " + (3 + i));
        }
    }

    @ParameterizedTest
    @ValueSource(ints = {10, -1, Integer.MAX_VALUE, Integer.MIN_VALUE})
    void aNumericIndexOutOfRangeIsRefused(int index) {
        long it = at(full());
        assertFails(INDEX_OUT_OF_BOUNDS_ERROR, () -> QueryNatives.asLong(it, index));
        assertFails(INDEX_OUT_OF_BOUNDS_ERROR, () -> QueryNatives.asDouble(it, index));
    }

    @Test
    void aRefusedIndexLeavesTheMessageInPlace() {
        long it = at(full());
        assertFails(INDEX_OUT_OF_BOUNDS_ERROR, () -> QueryNatives.string(it, 7));
        assertEquals("CLIENT", QueryNatives.string(it, 0));
    }

    private static void assertAtNoMessage(long it) {
        for (String number : new String[] {"getUniformMessageId", "getMsgSeqNum", "getPrevSeqNum",
            "getConnectionMsgId"}) {
            assertEquals(0, QueryNatives.<Integer>get(it, number), number);
        }
        assertEquals(0L, QueryNatives.<Long>get(it, "getTimestamp"));
        assertEquals("", QueryNatives.get(it, "getMsgType"));
        assertEquals(false, QueryNatives.get(it, "getIsPossDupFlag"));
        assertEquals(false, QueryNatives.get(it, "getIsOutOfSequence"));
        for (String text : new String[] {"getWireMessage", "getWireMessageAsByteArray", "getNonMetadataFields",
            "getNonMetadataFieldsAsByteArray"}) {
            assertNull(QueryNatives.get(it, text), text);
        }
        assertEquals("", QueryNatives.string(it, 0), "no strings are there: the MsgType comes first");
        assertFails(INDEX_OUT_OF_BOUNDS_ERROR, () -> QueryNatives.string(it, 1));
        for (int pseudo = 0; pseudo < 7; ++pseudo) {
            assertEquals(0, QueryNatives.asLong(it, pseudo));
            assertEquals(0.0, QueryNatives.asDouble(it, pseudo));
        }
        assertFails(INDEX_OUT_OF_BOUNDS_ERROR, () -> QueryNatives.asLong(it, 7));
        assertFails(INDEX_OUT_OF_BOUNDS_ERROR, () -> QueryNatives.asDouble(it, 7));
    }

    @Test
    void beforeTheFirstMessageThereIsNothingToGet() {
        long table = tableWithFields();
        Natives.writeBytes(table, full());
        assertAtNoMessage(query(table, new RawConditions()));
    }

    @Test
    void behindTheLastMessageThereIsNothingToGet() {
        long it = at(full());
        assertFalse(QueryNatives.next(it));
        assertAtNoMessage(it);
        assertFalse(QueryNatives.next(it));
        assertAtNoMessage(it);
    }

    @Test
    void anIteratorThatSelectsNothingHasNothingToGet() {
        long table = tableWithFields();
        Natives.writeBytes(table, full());
        long it = query(table, RawConditions.of(c -> c.possDup = false));
        assertFalse(QueryNatives.next(it));
        assertAtNoMessage(it);
    }

    /** The last four bytes of the file repeat the length of its last message. */
    @Test
    void afterAnErrorThereIsNothingToGet() throws IOException {
        long table = tableWithFields();
        Natives.writeBytes(table, full());
        Natives.writeBytes(table, full());
        close(table);
        try (RandomAccessFile damaged = new RandomAccessFile(file().toFile(), "rw")) {
            damaged.seek(damaged.length() - Integer.BYTES);
            damaged.writeInt(0);
        }
        long reader = open(fields(), Natives.READ);
        long it = query(reader, new RawConditions());
        assertTrue(QueryNatives.next(it), "the message in front of the damage");
        assertFails(CONSISTENCY_ERROR, () -> QueryNatives.next(it));
        assertAtNoMessage(it);
    }

    @Test
    void aTableWithAsManyFieldsAsThereMayBeGivesThemAll() {
        long table = open(provider().strings(Provider.names("s", 12)).numerics(Provider.names("n", 16)),
                Natives.WRITE);
        Message message = Message.of(m -> {
            m.strings = Provider.names("value", 12);
            m.doubles = new double[16];
            Arrays.setAll(m.doubles, i -> i + 0.5);
            m.wire = "wire";
            m.nonMetadata = "other";
        });
        Natives.writeTexts(table, message);
        long it = query(table, new RawConditions());
        assertTrue(QueryNatives.next(it));
        for (int i = 0; i < 12; ++i) {
            assertEquals("value" + i, QueryNatives.string(it, 2 + i));
        }
        assertEquals("wire", QueryNatives.string(it, 14));
        assertEquals("other", QueryNatives.string(it, 15));
        assertEquals("D", QueryNatives.string(it, 16));
        for (int i = 0; i < 16; ++i) {
            assertEquals(i + 0.5, QueryNatives.asDouble(it, i));
        }
        assertEquals(1, QueryNatives.asLong(it, 16), "the uniform id");
        assertFails(INDEX_OUT_OF_BOUNDS_ERROR, () -> QueryNatives.asLong(it, 23));
    }

    @Test
    void closingNothingSaysThatTheIteratorIsClosed() {
        Natives.load();
        assertFails(ITERATOR_CLOSED_ERROR, () -> QueryNatives.close(0));
        assertFails(ITERATOR_CLOSED_ERROR, () -> QueryNatives.next(0));
        assertFails(ITERATOR_CLOSED_ERROR, () -> QueryNatives.string(0, -1));
    }
}
