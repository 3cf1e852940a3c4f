package com.corvane.kestrova.examples;

import com.corvane.kestrova.engine.tabulo.store.Tabulo;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.List;

/** The process that is killed: stores messages over and over and acknowledges each one after its writes returned. */
public final class CrashWriter {
    /** It ends by itself when it is not killed before. */
    private static final int MOST_MESSAGES = 2_000_000;
    private static final int MESSAGES_BETWEEN_CHECKS = 10_000;

    private CrashWriter() {
    }

    /**
     * Runs until it is killed.
     *
     * @param args library file, data directory, table directory, file of acknowledgements
     * @throws Exception when something fails before
     */
    public static void main(String[] args) throws Exception {
        Tabulo.load(Path.of(args[0]));
        Tabulo.logTo(new DemoLog());
        CrashSessions sessions =
                new CrashSessions(new TableDirectory(Path.of(args[2])), RecordedSession.readAll(Path.of(args[1])));
        AckFile acknowledged = new AckFile(Path.of(args[3]));
        ProcessHandle parent = ProcessHandle.current().parent().orElseThrow();
        List<SessionStore> stores = new ArrayList<>();
        for (int session = 0; session < sessions.count(); ++session) {
            stores.add(sessions.open(session));
        }
        for (int i = 0; i < MOST_MESSAGES; ++i) {
            stores.get(i % stores.size()).store(i / stores.size());
            acknowledged.set(i + 1);
            if (i % MESSAGES_BETWEEN_CHECKS == 0 && !parent.isAlive()) {
                break;
            }
        }
        System.exit(1);
    }
}
