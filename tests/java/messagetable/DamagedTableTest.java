package com.corvane.kestrova.engine.tabulo.jni;

import static com.corvane.kestrova.engine.tabulo.jni.Errors.assertFails;
import static com.corvane.kestrova.engine.tabulo.jni.JNITboErrorCodes.CONSISTENCY_ERROR;
import static com.corvane.kestrova.engine.tabulo.jni.JNITboErrorCodes.HEADER_CORRUPTED_ERROR;
import static org.junit.jupiter.api.Assertions.assertArrayEquals;
import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.io.IOException;
import java.nio.ByteBuffer;
import java.nio.ByteOrder;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.Arrays;
import java.util.List;
import java.util.Random;
import java.util.stream.Stream;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.params.ParameterizedTest;
import org.junit.jupiter.params.provider.ValueSource;

/** Tables whose bytes were cut or changed behind the library's back. */
class DamagedTableTest extends OnTables {
    private static final int HEADER = 140;
    private static final int FIRST_FRAME = HEADER + 8;
    private static final int FOOTER = 2652;

    /** A table left open at its end, as a crash leaves it. */
    private ByteBuffer tableOf(int messages) throws IOException {
        long handle = openForWriting();
        writeNumbered(handle, 1, messages);
        free(handle);
        return ByteBuffer.wrap(fileBytes()).order(ByteOrder.nativeOrder());
    }

    private List<Path> saved() throws IOException {
        try (Stream<Path> entries = Files.list(directory)) {
            return entries.filter(path -> path.getFileName().toString().startsWith("orders.cut-")).sorted().toList();
        }
    }

    @ParameterizedTest
    @ValueSource(ints = {1, 4, 50, 60})
    void aMessageWhoseEndIsCutIsRemovedAndTheOthersStay(int missing) throws IOException {
        byte[] whole = tableOf(3).array();
        Files.write(file(), Arrays.copyOf(whole, whole.length - missing));
        long handle = openForWriting();
        assertEquals(List.of(1_001L, 1_002L), read(handle, range(1, 9)).timestamps());
        assertEquals(2, Natives.lastUniform(handle));
        writeNumbered(handle, 3, 3);
        assertArrayEquals(Arrays.copyOfRange(whole, HEADER, whole.length),
                Arrays.copyOfRange(fileBytes(), HEADER, whole.length), "the same message makes the same file");
        assertEquals(List.of(), saved(), "a torn tail is not worth saving");
    }

    @Test
    void whatIsCutBehindADamagedPlaceIsSavedAndNamed() throws IOException {
        ByteBuffer table = tableOf(5);
        int second = FIRST_FRAME + table.getInt(FIRST_FRAME);
        table.putInt(second, table.getInt(second) + 1);
        Files.write(file(), table.array());
        RecordingFacility facility = new RecordingFacility();
        JNITboLibLoader.setLogFacility(facility);
        long handle = openForWriting();
        assertEquals(List.of(1_001L), read(handle, range(1, 9)).timestamps());
        Path saved = directory.resolve("orders.cut-" + second);
        assertEquals(List.of(saved), saved());
        byte[] cut = Arrays.copyOfRange(table.array(), second, table.capacity());
        assertArrayEquals(cut, Files.readAllBytes(saved));
        String warnings = facility.warnings();
        String line = warnings.lines().filter(text -> text.startsWith("Tabulo/C WARNING: mtX_recover(): "))
                .findFirst().orElseThrow(() -> new AssertionError("no warning of mtX_recover in " + warnings));
        assertTrue(line.contains(saved.toString()) && line.contains(String.valueOf(cut.length)),
                () -> "the warning names the file and the number of bytes: " + line);
        assertTrue(warnings.contains("Tabulo/C WARNING: tsX_openReplica(): Table " + file()
                + " was recovered, old size: " + table.capacity() + ", new size: " + second + "\n"), warnings);
    }

