package com.corvane.kestrova.engine.tabulo.jni;

import static com.corvane.kestrova.engine.tabulo.jni.Errors.assertFails;
import static com.corvane.kestrova.engine.tabulo.jni.JNITboErrorCodes.INDEX_OUT_OF_BOUNDS_ERROR;
import static com.corvane.kestrova.engine.tabulo.jni.JNITboErrorCodes.JNI_ERROR;
import static com.corvane.kestrova.engine.tabulo.jni.JNITboErrorCodes.NO_DATA_ERROR;
import static com.corvane.kestrova.engine.tabulo.jni.JNITboErrorCodes.NULL_POINTER_ERROR;
import static com.corvane.kestrova.engine.tabulo.jni.JNITboErrorCodes.TABLE_CLOSED_ERROR;
import static com.corvane.kestrova.engine.tabulo.jni.JNITboErrorCodes.WRONG_PARAMETER_ERROR;
import static org.junit.jupiter.api.Assertions.assertArrayEquals;
import static org.junit.jupiter.api.Assertions.assertDoesNotThrow;
import static org.junit.jupiter.api.Assertions.assertEquals;

import java.io.IOException;
import java.util.Arrays;
import java.util.stream.IntStream;
import java.util.stream.LongStream;
import org.junit.jupiter.api.BeforeEach;
import org.junit.jupiter.api.Test;

/** What the native methods that read and write fields do with their counts and arrays. */
class JNITboSessionInfoTableFieldsTest extends OnSessionTables {
    private static final long UNTOUCHED = 0x5a5a5a5aL;

    private long table;

    @BeforeEach
    void openATableWithValues() {
        table = openForWriting();
        SessionNatives.write(table, DEFAULT_TAGS.length, DEFAULT_TAGS, SOME_VALUES);
    }

    private static int[] tags(int... tags) {
        return tags;
    }

    private static long[] values(long... values) {
        return values;
    }

    private static long[] untouched(int length) {
        long[] values = new long[length];
        Arrays.fill(values, UNTOUCHED);
        return values;
    }

    /** The read fails with the code and leaves the array as it was. */
    private void assertReadFails(int code, int count, int[] tags, int valuesLength) {
        long[] values = untouched(valuesLength);
        assertFails(code, () -> SessionNatives.read(table, count, tags, values));
        assertArrayEquals(untouched(valuesLength), values, "a failed read leaves the Java array as it was");
    }

    /** The write fails with the code and changes nothing. */
    private void assertWriteFails(int code, int count, int[] tags, long[] values) throws IOException {
        assertFails(code, () -> SessionNatives.write(table, count, tags, values));
        assertFile(DEFAULT_TAGS, SOME_VALUES);
        assertArrayEquals(SOME_VALUES, SessionNatives.read(table, DEFAULT_TAGS), "nothing is changed");
    }

    @Test
    void valuesComeInTheCallersOrder() {
        assertArrayEquals(values(60, 10, 60, 20), SessionNatives.read(table, 6, 1, 6, 2));
    }

    @Test
    void allSixtyFourBitsOfAValueGoThrough() throws IOException {
        long[] extremes = {Long.MIN_VALUE, Long.MAX_VALUE, -1, 0, 1, 0x1122334455667788L};
        SessionNatives.write(table, 6, DEFAULT_TAGS, extremes);
        assertFile(DEFAULT_TAGS, extremes);
        assertArrayEquals(extremes, SessionNatives.read(table, DEFAULT_TAGS));
    }

    @Test
    void onlyTheFirstCountElementsAreTaken() throws IOException {
        SessionNatives.write(table, 2, tags(1, 3, 5, 99), values(11, 33, 55));
        assertFile(DEFAULT_TAGS, 20, 11, 33, 40, 50, 60);
        long[] read = untouched(4);
        SessionNatives.read(table, 2, tags(1, 3, 99), read);
        assertArrayEquals(values(11, 33, UNTOUCHED, UNTOUCHED), read);
    }

    @Test
    void aNegativeCountTakesTheWholeArray() throws IOException {
        SessionNatives.write(table, -1, tags(1, 3, 5), values(11, 33, 55));
        assertFile(DEFAULT_TAGS, 20, 11, 33, 40, 55, 60);
        long[] read = untouched(4);
        SessionNatives.read(table, Integer.MIN_VALUE, tags(1, 3, 5), read);
        assertArrayEquals(values(11, 33, 55, UNTOUCHED), read);
    }

    @Test
    void aNegativeCountWithFewerValuesThanTagsIsAJniErrorAndWritesNothing() throws IOException {
        assertWriteFails(JNI_ERROR, -1, tags(1, 3, 5), values(11, 33));
        assertWriteFails(JNI_ERROR, -1, tags(1), values());
    }

