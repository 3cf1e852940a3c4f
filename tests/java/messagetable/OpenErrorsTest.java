package com.corvane.kestrova.engine.tabulo.jni;

import static com.corvane.kestrova.engine.tabulo.jni.Errors.assertFails;
import static com.corvane.kestrova.engine.tabulo.jni.JNITboErrorCodes.BYTE_ORDER_ERROR;
import static com.corvane.kestrova.engine.tabulo.jni.JNITboErrorCodes.FILE_OPEN_ERROR;
import static com.corvane.kestrova.engine.tabulo.jni.JNITboErrorCodes.FILE_SIZE_ERROR;
import static com.corvane.kestrova.engine.tabulo.jni.JNITboErrorCodes.HEADER_CORRUPTED_ERROR;
import static com.corvane.kestrova.engine.tabulo.jni.JNITboErrorCodes.SIGNATURE_ERROR;
import static com.corvane.kestrova.engine.tabulo.jni.JNITboErrorCodes.STREAM_NOT_ENOUGH_DATA_ERROR;
import static com.corvane.kestrova.engine.tabulo.jni.JNITboErrorCodes.STREAM_READ_RESET_ERROR;
import static com.corvane.kestrova.engine.tabulo.jni.JNITboErrorCodes.TABLE_TYPE_ERROR;
import static com.corvane.kestrova.engine.tabulo.jni.JNITboErrorCodes.VERSION_ERROR;
import static com.corvane.kestrova.engine.tabulo.jni.JNITboErrorCodes.WRONG_PARAMETER_ERROR;
import static org.junit.jupiter.api.Assertions.assertArrayEquals;
import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.io.IOException;
import java.nio.ByteBuffer;
import java.nio.ByteOrder;
import java.nio.file.Files;
import java.util.Arrays;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.params.ParameterizedTest;
import org.junit.jupiter.params.provider.CsvSource;
import org.junit.jupiter.params.provider.ValueSource;

/** Files that are refused, each with its code, for reading and for writing. */
class OpenErrorsTest extends OnTables {
    private static final int BYTE_ORDER_OFFSET = 10;
    private static final int MAJOR_OFFSET = 11;
    private static final int MINOR_OFFSET = 13;
    private static final int HEADER_SIZE_OFFSET = 15;
    private static final int TYPE_LENGTH_OFFSET = 19;
    private static final int TYPE_OFFSET = 23;
    private static final int GENERIC_HEADER = 19;
    private static final int HEADER = 140;

    /** A closed table of three messages as bytes that can be changed. */
    private ByteBuffer tableBytes() throws IOException {
        long handle = openForWriting();
        writeNumbered(handle, 1, 3);
        close(handle);
        return ByteBuffer.wrap(fileBytes()).order(ByteOrder.nativeOrder());
    }

    private void assertRefused(int code, byte[] bytes) throws IOException {
        for (int mode : new int[] {Natives.READ, Natives.WRITE}) {
            Files.write(file(), bytes);
            assertFails(code, "opening in mode " + mode, () -> open(provider(), mode));
            assertArrayEquals(bytes, fileBytes(), "a refused file is left as it was");
        }
    }

    @Test
    void aFileWithAnotherSignatureIsRefused() throws IOException {
        ByteBuffer table = tableBytes();
        table.put(9, (byte) 'B');
        assertRefused(SIGNATURE_ERROR, table.array());
        assertRefused(SIGNATURE_ERROR, latin1("This is a text file and no table."));
    }

    @Test
    void aFileOfTheOtherByteOrderIsRefused() throws IOException {
        ByteBuffer table = tableBytes();
        boolean little = ByteOrder.nativeOrder() == ByteOrder.LITTLE_ENDIAN;
        assertEquals(little ? 1 : 2, table.get(BYTE_ORDER_OFFSET));
        table.put(BYTE_ORDER_OFFSET, (byte) (little ? 2 : 1));
        assertRefused(BYTE_ORDER_ERROR, table.array());
        table.put(BYTE_ORDER_OFFSET, (byte) 0);
        assertRefused(BYTE_ORDER_ERROR, table.array());
    }

    @ParameterizedTest
    @CsvSource({"5,900", "5,799", "4,800", "6,800", "0,0"})
    void aFileOfAnotherVersionIsRefusedWithAWarning(short major, short minor) throws IOException {
        ByteBuffer table = tableBytes();
        RecordingFacility facility = new RecordingFacility();
        JNITboLibLoader.setLogFacility(facility);
        table.putShort(MAJOR_OFFSET, major).putShort(MINOR_OFFSET, minor);
        assertRefused(VERSION_ERROR, table.array());
        String warning = "Tabulo/C WARNING: tsgh_verify(): Expected table version: 5.800, actual table version: "
                + major + "." + minor + "\n";
        assertTrue(facility.warnings().startsWith(warning), facility::warnings);
    }

    @ParameterizedTest
    @ValueSource(shorts = {800, 850, 899})
    void minorVersionsOfTheSameHundredAreOpened(short minor) throws IOException {
        ByteBuffer table = tableBytes();
        table.putShort(MINOR_OFFSET, minor);
        Files.write(file(), table.array());
        assertEquals(3, read(openForReading(), range(1, 3)).timestamps().size());
        assertEquals(3, read(openForWriting(), range(1, 3)).timestamps().size());
    }

    @ParameterizedTest
    @ValueSource(ints = {35, 8097, 0, -1, Integer.MIN_VALUE, Integer.MAX_VALUE, 139, 141})
    void aHeaderSizeThatCannotBeIsRefused(int size) throws IOException {
        ByteBuffer table = tableBytes();
        table.putInt(HEADER_SIZE_OFFSET, size);
        assertRefused(HEADER_CORRUPTED_ERROR, table.array());
    }

