package com.corvane.kestrova.engine.tabulo.jni;

import static com.corvane.kestrova.engine.tabulo.jni.Errors.assertFails;
import static com.corvane.kestrova.engine.tabulo.jni.JNITboErrorCodes.NUMERIC_FIELDS_COUNT_MISMATCH_ERROR;
import static com.corvane.kestrova.engine.tabulo.jni.JNITboErrorCodes.NUMERIC_FIELDS_LIMIT_ERROR;
import static com.corvane.kestrova.engine.tabulo.jni.JNITboErrorCodes.READ_ONLY_ERROR;
import static com.corvane.kestrova.engine.tabulo.jni.JNITboErrorCodes.STRING_FIELDS_COUNT_MISMATCH_ERROR;
import static com.corvane.kestrova.engine.tabulo.jni.JNITboErrorCodes.STRING_FIELDS_LIMIT_ERROR;
import static org.junit.jupiter.api.Assertions.assertArrayEquals;
import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertNull;

import java.io.ByteArrayOutputStream;
import java.io.DataOutputStream;
import java.io.IOException;
import java.nio.charset.StandardCharsets;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.Collections;
import java.util.List;
import java.util.function.Consumer;
import org.junit.jupiter.api.Test;

/** writeMessage with texts and doubles. */
class TextOverloadTest extends OnTables {
    private void assertRefused(int code, long handle, Consumer<Message> settings) throws IOException {
        byte[] before = fileBytes();
        assertFails(code, () -> write(handle, settings));
        assertArrayEquals(before, fileBytes(), "a refused message changes nothing in the file");
        assertEquals(0, Natives.lastUniform(handle), "a refused message is not counted");
    }

    @Test
    void theMetadataReachTheFileAsTheyAreGiven() throws IOException {
        long handle = openForWriting();
        write(handle, m -> {
            m.uniformId = Integer.MIN_VALUE;
            m.seqNum = -7;
            m.prevSeqNum = Integer.MAX_VALUE;
            m.connMsgId = 0x1FFFFFFF;
            m.timestamp = Long.MIN_VALUE + 5;
            m.possDup = true;
        });
        StoredMessage stored = theStored();
        assertEquals(Integer.MIN_VALUE, stored.uniformId());
        assertEquals(-7, stored.seqNum());
        assertEquals(Integer.MAX_VALUE, stored.prevSeqNum());
        assertEquals(0x1FFFFFFF, stored.connMsgId());
        assertEquals(Long.MIN_VALUE + 5, stored.timestamp());
        assertEquals(1, stored.possDup(), "the possible duplicate flag");
        assertEquals(0, stored.outOfSequence(), "the out of sequence flag");
    }

    @Test
    void theTwoFlagsAreNotMixedUp() throws IOException {
        long handle = openForWriting();
        write(handle, m -> m.outOfSequence = true);
        assertEquals(0, theStored().possDup(), "the possible duplicate flag");
        assertEquals(1, theStored().outOfSequence(), "the out of sequence flag");
    }

    @Test
    void theIndexedValuesStandBetweenTheSecondAndTheThirdBuiltInString() throws IOException {
        long handle = open(provider().strings("ClOrdID", "Symbol", "Account"), Natives.WRITE);
        write(handle, m -> {
            m.builtIn0 = "zero";
            m.builtIn1 = "one";
            m.strings = new String[] {"order", null, "account"};
            m.wire = "wire";
            m.nonMetadata = "other";
        });
        StoredMessage stored = theStored();
        assertEquals(7, stored.strings().size());
        assertEquals("zero\0", stored.string(0));
        assertEquals("one\0", stored.string(1));
        assertEquals("order\0", stored.string(2));
        assertNull(stored.string(3), "a null value is an absent field");
        assertEquals("account\0", stored.string(4));
        assertEquals("wire\0", stored.string(5));
        assertEquals("other\0", stored.string(6));
    }

    @Test
    void anEmptyTextIsPresentAndANullOneIsNot() throws IOException {
        long handle = openForWriting();
        write(handle, m -> {
            m.builtIn0 = "";
            m.wire = "";
        });
        assertEquals("\0", theStored().string(0), "the empty text is stored as its NUL");
        assertNull(theStored().string(1));
        assertEquals("\0", theStored().string(2));
        assertNull(theStored().string(3));
    }

