package com.corvane.kestrova.examples;

import com.corvane.kestrova.engine.tabulo.jni.JNITboMessageTable;
import java.io.IOException;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.Random;
import java.util.concurrent.TimeUnit;

/** Has a process killed while it stores messages, and looks what its table holds afterwards. */
final class CrashRun {
    private static final String TABLE = "killed";
    private static final int KILLED = 128 + 9;
    private static final int START_TIMEOUT_SECONDS = 60;
    private static final int SHORTEST_LIFE_MILLIS = 200;
    private static final int LONGEST_LIFE_MILLIS = 1000;

    private final TableDirectory tables;
    private final MessageStream stream;
    private final Path ackFile;
    private double recoverySeconds;

    CrashRun(TableDirectory tables, MessageStream stream) {
        this.tables = tables;
        this.stream = stream;
        ackFile = tables.file(TABLE + ".acknowledged");
    }

    void run(Path library, Path dataDirectory) throws IOException, InterruptedException {
        int acknowledged = storeUntilKilled(library, dataDirectory);
        System.out.printf("   The table's file has %,d bytes. Opening it for writing, which recovers it.%n",
                Files.size(tables.file(TABLE)));
        long start = System.nanoTime();
        try (JNITboMessageTable table = tables.open(TABLE, JNITboMessageTable.MODE_WRITE)) {
            recoverySeconds = (System.nanoTime() - start) / 1e9;
            int stored = table.getLastUniformMessageId();
            System.out.printf("   Recovered in %.1f ms: %,d messages.%n", recoverySeconds * 1000, stored);
            // The kill may fall between the write of a message and its acknowledgement.
            if (stored != acknowledged && stored != acknowledged + 1) {
                throw new DemoFailure(acknowledged + " messages were acknowledged, and " + stored + " are there");
            }
            ReadBack.compare(table, stream, stored, new Progress("reading and comparing", stored));
        }
        System.out.printf("   All %,d acknowledged messages survived, byte for byte.%n", acknowledged);
        tables.remove(TABLE);
    }

    double recoverySeconds() {
        return recoverySeconds;
    }

    private int storeUntilKilled(Path library, Path dataDirectory) throws IOException, InterruptedException {
        AckFile acknowledged = new AckFile(ackFile);
        String java = Path.of(System.getProperty("java.home"), "bin", "java").toString();
        Process writer = new ProcessBuilder(java, "-cp", System.getProperty("java.class.path"),
                CrashWriter.class.getName(), library.toString(), dataDirectory.toString(), tables.path().toString(),
                TABLE, ackFile.toString()).inheritIO().start();
        try {
            awaitFirstMessage(writer, acknowledged);
            int life = SHORTEST_LIFE_MILLIS + new Random().nextInt(LONGEST_LIFE_MILLIS - SHORTEST_LIFE_MILLIS);
            Thread.sleep(life);
            writer.destroyForcibly();
            int status = writer.waitFor();
            if (status != KILLED) {
                throw new DemoFailure("the writing process was not killed, but ended with status " + status);
            }
            System.out.printf("   Process %d was killed (SIGKILL) after %d ms of storing, with %,d messages"
                    + " acknowledged.%n", writer.pid(), life, acknowledged.get());
        } finally {
            writer.destroyForcibly();
        }
        return acknowledged.get();
    }

    private static void awaitFirstMessage(Process writer, AckFile acknowledged) throws InterruptedException {
        long deadline = System.nanoTime() + TimeUnit.SECONDS.toNanos(START_TIMEOUT_SECONDS);
        while (acknowledged.get() == 0) {
            if (writer.waitFor(1, TimeUnit.MILLISECONDS) || System.nanoTime() > deadline) {
                throw new DemoFailure("the writing process stored nothing");
            }
        }
    }
}
