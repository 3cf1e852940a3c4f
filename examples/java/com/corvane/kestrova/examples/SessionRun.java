package com.corvane.kestrova.examples;

import com.corvane.kestrova.engine.tabulo.store.MessageStore;
import com.corvane.kestrova.engine.tabulo.store.UniformIds;

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

    double storeSeconds() {
        return storeSeconds;
    }

    double readSeconds() {
        return readSeconds;
    }

    void store(UniformIds ids) {
        Progress progress = new Progress("storing " + session.name(), messages());
        try (SessionStore store = SessionStore.openWriter(tables, session.name(), stream, ids)) {
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
        try (SessionStore store = SessionStore.openReader(tables, session.name(), stream)) {
            long start = System.nanoTime();
            ReadBack.compare(store.messages(), stream, messages(), progress);
            readSeconds = (System.nanoTime() - start) / 1e9;
            store.printAndCompareNumbers(false);
        }
    }

    void query() {
        System.out.println("   " + session.name() + ":");
        try (MessageStore store = tables.openReader(session.name())) {
            new QueryRun(stream, messages(), store).printAndCompare();
        }
    }

    void lookUp() {
        System.out.println("   " + session.name() + ":");
        try (MessageStore store = tables.openReader(session.name())) {
            new Lookups(stream, messages()).printAndCompare(store);
        }
    }
}
