package com.corvane.kestrova.engine.tabulo.jni;

import static com.corvane.kestrova.engine.tabulo.jni.Errors.assertFails;
import static com.corvane.kestrova.engine.tabulo.jni.JNITboErrorCodes.BYTE_ORDER_ERROR;
import static com.corvane.kestrova.engine.tabulo.jni.JNITboErrorCodes.CONFIG_MISMATCH_ERROR;
import static com.corvane.kestrova.engine.tabulo.jni.JNITboErrorCodes.FILE_OPEN_ERROR;
import static com.corvane.kestrova.engine.tabulo.jni.JNITboErrorCodes.FILE_READ_ERROR;
import static com.corvane.kestrova.engine.tabulo.jni.JNITboErrorCodes.FILE_SIZE_ERROR;
import static com.corvane.kestrova.engine.tabulo.jni.JNITboErrorCodes.HEADER_CORRUPTED_ERROR;
import static com.corvane.kestrova.engine.tabulo.jni.JNITboErrorCodes.SIGNATURE_ERROR;
import static com.corvane.kestrova.engine.tabulo.jni.JNITboErrorCodes.STREAM_NOT_ENOUGH_DATA_ERROR;
import static com.corvane.kestrova.engine.tabulo.jni.JNITboErrorCodes.TABLE_TYPE_ERROR;
import static com.corvane.kestrova.engine.tabulo.jni.JNITboErrorCodes.VERSION_ERROR;
import static com.corvane.kestrova.engine.tabulo.jni.JNITboErrorCodes.WRONG_PARAMETER_ERROR;
import static org.junit.jupiter.api.Assertions.assertArrayEquals;
import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.io.IOException;
import java.nio.file.Files;
import java.util.Arrays;
import java.util.HexFormat;
import java.util.stream.IntStream;
import java.util.stream.LongStream;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.params.ParameterizedTest;
import org.junit.jupiter.params.provider.CsvSource;
import org.junit.jupiter.params.provider.ValueSource;

/** The file behind a session info table: what it looks like, which files open, which are repaired or refused. */
class JNITboSessionInfoTableFileTest extends OnSessionTables {
    private static final int HEADER = 68;
    private static final int WHOLE = 116;
    /** Signature, byte order, version, header size; type name; six tags. */
    private static final String GOLDEN_HEADER = "4b657374726f76614462" + "01" + "0500" + "2003" + "44000000"
            + "11000000" + "53657373696f6e496e666f5461626c6500"
            + "06000000" + "02000000" + "01000000" + "03000000" + "04000000" + "05000000" + "06000000";
    private static final String GOLDEN_VALUES = "0100000000000000" + "ffffffffffffffff" + "0000000000000080"
            + "ffffffffffffff7f" + "8877665544332211" + "0000000000000000";
    private static final long[] GOLDEN = {1, -1, Long.MIN_VALUE, Long.MAX_VALUE, 0x1122334455667788L, 0};

    private static final byte[] SOME_FILE = fileOf(DEFAULT_TAGS, SOME_VALUES);

    /** Opening for reading and for writing is refused, and the file stays. */
    private void assertRefused(int code, byte[] bytes, int... tags) throws IOException {
        for (int mode : new int[] {Natives.READ, Natives.WRITE}) {
            place(bytes);
            assertFails(code, "opening in mode " + mode, () -> open(provider(tags), mode));
            assertArrayEquals(bytes, fileBytes(), "a refused file is left as it was");
        }
    }

    private String recovered(int oldSize, int newSize) {
        return "Tabulo/C WARNING: tsX_openReplica(): Table " + file() + " was recovered, old size: " + oldSize
                + ", new size: " + newSize + "\n";
    }

    @Test
    void aTableWithTheDefaultTagsIsTheGoldenFile() throws IOException {
        long table = openForWriting();
        assertEquals(GOLDEN_HEADER, HexFormat.of().formatHex(fileBytes()));
        SessionNatives.write(table, 6, DEFAULT_TAGS, GOLDEN);
        assertEquals(GOLDEN_HEADER + GOLDEN_VALUES, HexFormat.of().formatHex(fileBytes()));
    }

