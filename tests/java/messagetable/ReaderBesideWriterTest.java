package com.corvane.kestrova.engine.tabulo.jni;

import static com.corvane.kestrova.engine.tabulo.jni.Errors.assertFails;
import static com.corvane.kestrova.engine.tabulo.jni.JNITboErrorCodes.FILE_OPEN_ERROR;
import static com.corvane.kestrova.engine.tabulo.jni.JNITboErrorCodes.READ_ONLY_ERROR;
import static org.junit.jupiter.api.Assertions.assertArrayEquals;
import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.io.BufferedReader;
import java.io.IOException;
import java.io.InputStreamReader;
import java.nio.file.Path;
import java.util.List;
import org.junit.jupiter.api.Test;

/** One writer and others beside it, in the same process and in other ones. */
class ReaderBesideWriterTest extends OnTables {
    private static final int IDS = 3000;

    @Test
    void aReaderSeesEveryMessageAsSoonAsItIsStored() {
        long writer = openForWriting();
        long reader = openForReading();
        for (int i = 1; i <= 50; ++i) {
            writeNumbered(writer, i, i);
            assertEquals(i, Natives.lastUniform(reader));
            assertEquals(i, Natives.lastGood(reader, 0, null));
            assertEquals(i, Natives.lastMessageId(reader, 0));
            assertEquals(i, read(reader, range(1, IDS)).timestamps().size());
        }
    }

    @Test
    void aReaderFollowsTheWriterOverTheEndOfABlock() {
        long writer = openForWriting();
        long reader = openForReading();
        int[] ids = range(1, IDS);
        writeNumbered(writer, 1, 998);
        for (int i = 999; i <= 1003; ++i) {
            writeNumbered(writer, i, i);
            assertEquals(i, Natives.lastUniform(reader), "lookup behind message " + i);
            assertEquals(i, read(reader, ids).timestamps().size(), "read behind message " + i);
        }
        writeNumbered(writer, 1004, 2001);
        assertEquals(2001, read(reader, ids).timestamps().size());
        assertEquals(2001, Natives.lastUniform(reader));
    }

    @Test
    void aReaderSeesADropAndWhatIsWrittenAfterIt() {
        long writer = openForWriting();
        long reader = openForReading();
        writeNumbered(writer, 1, 1200);
        assertEquals(1200, read(reader, range(1, IDS)).timestamps().size());
        Natives.drop(writer);
        assertEquals(List.of(0), read(reader, range(1, IDS)).counts());
        assertEquals(0, Natives.lastUniform(reader));
        writeNumbered(writer, 5, 6);
        assertEquals(List.of(1_005L, 1_006L), read(reader, range(1, IDS)).timestamps());
        assertEquals(6, Natives.lastUniform(reader));
    }

    @Test
    void aReaderGoesOnBehindAWriterThatClosedAndOpenedAgain() {
        long writer = openForWriting();
        long reader = openForReading();
        writeNumbered(writer, 1, 3);
        close(writer);
        assertEquals(3, Natives.lastUniform(reader));
        writer = openForWriting();
        writeNumbered(writer, 4, 4);
        assertEquals(4, Natives.lastUniform(reader));
        assertEquals(4, read(reader, range(1, 9)).timestamps().size());
    }

    @Test
    void aReaderDropsNothingAndStaysUsable() throws IOException {
        long writer = openForWriting();
        writeNumbered(writer, 1, 3);
        long reader = openForReading();
        byte[] before = fileBytes();
        assertFails(READ_ONLY_ERROR, () -> Natives.drop(reader));
        Natives.close(reader);
        assertArrayEquals(before, fileBytes(), "neither a drop nor a close of a reader writes");
        assertEquals(3, Natives.lastUniform(reader));
    }

    @Test
    void aSecondWriterOfTheSameProcessIsRefused() throws IOException {
        long writer = openForWriting();
        writeNumbered(writer, 1, 3);
        byte[] before = fileBytes();
        assertFails(FILE_OPEN_ERROR, this::openForWriting);
        assertFails(FILE_OPEN_ERROR, () -> open(provider(), 2));
        assertArrayEquals(before, fileBytes());
        writeNumbered(writer, 4, 4);
        assertEquals(4, stored().size());
    }

    @Test
    void aWriterThatIsClosedButNotFreedKeepsTheFile() {
        long writer = openForWriting();
        Natives.close(writer);
        assertFails(FILE_OPEN_ERROR, this::openForWriting);
        free(writer);
        openForWriting();
    }

    /** Opens for writing and prints the code that refuses it. */
    static final class SecondWriter {
        public static void main(String[] arguments) {
            try {
                Natives.open(new Provider(Path.of(arguments[0])), Natives.WRITE);
                System.out.println("opened");
            } catch (JNITboException refused) {
                System.out.println("code " + refused.getErrorCode());
            }
        }
    }

    @Test
    void aSecondWriterInAnotherProcessIsRefusedWithAWarningAndTheFileIsNotTouched() throws Exception {
        long writer = openForWriting();
        writeNumbered(writer, 1, 3);
        byte[] before = fileBytes();
        try (ChildJvm child = ChildJvm.start(directory, SecondWriter.class, directory.toString())) {
            assertTrue(child.finish().contains("code " + FILE_OPEN_ERROR));
            assertTrue(child.errors().contains("Tabulo/C WARNING: tsX_openReplica(): Unable to open a file " + file()
                    + " in mode 1."), () -> "standard error has " + child.errors());
        }
        assertArrayEquals(before, fileBytes());
        writeNumbered(writer, 4, 4);
        assertEquals(4, read(writer, range(1, 9)).timestamps().size());
    }

    /** For each line of its input, prints what a reader sees. */
    static final class Reader {
        public static void main(String[] arguments) throws IOException {
            long reader = Natives.open(new Provider(Path.of(arguments[0])), Natives.READ);
            System.out.println("ready");
            BufferedReader in = new BufferedReader(new InputStreamReader(System.in));
            for (String line = in.readLine(); line != null; line = in.readLine()) {
                System.out.println("seen " + Natives.lastUniform(reader) + " "
                        + read(reader, range(1, IDS)).timestamps().size());
            }
            Natives.free(reader);
        }
    }

    @Test
    void aReaderInAnotherProcessSeesEveryAcknowledgedMessage() throws Exception {
        long writer = openForWriting();
        try (ChildJvm child = ChildJvm.start(directory, Reader.class, directory.toString())) {
            child.awaitLine("ready");
            int stored = 0;
            for (int next : new int[] {1, 2, 10, 999, 1000, 1001, 1999, 2000, 2500}) {
                writeNumbered(writer, stored + 1, next);
                stored = next;
                child.tell("look");
                child.awaitLine("seen " + stored + " " + stored);
            }
        }
    }
}
