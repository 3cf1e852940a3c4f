package com.corvane.kestrova.engine.tabulo.jni;

import static org.junit.jupiter.api.Assertions.assertArrayEquals;

import java.io.IOException;
import java.nio.ByteBuffer;
import java.nio.ByteOrder;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.List;
import org.junit.jupiter.api.AfterEach;
import org.junit.jupiter.api.BeforeEach;
import org.junit.jupiter.api.io.TempDir;

/** Tests on session info tables in a directory of their own; what a test leaves open is freed behind it. */
abstract class OnSessionTables {
    /** Tags of a table whose configuration names none. */
    static final int[] DEFAULT_TAGS = {2, 1, 3, 4, 5, 6};
    static final long[] SOME_VALUES = {20, 10, 30, 40, 50, 60};
    private static final int HEADER_WITHOUT_TAGS = 44;

    @TempDir
    Path directory;

    final RecordingFacility facility = new RecordingFacility();
    private final List<Long> handles = new ArrayList<>();

    @BeforeEach
    void listen() {
        SessionNatives.free(0);
        JNITboLibLoader.setLogFacility(facility);
    }

    @AfterEach
    void freeWhatIsOpen() {
        handles.forEach(SessionNatives::free);
        handles.clear();
        JNITboLibLoader.uninitLibrary();
    }

    /** A configuration of the table "session"; without tags it names none. */
    Provider provider(int... tags) {
        Provider provider = new Provider(directory).named("session");
        provider.tags = tags.length == 0 ? null : tags;
        return provider;
    }

    Path file() {
        return directory.resolve("session");
    }

    long open(Object provider, int mode) {
        long handle = SessionNatives.open(provider, mode);
        handles.add(handle);
        return handle;
    }

    long openForWriting(int... tags) {
        return open(provider(tags), Natives.WRITE);
    }

    long openForReading(int... tags) {
        return open(provider(tags), Natives.READ);
    }

    void free(long handle) {
        handles.remove(handle);
        SessionNatives.free(handle);
    }

    void place(byte[] bytes) throws IOException {
        Files.write(file(), bytes);
    }

    byte[] fileBytes() throws IOException {
        return Files.readAllBytes(file());
    }

    /** The file is exactly the one with these tags and values. */
    void assertFile(int[] tags, long... values) throws IOException {
        assertArrayEquals(fileOf(tags, values), fileBytes(), "the file's bytes");
    }

    /** The bytes of a table's file, made here and not by the library; values may be fewer than tags. */
    static byte[] fileOf(int[] tags, long... values) {
        int headerSize = HEADER_WITHOUT_TAGS + Integer.BYTES * tags.length;
        ByteBuffer out = ByteBuffer.allocate(headerSize + Long.BYTES * values.length).order(ByteOrder.LITTLE_ENDIAN);
        out.put(latin1("KestrovaDb")).put((byte) 1).putShort((short) 5).putShort((short) 800).putInt(headerSize);
        out.putInt(17).put(latin1("SessionInfoTable\0")).putInt(tags.length);
        Arrays.stream(tags).forEach(out::putInt);
        Arrays.stream(values).forEach(out::putLong);
        return out.array();
    }

    static byte[] latin1(String text) {
        return text.getBytes(StandardCharsets.ISO_8859_1);
    }
}