    @ParameterizedTest
    @ValueSource(ints = {Natives.READ, Natives.WRITE})
    void theGoldenFileReadsBack(int mode) throws IOException {
        place(HexFormat.of().parseHex(GOLDEN_HEADER + GOLDEN_VALUES));
        assertArrayEquals(GOLDEN, SessionNatives.read(open(provider(), mode), DEFAULT_TAGS));
    }

    @Test
    void aFreshFileThatHoldsOnlyItsHeaderReadsBackAllValuesAsZero() throws IOException {
        assertArrayEquals(new long[6], SessionNatives.read(openForWriting(), DEFAULT_TAGS));
        assertArrayEquals(new long[6], SessionNatives.read(openForReading(), DEFAULT_TAGS));
        assertEquals(HEADER, fileBytes().length);
    }

    @Test
    void aFileThatEndsAtItsHeaderIsRecoveredWhenItIsOpenedForWriting() throws IOException {
        place(fileOf(DEFAULT_TAGS));
        openForWriting();
        assertFile(DEFAULT_TAGS, new long[6]);
        assertEquals(recovered(HEADER, WHOLE), facility.warnings());
    }

    @Test
    void thirtyTwoTagsAreStoredInTheirOrder() throws IOException {
        int[] tags = IntStream.range(0, 32).map(i -> 1000 - i).toArray();
        long[] values = LongStream.range(0, 32).map(i -> -i).toArray();
        long table = openForWriting(tags);
        SessionNatives.write(table, 32, tags, values);
        assertFile(tags, values);
        assertArrayEquals(values, SessionNatives.read(openForReading(tags), tags));
    }

    @ParameterizedTest
    @ValueSource(ints = {Natives.READ, Natives.WRITE})
    void aFileWithMoreTagsThanConfiguredOpensAndKeepsItsOrder(int mode) throws IOException {
        int[] stored = {9, 6, 8, 5, 7};
        place(fileOf(stored, 90, 60, 80, 50, 70));
        long table = open(provider(5, 6), mode);
        assertArrayEquals(new long[] {50, 60, 70, 80, 90}, SessionNatives.read(table, 5, 6, 7, 8, 9));
        SessionNatives.write(table, 2, new int[] {5, 8}, new long[] {55, 88});
        assertFile(stored, 90, 60, 88, 55, 70);
    }

    @Test
    void aConfiguredTagThatTheFileLacksIsNamedAndRefused() throws IOException {
        assertRefused(CONFIG_MISMATCH_ERROR, SOME_FILE, 1, 99, 2, 98);
        String warning = "Tabulo/C WARNING: siX_verify(): Field with tag 99 is missing in session info table\n";
        assertEquals(warning.repeat(2), facility.warnings(), "one for each mode");
    }

    @Test
    void aCutInTheMiddleOfTheThirdValueKeepsTheFirstTwoAndClearsTheOthers() throws IOException {
        place(Arrays.copyOf(SOME_FILE, HEADER + 2 * 8 + 4));
        long table = openForWriting();
        assertArrayEquals(new long[] {20, 10, 0, 0, 0, 0}, SessionNatives.read(table, DEFAULT_TAGS));
        assertEquals(WHOLE, fileBytes().length);
        assertEquals(recovered(88, WHOLE), facility.warnings());
    }

    @Test
    void aValueAreaCutAtAnyByteIsRecoveredForWritingAndRefusedForReading() throws IOException {
        for (int length = HEADER + 1; length < WHOLE; ++length) {
            place(Arrays.copyOf(SOME_FILE, length));
            assertFails(FILE_READ_ERROR, "cut to " + length, this::openForReading);
            free(openForWriting());
            int kept = (length - HEADER) / Long.BYTES;
            assertFile(DEFAULT_TAGS, Arrays.copyOf(Arrays.copyOf(SOME_VALUES, kept), 6));
        }
    }

