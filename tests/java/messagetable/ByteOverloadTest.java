package com.corvane.kestrova.engine.tabulo.jni;

import static com.corvane.kestrova.engine.tabulo.jni.Errors.assertFails;
import static com.corvane.kestrova.engine.tabulo.jni.JNITboErrorCodes.INDEX_OUT_OF_BOUNDS_ERROR;
import static com.corvane.kestrova.engine.tabulo.jni.JNITboErrorCodes.JNI_ERROR;
import static com.corvane.kestrova.engine.tabulo.jni.JNITboErrorCodes.NUMERIC_FIELDS_COUNT_MISMATCH_ERROR;
import static com.corvane.kestrova.engine.tabulo.jni.JNITboErrorCodes.READ_ONLY_ERROR;
import static com.corvane.kestrova.engine.tabulo.jni.JNITboErrorCodes.STRING_FIELDS_COUNT_MISMATCH_ERROR;
import static org.junit.jupiter.api.Assertions.assertArrayEquals;
import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertNull;

import java.io.IOException;
import java.util.Arrays;
import java.util.List;
import java.util.function.Consumer;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.params.ParameterizedTest;
import org.junit.jupiter.params.provider.CsvSource;

/** writeMessage with byte ranges and typed numbers. */
class ByteOverloadTest extends OnTables {
    private static final byte[] DIGITS = latin1("0123456789");

    private static void writeBytes(long handle, Consumer<Message> settings) {
        Natives.writeBytes(handle, Message.of(settings));
    }

    private void assertRefused(int code, long handle, Consumer<Message> settings) throws IOException {
        byte[] before = fileBytes();
        assertFails(code, () -> writeBytes(handle, settings));
        assertArrayEquals(before, fileBytes(), "a refused message changes nothing in the file");
        assertEquals(0, Natives.lastUniform(handle), "a refused message is not counted");
    }

    @Test
    void theWireMessageIsMadeOfTwoRangesAndEndsInANul() throws IOException {
        writeBytes(openForWriting(), m -> {
            m.builtIn0 = "zero";
            m.builtIn1 = "one";
            m.bytes1 = DIGITS;
            m.offset1 = 2;
            m.length1 = 3;
            m.bytes2 = latin1("abcdef");
            m.offset2 = 5;
            m.length2 = 1;
            m.bytes3 = DIGITS;
            m.offset3 = 8;
            m.length3 = 2;
        });
        StoredMessage stored = theStored();
        assertEquals("zero\0", stored.string(0));
        assertEquals("one\0", stored.string(1));
        assertEquals("234f\0", stored.string(2));
        assertEquals("89\0", stored.string(3), "the other fields get their NUL too");
    }

    @Test
    void bytesAreStoredAsTheyAre() throws IOException {
        byte[] all = new byte[256];
        for (int i = 0; i < all.length; ++i) {
            all[i] = (byte) i;
        }
        long handle = openForWriting();
        writeBytes(handle, m -> {
            m.setWire(all);
            m.setNonMetadata(new byte[] {0, 0});
        });
        assertArrayEquals(Arrays.copyOf(all, 257), theStored().strings().get(2));
        assertArrayEquals(new byte[3], theStored().strings().get(3));
        assertArrayEquals(all, read(handle, 0).wireBytes().get(0), "zero bytes inside do not cut the message");
    }

    @Test
    void rangesOfNoBytesMakeAnEmptyTextThatIsPresent() throws IOException {
        writeBytes(openForWriting(), m -> {
            m.bytes1 = DIGITS;
            m.offset1 = DIGITS.length;
            m.bytes3 = new byte[0];
        });
        assertEquals("\0", theStored().string(2));
        assertEquals("\0", theStored().string(3));
    }

    @Test
    void nullArraysLeaveTheFieldsAbsent() throws IOException {
        writeBytes(openForWriting(), m -> { });
        assertNull(theStored().string(2));
        assertNull(theStored().string(3));
    }

