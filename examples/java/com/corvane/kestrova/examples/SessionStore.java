package com.corvane.kestrova.examples;

import com.corvane.kestrova.engine.tabulo.store.Direction;
import com.corvane.kestrova.engine.tabulo.store.MessageStore;
import com.corvane.kestrova.engine.tabulo.store.Reconciliation;
import com.corvane.kestrova.engine.tabulo.store.SessionNumbers;
import com.corvane.kestrova.engine.tabulo.store.UniformIds;

/** Where a FIX session's messages go: a message table, and the numbers of the last messages beside it. */
final class SessionStore implements AutoCloseable {
    private final MessageStream stream;
    private final MessageStore store;
    private final SessionNumbers numbers;

    private SessionStore(MessageStream stream, MessageStore store, SessionNumbers numbers) {
        this.stream = stream;
        this.store = store;
        this.numbers = numbers;
    }

    /** Opens a session to store its messages, counted together with those of others. */
    static SessionStore openWriter(TableDirectory tables, String name, MessageStream stream, UniformIds ids) {
        return open(tables, name, stream, tables.openWriter(name).useIds(ids), true);
    }

    static SessionStore openReader(TableDirectory tables, String name, MessageStream stream) {
        return open(tables, name, stream, tables.openReader(name), false);
    }

    private static SessionStore open(TableDirectory tables, String name, MessageStream stream, MessageStore store,
            boolean toWrite) {
        try {
            return new SessionStore(stream, store, tables.openNumbers(name, toWrite));
        } catch (RuntimeException failure) {
            store.close();
            throw failure;
        }
    }

    /** Stores the message at a place of the stream, then its number. */
    void store(int index) {
        stream.store(store, index);
        RecordedMessage message = stream.message(index);
        if (message.isCounted()) {
            numbers.keep(message.isSent() ? Direction.SENT : Direction.RECEIVED, message.seqNum);
        }
    }

    MessageStore messages() {
        return store;
    }

    /**
     * Compares the numbers with the last messages, and prints what there is to say. After a kill one of them may be
     * behind: when the message was stored and its number was not kept.
     *
     * @return how many of the two numbers are behind
     */
    int printAndCompareNumbers(boolean afterKill) {
        Reconciliation found = store.reconcile(numbers);
        return compare("last sent", found.sent(), afterKill) + compare("last received", found.received(), afterKill);
    }

    private static int compare(String what, Reconciliation.Side side, boolean afterKill) {
        System.out.printf("     %-26s %,d, %s%n", what, side.last(), side.reason());
        return switch (side.ahead()) {
            case NEITHER -> 0;
            case MESSAGES -> {
                if (!afterKill) {
                    throw new DemoFailure("the number of the message " + what + " was not kept");
                }
                yield 1;
            }
            case NUMBERS -> throw new DemoFailure("the message " + what + " is not there");
        };
    }

    @Override
    public void close() {
        try {
            numbers.close();
        } finally {
            store.close();
        }
    }
}