    @Test
    void aFileThatGoesOnBehindItsValuesIsReadAsItIsAndCutForWriting() throws IOException {
        place(Arrays.copyOf(SOME_FILE, WHOLE + 5));
        assertArrayEquals(SOME_VALUES, SessionNatives.read(openForReading(), DEFAULT_TAGS));
        assertEquals(WHOLE + 5, fileBytes().length);
        openForWriting();
        assertArrayEquals(SOME_FILE, fileBytes());
        assertEquals(recovered(WHOLE + 5, WHOLE), facility.warnings());
    }

    /** One byte of the file replaced, and the code of opening it. */
    @ParameterizedTest
    @CsvSource({"0,107," + SIGNATURE_ERROR, "10,2," + BYTE_ORDER_ERROR, "11,6," + VERSION_ERROR,
        "15,35," + HEADER_CORRUPTED_ERROR, "15,72," + HEADER_CORRUPTED_ERROR, "19,16," + TABLE_TYPE_ERROR,
        "23,115," + TABLE_TYPE_ERROR, "39,32," + TABLE_TYPE_ERROR, "40,0," + HEADER_CORRUPTED_ERROR,
        "40,33," + HEADER_CORRUPTED_ERROR, "40,5," + HEADER_CORRUPTED_ERROR, "40,7," + HEADER_CORRUPTED_ERROR,
        "40,32," + STREAM_NOT_ENOUGH_DATA_ERROR})
    void aDamagedHeaderIsRefusedAndLeftAlone(int offset, byte value, int code) throws IOException {
        byte[] bytes = SOME_FILE.clone();
        bytes[offset] = value;
        assertRefused(code, bytes);
    }

    @Test
    void aCutHeaderIsRefusedAndLeftAlone() throws IOException {
        for (int length = 1; length < HEADER; ++length) {
            assertRefused(length < 19 ? FILE_SIZE_ERROR : STREAM_NOT_ENOUGH_DATA_ERROR,
                    Arrays.copyOf(SOME_FILE, length));
        }
    }

    @Test
    void theTwoKindsOfTablesRefuseEachOther() throws IOException {
        place(SOME_FILE);
        for (int mode : new int[] {Natives.READ, Natives.WRITE}) {
            assertFails(TABLE_TYPE_ERROR, () -> Natives.open(provider(), mode));
        }
        assertArrayEquals(SOME_FILE, fileBytes());
        Files.delete(file());
        Natives.free(Natives.open(provider(), Natives.WRITE));
        assertRefused(TABLE_TYPE_ERROR, fileBytes());
    }

    @Test
    void aMissingFileIsRefusedForReadingAndNotMade() {
        assertFails(FILE_OPEN_ERROR, this::openForReading);
        assertFalse(Files.exists(file()));
        assertTrue(facility.warnings().endsWith("Tabulo/C WARNING: tsX_openReplica(): Unable to open a file " + file()
                + " in mode 0.\n"), facility::warnings);
    }

    @ParameterizedTest
    @ValueSource(ints = {-1, 3, Integer.MAX_VALUE})
    void aModeThatThereIsNotIsAWrongParameter(int mode) {
        assertFails(WRONG_PARAMETER_ERROR, () -> open(provider(), mode));
        assertFalse(Files.exists(file()));
    }

    @Test
    void theCreateModeEmptiesTheTable() throws IOException {
        place(SOME_FILE);
        long table = open(provider(7), 2);
        assertFile(new int[] {7});
        SessionNatives.write(table, 7, 70);
        assertFile(new int[] {7}, 70);
    }

    @Test
    void droppingSetsEveryValueToZeroAndKeepsTheFile() throws IOException {
        place(fileOf(new int[] {9, 8, 7}, 90, 80, 70));
        long table = openForWriting(8);
        SessionNatives.drop(table);
        assertFile(new int[] {9, 8, 7}, 0, 0, 0);
        assertArrayEquals(new long[3], SessionNatives.read(table, 9, 8, 7));
    }
}
