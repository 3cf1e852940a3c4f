package com.corvane.kestrova.engine.tabulo.jni;

import static com.corvane.kestrova.engine.tabulo.jni.Errors.assertFails;
import static com.corvane.kestrova.engine.tabulo.jni.JNITboErrorCodes.FILE_OPEN_ERROR;
import static com.corvane.kestrova.engine.tabulo.jni.JNITboErrorCodes.FILE_READ_ERROR;
import static com.corvane.kestrova.engine.tabulo.jni.JNITboErrorCodes.VSEEK_ERROR;
import static com.corvane.kestrova.engine.tabulo.jni.JNITboErrorCodes.WRONG_PARAMETER_ERROR;
import static org.junit.jupiter.api.Assertions.assertArrayEquals;

import java.io.IOException;
import java.util.Arrays;
import org.junit.jupiter.api.BeforeEach;
import org.junit.jupiter.api.Test;

/** Two tables over one file: a reader beside a writer, and a reader that writes. */
class JNITboSessionInfoTableSharingTest extends OnSessionTables {
    private static final byte[] SOME_FILE = fileOf(DEFAULT_TAGS, SOME_VALUES);

    private long reader;

    @BeforeEach
    void openAReader() throws IOException {
        place(SOME_FILE);
        reader = openForReading();
    }

    @Test
    void aReaderSeesEachWriteOfTheWriter() {
        long writer = openForWriting();
        for (long i = 1; i <= 100; ++i) {
            SessionNatives.write(writer, 3, i);
            assertArrayEquals(new long[] {20, 10, i, 40, 50, 60}, SessionNatives.read(reader, DEFAULT_TAGS));
        }
        SessionNatives.drop(writer);
        assertArrayEquals(new long[6], SessionNatives.read(reader, DEFAULT_TAGS));
    }

    @Test
    void aReaderThatWritesBecomesAWriterAndKeepsWhatOthersWroteMeanwhile() throws IOException {
        long other = openForWriting();
        SessionNatives.write(other, 1, 11);
        free(other);
        SessionNatives.write(reader, 3, 33);
        assertFile(DEFAULT_TAGS, 20, 11, 33, 40, 50, 60);
        SessionNatives.write(reader, 4, 44);
        assertFile(DEFAULT_TAGS, 20, 11, 33, 44, 50, 60);
        assertFails(FILE_OPEN_ERROR, this::openForWriting);
    }

    @Test
    void aReaderThatDropsClearsTheFile() throws IOException {
        SessionNatives.drop(reader);
        assertFile(DEFAULT_TAGS, new long[6]);
    }

    @Test
    void aReaderWhoseWriteIsRefusedStaysReadableAndSeesFreshValues() throws IOException {
        long writer = openForWriting();
        assertFails(FILE_OPEN_ERROR, () -> SessionNatives.write(reader, 3, 33));
        assertFails(FILE_OPEN_ERROR, () -> SessionNatives.drop(reader));
        assertArrayEquals(SOME_VALUES, SessionNatives.read(reader, DEFAULT_TAGS));
        SessionNatives.write(writer, 3, 34);
        assertArrayEquals(new long[] {34}, SessionNatives.read(reader, 3));
        free(writer);
        SessionNatives.write(reader, 3, 35);
        assertFile(DEFAULT_TAGS, 20, 10, 35, 40, 50, 60);
    }

    @Test
    void anUnknownTagInAReadersWriteChangesNothing() throws IOException {
        assertFails(WRONG_PARAMETER_ERROR,
                () -> SessionNatives.write(reader, 2, new int[] {3, 99}, new long[] {33, 1}));
        assertArrayEquals(SOME_FILE, fileBytes());
    }

    @Test
    void aSecondWriterIsRefusedAndTouchesNothing() throws IOException {
        openForWriting();
        assertFails(FILE_OPEN_ERROR, this::openForWriting);
        assertFails(FILE_OPEN_ERROR, () -> open(provider(), 2));
        assertArrayEquals(SOME_FILE, fileBytes());
    }

    @Test
    void aFileThatIsCutUnderAReaderFailsItsReadsAndLeavesTheArray() throws IOException {
        long[] values = {7, 7};
        int[] tags = {1, 2};
        place(Arrays.copyOf(SOME_FILE, 100));
        assertFails(FILE_READ_ERROR, () -> SessionNatives.read(reader, 2, tags, values));
        place(Arrays.copyOf(SOME_FILE, 67));
        assertFails(VSEEK_ERROR, () -> SessionNatives.read(reader, 2, tags, values));
        assertArrayEquals(new long[] {7, 7}, values);
        place(SOME_FILE);
        assertArrayEquals(new long[] {10, 20}, SessionNatives.read(reader, tags));
    }

    @Test
    void aFileCutBackToItsHeaderLeavesTheValuesAsTheyWere() throws IOException {
        place(fileOf(DEFAULT_TAGS));
        assertArrayEquals(SOME_VALUES, SessionNatives.read(reader, DEFAULT_TAGS));
    }
}
