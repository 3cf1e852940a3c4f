package com.corvane.kestrova.examples;

import com.corvane.kestrova.engine.tabulo.store.Tabulo;
import com.corvane.kestrova.engine.tabulo.store.TabuloException;
import com.corvane.kestrova.engine.tabulo.store.UniformIds;
import java.io.IOException;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.List;
import java.util.Locale;

/** The demo: what a FIX engine does with the library, step by step, on recorded sessions. */
public final class DemoEngine {
    private static final int EXIT_DIFFERS = 1;
    private static final int EXIT_USAGE = 2;
    private static final String STORE_ONLY = "store-only";

    private final Path libraryFile;
    private final Path dataDirectory;
    private final TableDirectory tables;
    private final List<SessionRun> sessions = new ArrayList<>();
    private final CrashRun crash;
    private final StoreBenchmark benchmark;

    private DemoEngine(Path libraryFile, Path dataDirectory, TableDirectory tables) throws IOException {
        this.libraryFile = libraryFile;
        this.dataDirectory = dataDirectory;
        this.tables = tables;
        List<RecordedSession> recorded = RecordedSession.readAll(dataDirectory);
        int firstUniformId = 1;
        for (RecordedSession session : recorded) {
            sessions.add(new SessionRun(tables, session, firstUniformId));
            firstUniformId += session.messages().size();
        }
        crash = new CrashRun(tables, recorded);
        benchmark = new StoreBenchmark(tables, new MessageStream(RecordedSession.allMessages(recorded), 1));
    }

    /**
     * Runs the demo; the exit status is 0 when all came back as it was stored.
     *
     * @param args path of libtabulo.so, directory of the recorded sessions, directory to work in; and {@value #STORE_ONLY}
     *             to end when the recorded days are stored and read back
     */
    public static void main(String[] args) {
        Locale.setDefault(Locale.ROOT);
        boolean storesOnly = args.length == 4 && args[3].equals(STORE_ONLY);
        if (args.length != 3 && !storesOnly) {
            System.err.println("usage: DemoEngine <libtabulo.so> <data directory> <work directory> [" + STORE_ONLY + "]");
            System.exit(EXIT_USAGE);
        }
        int status = EXIT_DIFFERS;
        try {
            Path library = Path.of(args[0]);
            Tabulo.load(library);
            Tabulo.logTo(new DemoLog());
            new DemoEngine(library, Path.of(args[1]), TableDirectory.makeEmpty(Path.of(args[2], "tables"))).run(storesOnly);
            status = 0;
        } catch (DemoFailure failure) {
            System.err.println("\nFAILED: " + failure.getMessage());
        } catch (TabuloException failure) {
            System.err.println("\nFAILED: the library reports " + failure);
            failure.printStackTrace();
        } catch (Exception | UnsatisfiedLinkError failure) {
            System.err.print("\nFAILED: ");
            failure.printStackTrace();
        }
        System.exit(status);
    }

    private void run(boolean storesOnly) throws IOException, InterruptedException {
        System.out.println("""
                Tabulo keeps the messages of a FIX engine in files: one table for each connection, appended to for
                every message sent or received, read after a restart. This is a small Java engine that uses it.
                """);
        store();
        readBack();
        if (storesOnly) {
            return;
        }
        crash();
        lookUp();
        query();
        benchmark();
        summarise();
    }

    private void store() {
        System.out.println("""
                1. Two recorded trading days are stored, each in a table of its own.
                   Indexed: ClOrdID, Symbol, Account as text, OrderQty and Price as numbers. After each message its
                   sequence number is kept beside it, as the last one sent or received.""");
        UniformIds ids = new UniformIds();
        sessions.forEach(session -> session.store(ids));
        System.out.println();
    }

    private void readBack() {
        System.out.println("""
                2. The tables were closed. They are opened again and read from first to last, and the kept sequence
                   numbers are compared with those of the last messages.""");
        sessions.forEach(SessionRun::readBack);
        System.out.printf("   All %,d messages are byte for byte the recorded ones, in the same order.%n%n",
                messages());
    }

    private void crash() throws IOException, InterruptedException {
        System.out.println("""
                3. A second process stores both days over and over, a message of each in turn. It is killed at a
                   random moment. A message counts as acknowledged when it and its number are written.""");
        crash.run(libraryFile, dataDirectory);
        System.out.println();
    }

    private void lookUp() {
        System.out.println("4. What an engine asks after a restart; the tables answer without reading messages.");
        sessions.forEach(SessionRun::lookUp);
        System.out.println();
    }

    private void query() {
        System.out.println("""
                5. What people ask. Every answer is compared with the recorded messages.
                                                          messages      first       then  (microseconds)""");
        sessions.forEach(SessionRun::query);
        System.out.println();
    }

    private void benchmark() throws IOException {
        System.out.println("""
                6. The messages are stored over and over, 1,200,000 of them, and the time is taken: in turns without
                   keeping the sequence numbers and with it; the median of 11 rounds of 50,000.""");
        benchmark.run();
        System.out.printf("   Without: %,.0f messages/s, %,.1f MB/s of wire messages. With: %,.0f messages/s.%n%n",
                benchmark.messagesPerSecond(), benchmark.wireBytesPerSecond() / 1e6,
                benchmark.messagesPerSecondWithNumbers());
    }

    private void summarise() throws IOException {
        double storing = sessions.stream().mapToDouble(SessionRun::storeSeconds).sum();
        double reading = sessions.stream().mapToDouble(SessionRun::readSeconds).sum();
        long fileBytes = 0;
        try (var files = Files.list(tables.path())) {
            for (Path file : files.toList()) {
                fileBytes += Files.size(file);
            }
        }
        System.out.println("Summary");
        print("messages recorded", "%,d", messages());
        print("bytes of wire messages", "%,d", sessions.stream().mapToLong(SessionRun::wireBytes).sum());
        print("bytes of the tables", "%,d in %s", fileBytes, tables.path());
        print("stored, cold", "%,.0f messages/s", messages() / storing);
        print("stored, warm", "%,.0f messages/s", benchmark.messagesPerSecond());
        print("  and their numbers kept", "%,.0f messages/s", benchmark.messagesPerSecondWithNumbers());
        print("read and compared", "%,.0f messages/s", messages() / reading);
        print("recovery after the kill", "%.1f ms", crash.recoverySeconds() * 1000);
        System.out.println("   Nothing differs.");
    }

    private long messages() {
        return sessions.stream().mapToLong(SessionRun::messages).sum();
    }

    private static void print(String what, String format, Object... values) {
        System.out.printf("   %-28s %s%n", what, String.format(format, values));
    }
}