    @Test
    void aFileOfAnotherTypeIsRefused() throws IOException {
        ByteBuffer table = tableBytes();
        table.put(TYPE_OFFSET, (byte) 'm');
        assertRefused(TABLE_TYPE_ERROR, table.array());
        table.put(TYPE_OFFSET, (byte) 'M').putInt(TYPE_LENGTH_OFFSET, 14);
        assertRefused(TABLE_TYPE_ERROR, table.array());
    }

    /** Offsets 36, 40, 44 and 48 hold messages per block, string, summarised string and numeric fields. */
    @ParameterizedTest
    @CsvSource({"36,0", "36,-1", "40,1", "40,17", "40,-2147483648", "44,15", "44,-1", "48,17", "48,-1"})
    void aLayoutThatCannotBeIsRefused(int offset, int value) throws IOException {
        Provider full = provider().strings(Provider.names("s", 12)).numerics(Provider.names("n", 16));
        close(open(full, Natives.WRITE));
        ByteBuffer table = ByteBuffer.wrap(fileBytes()).order(ByteOrder.nativeOrder());
        table.putInt(offset, value);
        Files.write(file(), table.array());
        for (int mode : new int[] {Natives.READ, Natives.WRITE}) {
            assertFails(HEADER_CORRUPTED_ERROR, () -> open(full, mode));
            assertArrayEquals(table.array(), fileBytes(), "a refused file is left as it was");
        }
    }

    @Test
    void aMissingFileIsRefusedForReadingAndMadeForWriting() {
        assertFails(FILE_OPEN_ERROR, this::openForReading);
        assertFalse(Files.exists(file()));
        openForWriting();
        assertTrue(Files.exists(file()));
    }

    @Test
    void aMissingFileIsRefusedWithWarningsThatNameIt() {
        RecordingFacility facility = new RecordingFacility();
        JNITboLibLoader.setLogFacility(facility);
        assertFails(FILE_OPEN_ERROR, this::openForReading);
        assertEquals("Tabulo/C WARNING: tableFileOpen(): fopen() failed: No such file or directory\n"
                + "Tabulo/C WARNING: tsX_openReplica(): Unable to open a file " + file() + " in mode 0.\n",
                facility.warnings());
    }

    @Test
    void aDirectoryIsNoTable() throws IOException {
        Files.createDirectory(file());
        assertFails(FILE_OPEN_ERROR, this::openForReading);
        assertFails(FILE_OPEN_ERROR, this::openForWriting);
        assertTrue(Files.isDirectory(file()));
    }

    @ParameterizedTest
    @ValueSource(ints = {-1, 3, Integer.MAX_VALUE})
    void aModeThatThereIsNotIsAWrongParameter(int mode) {
        assertFails(WRONG_PARAMETER_ERROR, () -> open(provider(), mode));
        assertFalse(Files.exists(file()));
    }

    @ParameterizedTest
    @ValueSource(ints = {1, 10, 18})
    void aFileThatIsShorterThanTheGenericHeaderIsTooSmall(int length) throws IOException {
        assertRefused(FILE_SIZE_ERROR, Arrays.copyOf(tableBytes().array(), length));
    }

    @Test
    void aFileOfTheGenericHeaderAloneHasNothingToLoadAndNothingToRecover() throws IOException {
        byte[] cut = Arrays.copyOf(tableBytes().array(), GENERIC_HEADER);
        Files.write(file(), cut);
        assertFails(STREAM_READ_RESET_ERROR, this::openForReading);
        assertFails(FILE_SIZE_ERROR, this::openForWriting);
        assertArrayEquals(cut, fileBytes());
    }

    @Test
    void aFileThatIsShorterThanItSaysOpensForReadingAsItStands() throws IOException {
        byte[] whole = tableBytes().array();
        byte[] cut = Arrays.copyOf(whole, whole.length - 1);
        Files.write(file(), cut);
        long reader = openForReading();
        assertEquals(2, read(reader, range(1, 3)).timestamps().size(), "the message that is cut does not come");
        assertEquals(2, Natives.lastUniform(reader));
        assertArrayEquals(cut, fileBytes(), "a reader changes nothing");
    }

    @Test
    void aHeaderThatIsCutInItsBookkeepingIsRefusedForReadingAndRebuiltForWriting() throws IOException {
        byte[] whole = tableBytes().array();
        Files.write(file(), Arrays.copyOf(whole, HEADER - 1));
        assertFails(STREAM_NOT_ENOUGH_DATA_ERROR, this::openForReading);
        close(openForWriting());
        assertEquals(HEADER, fileBytes().length);
        assertEquals(0, Natives.lastUniform(openForReading()));
    }

    @Test
    void anEmptyFileIsRefusedForReadingAndBecomesATableForWriting() throws IOException {
        Files.createFile(file());
        assertFails(FILE_SIZE_ERROR, this::openForReading);
        long handle = openForWriting();
        writeNumbered(handle, 1, 2);
        assertEquals(2, stored().size());
    }

    @Test
    void aHeaderThatWouldBeTooLongIsAWrongParameterAndNothingIsWritten() throws IOException {
        String[] names = Provider.names("x".repeat(800), 12);
        assertFails(WRONG_PARAMETER_ERROR, () -> open(provider().strings(names), Natives.WRITE));
        assertTrue(!Files.exists(file()) || Files.size(file()) == 0, "nothing is written");
    }
}
