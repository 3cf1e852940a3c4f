package com.corvane.kestrova.examples;

import java.io.IOException;
import java.nio.MappedByteBuffer;
import java.nio.channels.FileChannel;
import java.nio.file.Path;
import java.nio.file.StandardOpenOption;

/**
 * A number in memory shared by two processes: how many messages the writer has been told to be stored. It outlives the
 * writer, however that ends.
 */
final class AckFile {
    private final MappedByteBuffer memory;

    AckFile(Path file) throws IOException {
        try (FileChannel channel = FileChannel.open(file, StandardOpenOption.CREATE, StandardOpenOption.READ,
                StandardOpenOption.WRITE)) {
            memory = channel.map(FileChannel.MapMode.READ_WRITE, 0, Integer.BYTES);
        }
    }

    void set(int count) {
        memory.putInt(0, count);
    }

    int get() {
        return memory.getInt(0);
    }
}