    @Test
    void aCountOfZeroReadsAndWritesNothing() throws IOException {
        SessionNatives.write(table, 0, tags(), values());
        SessionNatives.write(table, 0, tags(1), values(5));
        assertFile(DEFAULT_TAGS, SOME_VALUES);
        long[] read = untouched(1);
        SessionNatives.read(table, 0, tags(99), read);
        assertArrayEquals(untouched(1), read);
    }

    @Test
    void writingFromArraysShorterThanTheCountIsAJniErrorAndWritesNothing() throws IOException {
        assertWriteFails(JNI_ERROR, 2, tags(1), values(11, 33));
        assertWriteFails(JNI_ERROR, 2, tags(1, 3), values(11));
        assertWriteFails(JNI_ERROR, Integer.MAX_VALUE, tags(1, 3), values(11, 33));
        assertWriteFails(JNI_ERROR, 1, tags(), values());
    }

    @Test
    void writingFromANullArrayIsAJniErrorAndWritesNothing() throws IOException {
        assertWriteFails(JNI_ERROR, 1, null, values(11));
        assertWriteFails(JNI_ERROR, 1, tags(1), null);
        assertWriteFails(JNI_ERROR, 0, null, null);
        assertWriteFails(JNI_ERROR, -1, tags(1), null);
    }

    @Test
    void readingWithANullOrShortTagArrayIsAJniError() {
        assertReadFails(JNI_ERROR, 1, null, 1);
        assertReadFails(JNI_ERROR, 0, null, 1);
        assertReadFails(JNI_ERROR, -1, null, 1);
        assertReadFails(JNI_ERROR, 2, tags(1), 2);
        assertReadFails(JNI_ERROR, Integer.MAX_VALUE, tags(1), 2);
    }

    @Test
    void readingIntoNullIsANullPointer() {
        assertFails(NULL_POINTER_ERROR, () -> SessionNatives.read(table, 1, tags(1), null));
        assertFails(NULL_POINTER_ERROR, () -> SessionNatives.read(table, -1, tags(1), null));
    }

    @Test
    void readingIntoAnArrayShorterThanTheCountIsAJniErrorAndLeavesIt() {
        assertReadFails(JNI_ERROR, 2, tags(1, 3), 1);
        assertReadFails(JNI_ERROR, 1, tags(1), 0);
        assertReadFails(JNI_ERROR, -1, tags(1, 3, 5), 2);
    }

    @Test
    void moreThanThirtyTwoTagsInOneReadAreOutOfBoundsAndTheArrayStays() {
        int[] tags = IntStream.range(0, 33).map(i -> DEFAULT_TAGS[i % 6]).toArray();
        assertReadFails(INDEX_OUT_OF_BOUNDS_ERROR, 33, tags, 33);
        assertReadFails(INDEX_OUT_OF_BOUNDS_ERROR, -1, tags, 33);
        assertReadFails(INDEX_OUT_OF_BOUNDS_ERROR, 1000, new int[1000], 1000);
        long[] read = untouched(33);
        SessionNatives.read(table, 32, tags, read);
        assertEquals(10, read[31], "tag 1 is the last of 32");
        assertEquals(UNTOUCHED, read[32]);
    }

    @Test
    void aWriteMayNameMoreThanThirtyTwoTagsAndTheLastValueOfATagWins() throws IOException {
        int[] tags = IntStream.range(0, 600).map(i -> DEFAULT_TAGS[i % 6]).toArray();
        SessionNatives.write(table, 600, tags, LongStream.range(0, 600).toArray());
        assertFile(DEFAULT_TAGS, 594, 595, 596, 597, 598, 599);
    }

    @Test
    void anUnknownTagInAWriteIsAWrongParameterAndLeavesTheKnownOne() throws IOException {
        assertWriteFails(WRONG_PARAMETER_ERROR, 2, tags(1, 99), values(11, 1));
        assertWriteFails(WRONG_PARAMETER_ERROR, 2, tags(99, 1), values(1, 11));
    }

    @Test
    void anUnknownTagInAReadIsNoDataAndLeavesTheArray() {
        assertReadFails(NO_DATA_ERROR, 2, tags(1, 99), 2);
        assertReadFails(NO_DATA_ERROR, 1, tags(0), 1);
        table = openForReading();
        assertReadFails(NO_DATA_ERROR, 2, tags(1, 99), 2);
    }

    @Test
    void handleZeroIsAClosedTableWhateverTheArgumentsAre() {
        assertFails(TABLE_CLOSED_ERROR, () -> SessionNatives.drop(0));
        assertFails(TABLE_CLOSED_ERROR, () -> SessionNatives.write(0, 1, tags(1), values(1)));
        assertFails(TABLE_CLOSED_ERROR, () -> SessionNatives.write(0, 1, null, null));
        assertFails(TABLE_CLOSED_ERROR, () -> SessionNatives.read(0, 1, tags(1), values(1)));
        assertFails(TABLE_CLOSED_ERROR, () -> SessionNatives.read(0, 33, new int[33], null));
        assertDoesNotThrow(() -> SessionNatives.free(0));
    }
}