    @Test
    void textsAreStoredAsModifiedUtf8() throws IOException {
        long handle = openForWriting();
        write(handle, m -> {
            m.builtIn0 = "a\0b";
            m.builtIn1 = "\uD83D\uDE00";
            m.wire = "\u00E9\u20AC";
            m.nonMetadata = "\uDC00x\uD800";
        });
        StoredMessage stored = theStored();
        assertEquals("a\u00C0\u0080b\0", stored.string(0), "U+0000 takes two bytes");
        assertEquals("\u00ED\u00A0\u00BD\u00ED\u00B8\u0080\0", stored.string(1), "each surrogate takes three bytes");
        assertEquals("\u00C3\u00A9\u00E2\u0082\u00AC\0", stored.string(2));
        assertEquals("\u00ED\u00B0\u0080x\u00ED\u00A0\u0080\0", stored.string(3), "lone surrogates too");
    }

    private static String modifiedUtf8(String text) throws IOException {
        ByteArrayOutputStream bytes = new ByteArrayOutputStream();
        new DataOutputStream(bytes).writeUTF(text);
        return bytes.toString(StandardCharsets.ISO_8859_1).substring(2) + '\0';  // behind the length
    }

    @Test
    void everyCharacterIsStoredWhereverItStandsInATextOfAnyLength() throws IOException {
        long handle = openForWriting();
        List<String> texts = new ArrayList<>();
        for (int length : new int[] {1, 2, 15, 16, 17, 1023, 1024, 1025, 2048, 2049, 20_000}) {
            for (char odd : "\0\u0001\u007F\u0080\u00FF\u0100\u07FF\u0800\uD800\uDFFF\uFFFF".toCharArray()) {
                for (int index : new int[] {0, 1, length / 2, 1023, 1024, length - 1}) {
                    StringBuilder text = new StringBuilder("D".repeat(length));
                    text.setCharAt(Math.min(index, length - 1), odd);
                    texts.add(text.toString());
                }
            }
        }
        for (String text : texts) {
            write(handle, m -> {
                m.builtIn1 = "in front";
                m.wire = text;
                m.nonMetadata = "behind";
            });
        }
        List<StoredMessage> stored = stored();
        assertEquals(texts.size(), stored.size());
        for (int i = 0; i < texts.size(); ++i) {
            assertEquals("in front\0", stored.get(i).string(1));
            assertEquals(modifiedUtf8(texts.get(i)), stored.get(i).string(2), "text " + i);
            assertEquals("behind\0", stored.get(i).string(3));
        }
    }

    @Test
    void aTextLargerThanEveryBufferIsStoredWhole() throws IOException {
        long handle = openForWriting();
        String large = "x".repeat(3_000_000);
        write(handle, m -> m.wire = large);
        write(handle, m -> m.wire = "small");
        assertEquals(large + "\0", stored().get(0).string(2));
        assertEquals("small\0", stored().get(1).string(2));
    }

    @Test
    void sixteenNumbersAreAcceptedAndSeventeenAreNot() throws IOException {
        long handle = open(provider().numerics(Provider.names("n", 16)), Natives.WRITE);
        assertRefused(NUMERIC_FIELDS_LIMIT_ERROR, handle, m -> m.doubles = new double[17]);
        double[] values = new double[16];
        Arrays.setAll(values, i -> i - 0.5);
        write(handle, m -> m.doubles = values);
        List<Object> stored = theStored().numerics();
        for (int i = 0; i < 16; ++i) {
            assertEquals(i - 0.5, stored.get(i), "number " + i);
        }
    }

    @Test
    void numbersKeepEveryBit() throws IOException {
        long handle = open(provider().numerics("a", "b", "c", "d"), Natives.WRITE);
        double oddNan = Double.longBitsToDouble(0x7FF8_0000_0000_1234L);
        write(handle, m -> m.doubles = new double[] {-0.0, oddNan, Double.NEGATIVE_INFINITY, Double.MIN_VALUE});
        List<Object> stored = theStored().numerics();
        assertEquals(Double.doubleToRawLongBits(-0.0), Double.doubleToRawLongBits((Double) stored.get(0)));
        assertEquals(0x7FF8_0000_0000_1234L, Double.doubleToRawLongBits((Double) stored.get(1)));
        assertEquals(Double.NEGATIVE_INFINITY, stored.get(2));
        assertEquals(Double.MIN_VALUE, stored.get(3));
    }

