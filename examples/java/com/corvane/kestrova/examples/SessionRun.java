package com.corvane.kestrova.examples;

import com.corvane.kestrova.engine.tabulo.jni.JNITboMessageTable;

/** Stores one recorded session in its table, and reads it back after the table was closed and opened again. */
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
        try (JNITboMessageTable table = tables.open(session.name(), JNITboMessageTable.MODE_WRITE)) {
            long start = System.nanoTime();
            for (int index = 0; index < messages(); ++index) {
                stream.store(table, index);
                progress.update(index + 1);
            }
            storeSeconds = (System.nanoTime() - start) / 1e9;
        }
    }

    void readBack() {
        Progress progress = new Progress("reading " + session.name(), messages());
        try (JNITboMessageTable table = tables.open(session.name(), JNITboMessageTable.MODE_READ)) {
            long start = System.nanoTime();
            ReadBack.compare(table, stream, messages(), progress);
            readSeconds = (System.nanoTime() - start) / 1e9;
        }
    }

    void lookUp() {
        System.out.println("   " + session.name() + ":");
        try (JNITboMessageTable table = tables.open(session.name(), JNITboMessageTable.MODE_READ)) {
            new Lookups(stream, messages()).printAndCompare(table);
        }
    }
}