    @Test
    void aNullPartCountsAsEmptyWhateverItsLengthSays() throws IOException {
        long handle = openForWriting();
        writeBytes(handle, m -> {
            m.offset1 = -5;
            m.length1 = Integer.MAX_VALUE;
            m.bytes2 = DIGITS;
            m.length2 = 4;
            m.offset3 = Integer.MIN_VALUE;
            m.length3 = -1;
        });
        writeBytes(handle, m -> {
            m.bytes1 = DIGITS;
            m.length1 = 2;
            m.offset2 = 77;
            m.length2 = 3;
        });
        writeBytes(handle, m -> {
            m.length1 = 9;
            m.length2 = 9;
        });
        assertEquals("0123\0", stored().get(0).string(2));
        assertNull(stored().get(0).string(3));
        assertEquals("01\0", stored().get(1).string(2));
        assertNull(stored().get(2).string(2), "two null parts make no wire message");
    }

    @ParameterizedTest
    @CsvSource({"-1,1", "0,-1", "0,11", "10,1", "11,0", "2147483647,1", "1,2147483647", "2147483647,2147483647",
        "-2147483648,0", "5,-2147483648", "-1,0"})
    void aRangeOutsideItsArrayIsRefusedAndNothingIsWritten(int offset, int length) throws IOException {
        long handle = openForWriting();
        assertRefused(JNI_ERROR, handle, m -> {
            m.bytes1 = DIGITS;
            m.offset1 = offset;
            m.length1 = length;
        });
        assertRefused(JNI_ERROR, handle, m -> {
            m.setWire(DIGITS);
            m.bytes2 = DIGITS;
            m.offset2 = offset;
            m.length2 = length;
        });
        assertRefused(JNI_ERROR, handle, m -> {
            m.bytes3 = DIGITS;
            m.offset3 = offset;
            m.length3 = length;
        });
        writeBytes(handle, m -> m.setWire(DIGITS));
        assertEquals("0123456789\0", theStored().string(2), "the table goes on afterwards");
    }

    @Test
    void theTypeMapChoosesBetweenLongsDoublesAndNothing() throws IOException {
        long handle = open(provider().numerics("a", "b", "c", "d", "e"), Natives.WRITE);
        writeBytes(handle, m -> {
            m.typeMap = new int[] {2, -2, 0, 1, -1};
            m.longs = new long[] {Long.MIN_VALUE, Long.MAX_VALUE};
            m.doubles = new double[] {-0.25, 1e300};
        });
        assertEquals(Arrays.asList(Long.MAX_VALUE, 1e300, null, Long.MIN_VALUE, -0.25), theStored().numerics());
    }

    @Test
    void aValueMayBeUsedBySeveralFieldsOrNone() throws IOException {
        long handle = open(provider().numerics("a", "b"), Natives.WRITE);
        writeBytes(handle, m -> {
            m.typeMap = new int[] {16, 16};
            m.longs = new long[16];
            m.longs[15] = 4711;
            m.doubles = new double[16];
        });
        assertEquals(List.of(4711L, 4711L), theStored().numerics());
    }

    @ParameterizedTest
    @CsvSource({"3", "-3", "2147483647", "-2147483648", "-2147483647", "17", "-17"})
    void anEntryThatPointsPastTheValuesIsRefused(int entry) throws IOException {
        long handle = open(provider().numerics("a", "b"), Natives.WRITE);
        assertRefused(INDEX_OUT_OF_BOUNDS_ERROR, handle, m -> {
            m.typeMap = new int[] {1, entry};
            m.longs = new long[2];
            m.doubles = new double[2];
        });
    }

    @Test
    void moreThanSixteenValuesCountAsNone() throws IOException {
        long handle = open(provider().numerics("a"), Natives.WRITE);
        assertRefused(INDEX_OUT_OF_BOUNDS_ERROR, handle, m -> {
            m.typeMap = new int[] {1};
            m.longs = new long[17];
        });
        assertRefused(INDEX_OUT_OF_BOUNDS_ERROR, handle, m -> {
            m.typeMap = new int[] {-1};
            m.doubles = new double[17];
        });
    }

    @Test
    void nullAndEmptyValueArraysHoldNothing() throws IOException {
        long handle = open(provider().numerics("a"), Natives.WRITE);
        assertRefused(INDEX_OUT_OF_BOUNDS_ERROR, handle, m -> m.typeMap = new int[] {1});
        assertRefused(INDEX_OUT_OF_BOUNDS_ERROR, handle, m -> m.typeMap = new int[] {-1});
        assertRefused(INDEX_OUT_OF_BOUNDS_ERROR, handle, m -> {
            m.typeMap = new int[] {1};
            m.longs = new long[0];
            m.doubles = new double[1];
        });
        writeBytes(handle, m -> m.typeMap = new int[] {0});
        assertNull(theStored().numerics().get(0), "an absent number needs no values");
    }

