package com.corvane.kestrova.examples;

import com.corvane.kestrova.engine.tabulo.store.MessageStore;
import com.corvane.kestrova.engine.tabulo.store.UniformIds;
import java.io.IOException;
import java.nio.file.Files;
import java.util.Arrays;
import java.util.function.IntConsumer;

/**
 * Stores the recorded messages over and over and measures the rate, with the session's numbers and without them.
 * Nothing but the storing is timed. The two take turns, so that what else the machine does meets both.
 */
final class StoreBenchmark {
    private static final String PLAIN_TABLE = "rate-plain";
    private static final String NUMBERED_TABLE = "rate-numbered";
    private static final int ROUNDS = 11;
    private static final int MESSAGES_PER_ROUND = 50_000;
    private static final long DISK_SPACE_NEEDED = 1L << 30;

    private final TableDirectory tables;
    private final MessageStream stream;
    private final double[] plainSeconds = new double[ROUNDS];
    private final double[] numberedSeconds = new double[ROUNDS];

    StoreBenchmark(TableDirectory tables, MessageStream stream) {
        this.tables = tables;
        this.stream = stream;
    }

    void run() throws IOException {
        if (Files.getFileStore(tables.path()).getUsableSpace() < DISK_SPACE_NEEDED) {
            throw new DemoFailure("this step needs 1 GiB of free disk space in " + tables.path());
        }
        try (MessageStore plain = tables.openWriter(PLAIN_TABLE);
                SessionStore numbered =
                        SessionStore.openWriter(tables, NUMBERED_TABLE, stream, new UniformIds())) {
            // The first round warms up: the second one writes over its time.
            Progress progress = new Progress("storing", ROUNDS + 1);
            for (int round = -1; round < ROUNDS; ++round) {
                int first = (round + 1) * MESSAGES_PER_ROUND;
                plainSeconds[Math.max(round, 0)] = store(first, index -> stream.store(plain, index));
                numberedSeconds[Math.max(round, 0)] = store(first, numbered::store);
                progress.update(round + 2);
            }
            checkLast(plain);
            checkLast(numbered.messages());
        } finally {
            tables.remove(PLAIN_TABLE);
            tables.remove(NUMBERED_TABLE);
        }
        Arrays.sort(plainSeconds);
        Arrays.sort(numberedSeconds);
    }

    /** The median of the rounds. */
    double messagesPerSecond() {
        return MESSAGES_PER_ROUND / plainSeconds[ROUNDS / 2];
    }

    /** The median of the rounds that kept the session's numbers. */
    double messagesPerSecondWithNumbers() {
        return MESSAGES_PER_ROUND / numberedSeconds[ROUNDS / 2];
    }

    double wireBytesPerSecond() {
        long bytes = 0;
        for (int index = 0; index < MESSAGES_PER_ROUND; ++index) {
            bytes += stream.message(index).wire.length;
        }
        return (double) bytes / MESSAGES_PER_ROUND * messagesPerSecond();
    }

    private static double store(int first, IntConsumer storing) {
        long start = System.nanoTime();
        for (int index = first; index < first + MESSAGES_PER_ROUND; ++index) {
            storing.accept(index);
        }
        return (System.nanoTime() - start) / 1e9;
    }

    private void checkLast(MessageStore store) {
        int last = store.lastUniformId().orElse(0);
        if (last != (ROUNDS + 1) * MESSAGES_PER_ROUND) {
            throw new DemoFailure("the last of the stored messages has the uniform message id " + last);
        }
    }
}
