package com.corvane.kestrova.examples;

import java.io.IOException;
import java.nio.file.Path;
import java.util.List;
import java.util.Random;
import java.util.concurrent.TimeUnit;

/** Has a process killed while it stores messages, and looks what its tables hold afterwards. */
final class CrashRun {
    private static final String FILES = "killed";
    private static final int KILLED = 128 + 9;
    private static final int START_TIMEOUT_SECONDS = 60;
    private static final int SHORTEST_LIFE_MILLIS = 200;
    private static final int LONGEST_LIFE_MILLIS = 1000;

    private final TableDirectory tables;
    private final CrashSessions sessions;
    private final Path ackFile;
    private double recoverySeconds;
    private int numbersBehind;

    CrashRun(TableDirectory tables, List<RecordedSession> recorded) {
        this.tables = tables;
        sessions = new CrashSessions(tables, recorded);
        ackFile = tables.file(FILES + ".acknowledged");
    }

    void run(Path library, Path dataDirectory) throws IOException, InterruptedException {
        int acknowledged = storeUntilKilled(library, dataDirectory);
        System.out.println("   The tables are opened for writing, which recovers them.");
        for (int session = 0; session < sessions.count(); ++session) {
            look(session, acknowledged);
        }
        // Messages are stored one after the other, so the kill can have fallen between the writes of one at most.
        if (numbersBehind > 1) {
            throw new DemoFailure(numbersBehind + " of the kept sequence numbers are behind");
        }
        System.out.printf("   All %,d acknowledged messages survived, byte for byte, and the numbers fit them.%n",
                acknowledged);
        tables.remove(FILES);
    }

    double recoverySeconds() {
        return recoverySeconds;
    }

    private void look(int session, int acknowledged) {
        MessageStream stream = sessions.stream(session);
        long start = System.nanoTime();
        try (SessionStore store = sessions.open(session)) {
            double seconds = (System.nanoTime() - start) / 1e9;
            recoverySeconds += seconds;
            int stored = stream.countUpTo(store.messages().lastUniformId().orElse(0));
            System.out.printf("   %s: recovered in %.1f ms, %,d messages.%n", sessions.name(session), seconds * 1000,
                    stored);
            // The kill may fall between the write of a message and its acknowledgement.
            int expected = sessions.share(session, acknowledged);
            if (stored != expected && stored != sessions.share(session, acknowledged + 1)) {
                throw new DemoFailure(expected + " messages were acknowledged, and " + stored + " are there");
            }
            ReadBack.compare(store.messages(), stream, stored, new Progress("reading and comparing", stored));
            numbersBehind += store.printAndCompareNumbers(true);
        }
    }

    private int storeUntilKilled(Path library, Path dataDirectory) throws IOException, InterruptedException {
        AckFile acknowledged = new AckFile(ackFile);
        String java = Path.of(System.getProperty("java.home"), "bin", "java").toString();
        Process writer = new ProcessBuilder(java, "-cp", System.getProperty("java.class.path"),
                CrashWriter.class.getName(), library.toString(), dataDirectory.toString(), tables.path().toString(),
                ackFile.toString()).inheritIO().start();
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
