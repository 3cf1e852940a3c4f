package com.corvane.kestrova.engine.tabulo.jni;

import java.io.IOException;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.List;
import java.util.function.Consumer;
import java.util.stream.IntStream;
import org.junit.jupiter.api.AfterEach;
import org.junit.jupiter.api.BeforeAll;
import org.junit.jupiter.api.io.TempDir;

/** Tests on tables in a directory of their own; what a test leaves open is freed behind it. */
abstract class OnTables {
    @TempDir
    Path directory;

    private final List<Long> handles = new ArrayList<>();

    @BeforeAll
    static void loadTheLibrary() {
        Natives.load();
    }

    @AfterEach
    void freeWhatIsOpen() {
        handles.forEach(Natives::free);
        handles.clear();
        JNITboLibLoader.uninitLibrary();
    }

    Provider provider() {
        return new Provider(directory);
    }

    /** The file of the table that provider() names. */
    Path file() {
        return directory.resolve("orders");
    }

    long open(Object provider, int mode) {
        long handle = Natives.open(provider, mode);
        handles.add(handle);
        return handle;
    }

    long openForWriting() {
        return open(provider(), Natives.WRITE);
    }

    long openForReading() {
        return open(provider(), Natives.READ);
    }

    /** Frees an open table early, without saving its bookkeeping. */
    void free(long handle) {
        handles.remove(handle);
        Natives.free(handle);
    }

    /** Closes an open table as a host does. */
    void close(long handle) {
        Natives.close(handle);
        free(handle);
    }

    static void write(long handle, Consumer<Message> settings) {
        Natives.writeTexts(handle, Message.of(settings));
    }

    static void writeNumbered(long handle, int first, int last) {
        for (int i = first; i <= last; ++i) {
            Natives.writeTexts(handle, Message.numbered(i));
        }
    }

    /** Reads with all ids of the array. */
    static RecordingListener read(long handle, int... ids) {
        RecordingListener listener = new RecordingListener();
        Natives.readMessages(handle, ids, -1, listener);
        return listener;
    }

    static int[] range(int first, int last) {
        return IntStream.rangeClosed(first, last).toArray();
    }

    List<StoredMessage> stored() throws IOException {
        return StoredMessage.readAll(file());
    }

    /** The only message of the table's file. */
    StoredMessage theStored() throws IOException {
        List<StoredMessage> all = stored();
        if (all.size() != 1) {
            throw new AssertionError("the file holds " + all.size() + " messages instead of 1");
        }
        return all.get(0);
    }

    byte[] fileBytes() throws IOException {
        return Files.readAllBytes(file());
    }

    static byte[] latin1(String text) {
        return text.getBytes(StandardCharsets.ISO_8859_1);
    }
}
