package com.corvane.kestrova.engine.tabulo.jni;

import static com.corvane.kestrova.engine.tabulo.jni.Errors.assertFails;
import static com.corvane.kestrova.engine.tabulo.jni.JNITboErrorCodes.CONSISTENCY_ERROR;
import static com.corvane.kestrova.engine.tabulo.jni.JNITboErrorCodes.JNI_ERROR;
import static com.corvane.kestrova.engine.tabulo.jni.JNITboErrorCodes.NO_DATA_ERROR;
import static com.corvane.kestrova.engine.tabulo.jni.JNITboErrorCodes.NULL_POINTER_ERROR;
import static com.corvane.kestrova.engine.tabulo.jni.JNITboErrorCodes.READ_ONLY_ERROR;
import static org.junit.jupiter.api.Assertions.assertArrayEquals;
import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertNull;

import java.io.IOException;
import java.nio.ByteBuffer;
import java.util.Arrays;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.params.ParameterizedTest;
import org.junit.jupiter.params.provider.CsvSource;
import org.junit.jupiter.params.provider.ValueSource;

/** writeMessage with an encoded frame. */
class RawOverloadTest extends OnTables {
    private static final int BLOCK_LENGTH_WORD = 8;

    /** A frame of a table without indexed fields; its values have no NUL. */
    private static byte[] frame() {
        return StoredMessage.frame(7, 3, 5, 99, "AE", latin1("zero"), null, latin1("wire"), latin1("rest")).array();
    }

    private void assertRefused(int code, long handle, byte[] bytes, int offset, int length) throws IOException {
        byte[] before = fileBytes();
        assertFails(code, () -> Natives.writeRaw(handle, bytes, offset, length));
        assertArrayEquals(before, fileBytes(), "a refused frame changes nothing in the file");
        assertEquals(0, Natives.lastUniform(handle), "a refused frame is not counted");
    }

    @Test
    void aFrameIsStoredUnchanged() throws IOException {
        long handle = openForWriting();
        int header = (int) file().toFile().length();
        byte[] frame = frame();
        Natives.writeRaw(handle, frame, 0, frame.length);
        byte[] all = fileBytes();
        assertArrayEquals(frame, Arrays.copyOfRange(all, header + BLOCK_LENGTH_WORD, all.length));
        assertEquals(7, Natives.lastUniform(handle));
        assertEquals(5, Natives.lastMessageId(handle, 0));
        assertEquals(3, Natives.lastGood(handle, 0, null));
    }

    @Test
    void aFrameMayStandAnywhereInItsArrayAndBytesBehindItAreIgnored() throws IOException {
        long handle = openForWriting();
        byte[] frame = frame();
        byte[] padded = new byte[frame.length + 50];
        Arrays.fill(padded, (byte) 0xEE);
        System.arraycopy(frame, 0, padded, 20, frame.length);
        Natives.writeRaw(handle, padded, 20, padded.length - 20);
        Natives.writeRaw(handle, padded, 20, frame.length);
        assertEquals(2, stored().size());
        assertEquals("wire", stored().get(0).string(2));
        assertEquals("rest", stored().get(1).string(3));
    }

    @Test
    void valuesWithoutANulComeBackWhole() {
        long handle = openForWriting();
        byte[] frame = frame();
        Natives.writeRaw(handle, frame, 0, frame.length);
        RecordingListener.Batch batch = read(handle, 5).batches.get(0);
        assertArrayEquals(latin1("wire"), batch.wires()[0]);
        assertArrayEquals(latin1("rest"), batch.others()[0]);
    }

    @Test
    void onlyOneNulIsLeftOutOfAValueThatComesBack() {
        long handle = openForWriting();
        byte[] frame = StoredMessage.frame(7, 3, 5, 99, "AE", null, null, latin1("a\0b\0\0"), latin1("\0")).array();
        Natives.writeRaw(handle, frame, 0, frame.length);
        RecordingListener.Batch batch = read(handle, 5).batches.get(0);
        assertArrayEquals(latin1("a\0b\0"), batch.wires()[0]);
        assertArrayEquals(new byte[0], batch.others()[0], "a stored NUL is the empty value");
    }

