package com.corvane.kestrova.examples;

import com.corvane.kestrova.engine.tabulo.jni.JNITboMessageTable;

/** Where a FIX session's messages go: a message table, and the numbers beside it. */
final class SessionStore implements AutoCloseable {
    private final MessageStream stream;
    private final JNITboMessageTable table;
    private final SessionNumbers numbers;

    SessionStore(TableDirectory tables, String name, MessageStream stream, int mode) {
        this.stream = stream;
        table = tables.open(name, mode);
        try {
            numbers = new SessionNumbers(tables, name, mode);
        } catch (RuntimeException failure) {
            table.close();
            throw failure;
        }
    }

    /** Stores the message at a place of the stream, then its number. */
    void store(int index) {
        stream.store(table, index);
        numbers.take(stream.message(index));
    }

    JNITboMessageTable table() {
        return table;
    }

    SessionNumbers numbers() {
        return numbers;
    }

    @Override
    public void close() {
        try {
            numbers.close();
        } finally {
            table.close();
        }
    }
}