    @Test
    void fewerNumbersThanFieldsLeaveTheLastFieldsAbsent() throws IOException {
        long handle = open(provider().numerics("a", "b", "c"), Natives.WRITE);
        write(handle, m -> m.doubles = new double[] {2.5});
        assertEquals(Arrays.asList(2.5, null, null), theStored().numerics());
    }

    @Test
    void aNullNumberArrayLeavesAllFieldsAbsent() throws IOException {
        long handle = open(provider().numerics("a", "b"), Natives.WRITE);
        write(handle, m -> m.doubles = null);
        assertEquals(Collections.nCopies(2, null), theStored().numerics());
    }

    @Test
    void anEmptyNumberArrayLeavesAllFieldsAbsent() throws IOException {
        long handle = open(provider().numerics("a", "b"), Natives.WRITE);
        write(handle, m -> m.doubles = new double[0]);
        assertEquals(Collections.nCopies(2, null), theStored().numerics());
    }

    @Test
    void moreNumbersThanFieldsAreAMismatch() throws IOException {
        long handle = open(provider().numerics("a", "b"), Natives.WRITE);
        assertRefused(NUMERIC_FIELDS_COUNT_MISMATCH_ERROR, handle, m -> m.doubles = new double[3]);
        assertRefused(NUMERIC_FIELDS_COUNT_MISMATCH_ERROR, handle, m -> m.doubles = new double[16]);
        assertRefused(NUMERIC_FIELDS_LIMIT_ERROR, handle, m -> m.doubles = new double[17]);
    }

    @Test
    void anyNumberIsTooMuchForATableWithoutNumericFields() throws IOException {
        assertRefused(NUMERIC_FIELDS_COUNT_MISMATCH_ERROR, openForWriting(), m -> m.doubles = new double[1]);
    }

    @Test
    void twelveIndexedStringsAreAcceptedAndThirteenAreNot() throws IOException {
        long handle = open(provider().strings(Provider.names("s", 12)), Natives.WRITE);
        assertRefused(STRING_FIELDS_LIMIT_ERROR, handle, m -> m.strings = new String[13]);
        write(handle, m -> m.strings = Provider.names("value", 12));
        assertEquals(16, theStored().strings().size());
        assertEquals("value0\0", theStored().string(2));
        assertEquals("value11\0", theStored().string(13));
    }

    @Test
    void theNumberOfIndexedStringsMustBeThatOfTheFields() throws IOException {
        long handle = open(provider().strings("a", "b"), Natives.WRITE);
        assertRefused(STRING_FIELDS_COUNT_MISMATCH_ERROR, handle, m -> m.strings = new String[] {"1"});
        assertRefused(STRING_FIELDS_COUNT_MISMATCH_ERROR, handle, m -> m.strings = new String[] {"1", "2", "3"});
        assertRefused(STRING_FIELDS_COUNT_MISMATCH_ERROR, handle, m -> m.strings = new String[12]);
        assertRefused(STRING_FIELDS_COUNT_MISMATCH_ERROR, handle, m -> m.strings = new String[0]);
    }

    @Test
    void aNullIndexedArrayCountsAsNone() throws IOException {
        long handle = open(provider().strings("a"), Natives.WRITE);
        assertRefused(STRING_FIELDS_COUNT_MISMATCH_ERROR, handle, m -> m.strings = null);
        long plain = open(provider().named("plain"), Natives.WRITE);
        write(plain, m -> m.strings = null);
        write(plain, m -> m.strings = new String[0]);
        assertEquals(2, StoredMessage.readAll(directory.resolve("plain")).size());
    }

    @Test
    void tooManyNumbersAreReportedBeforeTooManyStrings() throws IOException {
        assertRefused(NUMERIC_FIELDS_LIMIT_ERROR, openForWriting(), m -> {
            m.doubles = new double[17];
            m.strings = new String[13];
        });
    }

    @Test
    void aTableOpenForReadingTakesNoMessageButChecksTheCountsFirst() throws IOException {
        close(openForWriting());
        long reader = openForReading();
        assertRefused(STRING_FIELDS_COUNT_MISMATCH_ERROR, reader, m -> m.strings = new String[1]);
        assertRefused(NUMERIC_FIELDS_COUNT_MISMATCH_ERROR, reader, m -> m.doubles = new double[1]);
        assertRefused(READ_ONLY_ERROR, reader, m -> m.wire = "x");
        assertRefused(READ_ONLY_ERROR, reader, m -> m.wire = "still open");
    }
}
