package com.corvane.kestrova.examples;

import com.corvane.kestrova.engine.tabulo.jni.JNITboMessageTable;
import java.io.IOException;
import java.nio.file.Files;

/** Stores the recorded messages over and over and measures the rate. Nothing but the storing is timed. */
final class StoreBenchmark {
    private static final String TABLE = "rate";
    private static final int WARM_UP_MESSAGES = 100_000;
    private static final int MESSAGES = 1_000_000;
    private static final int MESSAGES_BETWEEN_UPDATES = 1000;
    private static final long DISK_SPACE_NEEDED = 1L << 30;

    private final TableDirectory tables;
    private final MessageStream stream;
    private double seconds;

    StoreBenchmark(TableDirectory tables, MessageStream stream) {
        this.tables = tables;
        this.stream = stream;
    }

    void run() throws IOException {
        if (Files.getFileStore(tables.path()).getUsableSpace() < DISK_SPACE_NEEDED) {
            throw new DemoFailure("this step needs 1 GiB of free disk space in " + tables.path());
        }
        try (JNITboMessageTable table = tables.open(TABLE, JNITboMessageTable.MODE_WRITE)) {
            store(table, 0, WARM_UP_MESSAGES, new Progress("warming up", WARM_UP_MESSAGES));
            Progress progress = new Progress("storing", MESSAGES);
            long start = System.nanoTime();
            store(table, WARM_UP_MESSAGES, MESSAGES, progress);
            seconds = (System.nanoTime() - start) / 1e9;
            int last = table.getLastUniformMessageId();
            if (last != WARM_UP_MESSAGES + MESSAGES) {
                throw new DemoFailure("the last of the stored messages has the uniform message id " + last);
            }
        } finally {
            long size = Files.exists(tables.file(TABLE)) ? Files.size(tables.file(TABLE)) : 0;
            tables.remove(TABLE);
            System.out.printf("   The table had %,d bytes; it is removed again.%n", size);
        }
    }

    double messagesPerSecond() {
        return MESSAGES / seconds;
    }

    double wireBytesPerSecond() {
        long bytes = 0;
        for (int index = WARM_UP_MESSAGES; index < WARM_UP_MESSAGES + MESSAGES; ++index) {
            bytes += stream.message(index).wire.length;
        }
        return bytes / seconds;
    }

    private void store(JNITboMessageTable table, int from, int count, Progress progress) {
        for (int i = 1; i <= count; ++i) {
            stream.store(table, from + i - 1);
            if (i % MESSAGES_BETWEEN_UPDATES == 0) {
                progress.update(i);
            }
        }
    }
}