    @Test
    void aFrameWithoutStringsComesBackWithNullElements() {
        long handle = openForWriting();
        byte[] frame = StoredMessage.frame(7, 3, 5, 99, "AE", null, null, null, null).array();
        assertEquals(55, frame.length);
        Natives.writeRaw(handle, frame, 0, frame.length);
        RecordingListener.Batch batch = read(handle, 5).batches.get(0);
        assertNull(batch.wires()[0]);
        assertNull(batch.others()[0]);
    }

    @Test
    void aNullArrayIsANullPointerWhateverTheRange() throws IOException {
        long handle = openForWriting();
        assertRefused(NULL_POINTER_ERROR, handle, null, 0, 0);
        assertRefused(NULL_POINTER_ERROR, handle, null, 0, 55);
        assertRefused(NULL_POINTER_ERROR, handle, null, -1, -1);
    }

    @ParameterizedTest
    @CsvSource({"-1,10", "0,-1", "0,100000", "100000,0", "1,2147483647", "2147483647,2147483647", "-2147483648,0"})
    void aRangeOutsideTheArrayIsRefused(int offset, int length) throws IOException {
        assertRefused(JNI_ERROR, openForWriting(), frame(), offset, length);
    }

    @Test
    void theLastByteOfAnArrayMayBeUsedButNotTheOneBehind() throws IOException {
        long handle = openForWriting();
        byte[] frame = frame();
        assertRefused(JNI_ERROR, handle, frame, 0, frame.length + 1);
        assertRefused(JNI_ERROR, handle, frame, 1, frame.length);
        Natives.writeRaw(handle, frame, 0, frame.length);
        assertEquals(1, stored().size());
    }

    @ParameterizedTest
    @ValueSource(ints = {0, 1, 3, 4, 35, 54})
    void aCutFrameHasNoData(int length) throws IOException {
        byte[] frame = StoredMessage.frame(7, 3, 5, 99, "AE", null, null, null, null).array();
        assertRefused(NO_DATA_ERROR, openForWriting(), frame, 0, length);
    }

    @Test
    void aFrameWhoseLengthsDisagreeIsInconsistent() throws IOException {
        byte[] frame = frame();
        frame[frame.length - 4] ^= 1;
        assertRefused(CONSISTENCY_ERROR, openForWriting(), frame, 0, frame.length);
    }

    @Test
    void aFrameWithAnUnknownNumberTypeIsInconsistent() throws IOException {
        long handle = open(provider().numerics("n"), Natives.WRITE);
        ByteBuffer frame = StoredMessage.frame(7, 3, 5, 99, "D", null, null, null, null);
        byte[] withNumber = new byte[frame.limit() + 1];
        frame.putInt(0, withNumber.length).putInt(frame.limit() - 4, withNumber.length);
        frame.get(withNumber, 0, 35);
        withNumber[35] = 3;
        frame.get(withNumber, 36, frame.remaining());
        assertRefused(CONSISTENCY_ERROR, handle, withNumber, 0, withNumber.length);
        withNumber[35] = 0;
        Natives.writeRaw(handle, withNumber, 0, withNumber.length);
        assertNull(theStored().numerics().get(0));
    }

    @Test
    void aFrameOfATableWithOtherFieldsIsRefused() throws IOException {
        byte[] sixStrings = StoredMessage.frame(7, 3, 5, 99, "D", null, null, null, null, null, null).array();
        long handle = openForWriting();
        assertRefused(CONSISTENCY_ERROR, handle, sixStrings, 0, sixStrings.length);
    }

    @Test
    void aTableOpenForReadingTakesNoFrame() throws IOException {
        close(openForWriting());
        byte[] frame = frame();
        assertRefused(READ_ONLY_ERROR, openForReading(), frame, 0, frame.length);
    }
}