    @Test
    void aTypeMapShorterThanTheNumericFieldsIsRefused() throws IOException {
        long handle = open(provider().numerics("a", "b"), Natives.WRITE);
        assertRefused(NUMERIC_FIELDS_COUNT_MISMATCH_ERROR, handle, m -> m.typeMap = new int[] {0});
        assertRefused(NUMERIC_FIELDS_COUNT_MISMATCH_ERROR, handle, m -> m.typeMap = new int[0]);
        assertRefused(NUMERIC_FIELDS_COUNT_MISMATCH_ERROR, handle, m -> m.typeMap = null);
    }

    @Test
    void entriesBehindTheNumericFieldsAreIgnored() throws IOException {
        long handle = open(provider().numerics("a"), Natives.WRITE);
        int[] map = new int[40];
        Arrays.fill(map, 99);
        map[0] = 1;
        writeBytes(handle, m -> {
            m.typeMap = map;
            m.longs = new long[] {5};
        });
        assertEquals(List.of(5L), theStored().numerics());
    }

    @Test
    void aTableWithoutNumericFieldsNeedsNoTypeMap() throws IOException {
        long handle = openForWriting();
        writeBytes(handle, m -> m.typeMap = null);
        writeBytes(handle, m -> {
            m.typeMap = new int[] {99};
            m.longs = new long[99];
        });
        assertEquals(2, stored().size());
    }

    @Test
    void fewerIndexedStringsThanFieldsAreAMismatch() throws IOException {
        long handle = open(provider().strings("a", "b"), Natives.WRITE);
        assertRefused(STRING_FIELDS_COUNT_MISMATCH_ERROR, handle, m -> m.strings = new String[] {"1"});
        assertRefused(STRING_FIELDS_COUNT_MISMATCH_ERROR, handle, m -> m.strings = new String[0]);
    }

    @Test
    void aNullIndexedArrayMeansThatEveryConfiguredStringIsAbsent() throws IOException {
        long handle = open(provider().strings("a", "b"), Natives.WRITE);
        writeBytes(handle, m -> {
            m.builtIn1 = "one";
            m.setWire(DIGITS);
        });
        assertEquals(6, theStored().strings().size());
        assertEquals("one\0", theStored().string(1));
        assertNull(theStored().string(2));
        assertNull(theStored().string(3));
        assertEquals("0123456789\0", theStored().string(4));
    }

    @Test
    void indexedStringsBehindTheConfiguredOnesAreIgnored() throws IOException {
        long handle = open(provider().strings("a"), Natives.WRITE);
        writeBytes(handle, m -> {
            m.strings = Provider.names("v", 20);
            m.setWire(DIGITS);
        });
        assertEquals("v0\0", theStored().string(2));
        assertEquals("0123456789\0", theStored().string(3));
        assertEquals(5, theStored().strings().size());
    }

    @Test
    void bothOverloadsWriteTheSameFrameForAsciiText() throws IOException {
        long handle = open(provider().strings("a").numerics("n"), Natives.WRITE);
        Message message = Message.of(m -> {
            m.builtIn0 = "b0";
            m.strings = new String[] {"s"};
            m.wire = "wire";
            m.nonMetadata = "rest";
            m.doubles = new double[] {1.5};
            m.setWire(latin1("wire"));
            m.setNonMetadata(latin1("rest"));
            m.typeMap = new int[] {-1};
        });
        Natives.writeTexts(handle, message);
        long afterFirst = file().toFile().length();
        Natives.writeBytes(handle, message);
        byte[] all = fileBytes();
        int size = (int) (all.length - afterFirst);
        assertArrayEquals(Arrays.copyOfRange(all, all.length - 2 * size, all.length - size),
                Arrays.copyOfRange(all, all.length - size, all.length));
    }

    @Test
    void aTableOpenForReadingTakesNoMessage() throws IOException {
        close(openForWriting());
        assertRefused(READ_ONLY_ERROR, openForReading(), m -> m.setWire(DIGITS));
    }
}
