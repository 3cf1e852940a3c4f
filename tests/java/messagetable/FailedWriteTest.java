package com.corvane.kestrova.engine.tabulo.jni;

import static com.corvane.kestrova.engine.tabulo.jni.Errors.assertFails;
import static com.corvane.kestrova.engine.tabulo.jni.JNITboErrorCodes.FILE_FLUSH_ERROR;
import static com.corvane.kestrova.engine.tabulo.jni.JNITboErrorCodes.FILE_TRUNCATE_ERROR;
import static com.corvane.kestrova.engine.tabulo.jni.JNITboErrorCodes.FILE_WRITE_ERROR;
import static com.corvane.kestrova.engine.tabulo.jni.JNITboErrorCodes.MASTER_INACTIVE_ERROR;
import static org.junit.jupiter.api.Assertions.assertArrayEquals;
import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;
import static org.junit.jupiter.api.Assertions.assertThrows;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.io.IOException;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.Set;
import org.junit.jupiter.api.Test;

/** Writes that the system refuses, and what a table is good for afterwards. */
class FailedWriteTest extends OnTables {
    private static final int HEADER = 140;

    private RecordingFacility listenToWarnings() {
        RecordingFacility facility = new RecordingFacility();
        JNITboLibLoader.setLogFacility(facility);
        return facility;
    }

    private static String dropped(String text) {
        return "Tabulo/C WARNING: mfr_writeMessage(): Replica 0 closed due to file write error: " + text + "\n";
    }

    @Test
    void aSmallMessageFailsAtTheFlush() throws IOException {
        long handle = openForWriting();
        writeNumbered(handle, 1, 3);
        byte[] before = fileBytes();
        RecordingFacility facility = listenToWarnings();
        FileSizeLimit.during(before.length, () ->
                assertFails(FILE_FLUSH_ERROR, () -> write(handle, m -> m.wire = "x")));
        assertEquals(dropped("I/O error: unable to flush a file"), facility.warnings());
        assertArrayEquals(before, fileBytes(), "nothing of the message stays in the file");
    }

    @Test
    void aMessageLargerThanTheBufferFailsAtTheWrite() throws IOException {
        long handle = openForWriting();
        writeNumbered(handle, 1, 3);
        byte[] before = fileBytes();
        RecordingFacility facility = listenToWarnings();
        FileSizeLimit.during(before.length + 100, () ->
                assertFails(FILE_WRITE_ERROR, () -> write(handle, m -> m.wire = "x".repeat(5000))));
        assertEquals(dropped("I/O error: unable to write to a file"), facility.warnings());
        assertArrayEquals(before, fileBytes(), "what was written of the message is cut back");
    }

    @Test
    void afterAFailedWriteTheTableWritesAndReadsNothingMore() throws IOException {
        long handle = openForWriting();
        writeNumbered(handle, 1, 3);
        byte[] before = fileBytes();
        FileSizeLimit.during(before.length, () ->
                assertFails(FILE_FLUSH_ERROR, () -> writeNumbered(handle, 4, 4)));
        assertFails(FILE_WRITE_ERROR, () -> writeNumbered(handle, 4, 4));
        assertFails(MASTER_INACTIVE_ERROR, () -> read(handle, 1));
        assertFails(MASTER_INACTIVE_ERROR, () -> Natives.lastUniform(handle));
        Natives.close(handle);
        assertArrayEquals(before, fileBytes());
    }

    @Test
    void openedAgainTheTableTakesTheMessageThatFailed() throws IOException {
        long handle = openForWriting();
        writeNumbered(handle, 1, 3);
        FileSizeLimit.during(fileBytes().length, () ->
                assertFails(FILE_FLUSH_ERROR, () -> writeNumbered(handle, 4, 4)));
        free(handle);
        long again = openForWriting();
        assertEquals(3, Natives.lastUniform(again));
        writeNumbered(again, 4, 5);
        assertEquals(5, read(again, range(1, 9)).timestamps().size());
    }

    @Test
    void theFileIsFreeForAnotherWriterOnceItsWriteHasFailed() throws IOException {
        long handle = openForWriting();
        FileSizeLimit.during(HEADER, () ->
                assertFails(FILE_FLUSH_ERROR, () -> writeNumbered(handle, 1, 1)));
        long other = openForWriting();
        writeNumbered(other, 1, 1);
        assertEquals(1, stored().size());
    }

    @Test
    void aFooterThatDoesNotFitFailsTheMessageThatWouldCloseTheBlock() throws IOException {
        long handle = openForWriting();
        writeNumbered(handle, 1, 999);
        byte[] before = fileBytes();
        FileSizeLimit.during(before.length + 500, () ->
                assertFails(FILE_FLUSH_ERROR, () -> writeNumbered(handle, 1000, 1000)));
        assertArrayEquals(before, fileBytes(), "what was written of the message is cut back");
        free(handle);
        long again = openForWriting();
        writeNumbered(again, 1000, 1001);
        assertEquals(1001, read(again, range(1, 1001)).timestamps().size());
    }

    @Test
    void aTableThatCannotBeCreatedLeavesNoHandle() throws IOException {
        Files.createSymbolicLink(file(), Path.of("/dev/full"));
        assertFails(FILE_FLUSH_ERROR, this::openForWriting);
        String[] names = Provider.names("x".repeat(400), 12);
        assertFails(FILE_WRITE_ERROR, () -> open(provider().strings(names), Natives.WRITE));
    }

    @Test
    void aDropThatCannotCutTheFileSaysSoAndTheMessagesStay() throws IOException {
        try (SealedFile sealed = new SealedFile()) {
            Files.createSymbolicLink(file(), sealed.path());
            long handle = openForWriting();
            writeNumbered(handle, 1, 3);
            sealed.forbidToShrink();
            assertFails(FILE_TRUNCATE_ERROR, () -> Natives.drop(handle));
            assertEquals(3, stored().size());
            assertEquals(3, Natives.lastUniform(handle));
            writeNumbered(handle, 4, 4);
            assertEquals(4, read(handle, range(1, 9)).timestamps().size());
        }
    }

    @Test
    void aCloseThatCannotSaveTheBookkeepingSaysSoAndTheMessagesStay() throws IOException {
        long handle = openForWriting();
        writeNumbered(handle, 1, 3);
        FileSizeLimit.during(HEADER - StoredMessage.TAIL_SIZE, () ->
                assertFails(FILE_FLUSH_ERROR, () -> Natives.close(handle)));
        free(handle);
        long again = openForWriting();
        assertEquals(3, read(again, range(1, 3)).timestamps().size());
    }

    @Test
    void aRecoveryThatCannotSaveWhatItWouldCutLeavesTheFileAsItIs() throws IOException {
        long handle = openForWriting();
        writeNumbered(handle, 1, 3);
        free(handle);
        byte[] damaged = fileBytes();
        int second = HEADER + 8 + (damaged.length - HEADER - 8) / 3;
        damaged[second + 20] ^= 1;
        damaged[second] ^= 1;
        Files.write(file(), damaged);
        FileSizeLimit.during(16, () -> {
            JNITboException refused = assertThrows(JNITboException.class, this::openForWriting);
            assertTrue(Set.of(FILE_WRITE_ERROR, FILE_FLUSH_ERROR).contains(refused.getErrorCode()),
                    () -> "the open failed for another reason: " + refused.getMessage());
        });
        assertArrayEquals(damaged, fileBytes());
        RecordingFacility facility = listenToWarnings();
        assertEquals(1, Natives.lastUniform(openForWriting()));
        assertFalse(facility.warnings().isEmpty(), "what was cut is named");
    }
}
