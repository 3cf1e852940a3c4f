package com.corvane.kestrova.examples;

import com.corvane.kestrova.engine.tabulo.jni.JNITboMessageTable;

/** Stores one recorded session in its tables, and reads it back after they were closed and opened again. */
final class SessionRun {
    private final TableDirectory tables;
    private final RecordedSession session;
    private final MessageStream stream;
    private double storeSeconds;
    private double readSeconds;

    SessionRun(TableDirectory tables, RecordedSession session, int firstUniformId) {
        this.tables = tables;
        this.session = session;
        stream = new MessageStream(session.messages(), firstUniformId);
    }

    int messages() {
        return session.messages().size();
    }

    long wireBytes() {
        return session.messages().stream().mapToLong(message -> message.wire.length).sum();
    }

    long textMessages() {
        return session.messages().stream().filter(RecordedMessage::isText).count();
    }

    double storeSeconds() {
        return storeSeconds;
    }

    double readSeconds() {
        return readSeconds;
    }

    void store() {
        Progress progress = new Progress("storing " + session.name(), messages());
        try (SessionStore store =
                new SessionStore(tables, session.name(), stream, JNITboMessageTable.MODE_WRITE)) {
            long start = System.nanoTime();
            for (int index = 0; index < messages(); ++index) {
                store.store(index);
                progress.update(index + 1);
            }
            storeSeconds = (System.nanoTime() - start) / 1e9;
        }
    }

    void readBack() {
        Progress progress = new Progress("reading " + session.name(), messages());
        try (SessionStore store =
                new SessionStore(tables, session.name(), stream, JNITboMessageTable.MODE_READ)) {
            long start = System.nanoTime();
            ReadBack.compareByIds(store.table(), stream, messages(), progress);
            readSeconds = (System.nanoTime() - start) / 1e9;
            store.numbers().printAndCompare(store.table(), tables.configuration(session.name()), false);
        }
    }

    void query() {
        System.out.println("   " + session.name() + ":");
        try (JNITboMessageTable table = tables.open(session.name(), JNITboMessageTable.MODE_READ)) {
            new QueryRun(stream, messages(), new Questions(tables.configuration(session.name())), table)
                    .printAndCompare();
        }
    }

    void lookUp() {
        System.out.println("   " + session.name() + ":");
        try (JNITboMessageTable table = tables.open(session.name(), JNITboMessageTable.MODE_READ)) {
            new Lookups(stream, messages()).printAndCompare(table);
        }
    }
}