    @Test
    void aSavedFileIsNeverWrittenOver() throws IOException {
        ByteBuffer table = tableOf(3);
        int second = FIRST_FRAME + table.getInt(FIRST_FRAME);
        table.putInt(second, 0);
        for (int i = 0; i < 3; ++i) {
            Files.write(file(), table.array());
            close(openForWriting());
        }
        Path first = directory.resolve("orders.cut-" + second);
        assertEquals(List.of(first, Path.of(first + "-1"), Path.of(first + "-2")), saved());
    }

    @Test
    void aFrameThatIsDamagedInAClosedBlockIsReportedToTheReader() throws IOException {
        ByteBuffer table = tableOf(1500);
        table.putInt(FIRST_FRAME, table.getInt(FIRST_FRAME) + 1);
        Files.write(file(), table.array());
        for (int mode : new int[] {Natives.READ, Natives.WRITE}) {
            long handle = open(provider(), mode);
            RecordingListener listener = new RecordingListener();
            assertFails(CONSISTENCY_ERROR, () -> Natives.readMessages(handle, range(1, 1500), -1, listener));
            assertEquals(List.of(), listener.counts(), "nothing is handed over at the end of a failed read");
            free(handle);
        }
        byte[] messages = Arrays.copyOfRange(table.array(), HEADER, table.capacity());
        assertArrayEquals(messages, Arrays.copyOfRange(fileBytes(), HEADER, (int) Files.size(file())),
                "a closed block's frames are not recovered");
    }

    @Test
    void aFooterThatIsDamagedIsReportedToTheReader() throws IOException {
        ByteBuffer table = tableOf(1500);
        int footer = HEADER + (int) table.getLong(HEADER) - FOOTER;
        long reader = openForReading();
        table.putInt(footer + 72, 9999);
        Files.write(file(), table.array());
        assertFails(HEADER_CORRUPTED_ERROR, () -> read(reader, range(1, 1500)));
    }

    @ParameterizedTest
    @ValueSource(longs = {1, 8, 2660, -1, Long.MIN_VALUE, Long.MAX_VALUE, 1L << 32})
    void aBlockLengthThatCannotBeIsReportedToTheReader(long length) throws IOException {
        ByteBuffer table = tableOf(1500);
        long reader = openForReading();
        table.putLong(HEADER, length);
        Files.write(file(), table.array());
        assertFails(HEADER_CORRUPTED_ERROR, () -> read(reader, range(1, 1500)));
    }

    @Test
    void aFileThatIsNoTableBehindItsHeaderIsEmptyAfterRecovery() throws IOException {
        byte[] header = Arrays.copyOf(tableOf(1).array(), HEADER);
        byte[] garbage = Arrays.copyOf(header, HEADER + 10_000);
        Arrays.fill(garbage, HEADER, garbage.length, (byte) 0x7E);
        Files.write(file(), garbage);
        long handle = openForWriting();
        assertEquals(0, Natives.lastUniform(handle));
        assertEquals(HEADER, fileBytes().length);
        assertArrayEquals(Arrays.copyOfRange(garbage, HEADER, garbage.length), Files.readAllBytes(saved().get(0)));
    }

    @Test
    void anyByteOfATableMayChangeWithoutHarmToTheProcess() throws IOException {
        byte[] whole = tableOf(1003).array();
        long seed = System.nanoTime();
        System.out.println("seed " + seed);
        Random random = new Random(seed);
        for (int i = 0; i < 150; ++i) {
            byte[] damaged = whole.clone();
            int end = random.nextBoolean() ? 300 : damaged.length;
            for (int changes = 1 + random.nextInt(4); changes > 0; --changes) {
                damaged[random.nextInt(end)] = (byte) (random.nextBoolean() ? random.nextInt() : 0xFF);
            }
            int mode = random.nextInt(2);
            Files.write(file(), damaged);
            try {
                long handle = Natives.open(provider(), mode);
                try {
                    read(handle, range(1, 1003));
                    Natives.lastUniform(handle);
                } finally {
                    Natives.free(handle);
                }
            } catch (JNITboException refused) {
                assertTrue(refused.getErrorCode() > 0 && refused.getErrorCode() <= 38, "seed " + seed);
            }
        }
    }
}
