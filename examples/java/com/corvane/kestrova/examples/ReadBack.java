package com.corvane.kestrova.examples;

import com.corvane.kestrova.engine.tabulo.store.MessageStore;
import com.corvane.kestrova.engine.tabulo.store.StoredMessage;

/** Reads a table and compares every message with what was stored, byte for byte and in the same order. */
final class ReadBack {
    private ReadBack() {
    }

    /** Reads all messages of a table; there must be exactly the first ones of the stream. */
    static void compare(MessageStore store, MessageStream stream, int count, Progress progress) {
        int index = 0;
        for (StoredMessage message : store) {
            if (index >= count || !stream.isAt(message, index)) {
                throw differs(stream, index);
            }
            progress.update(++index);
        }
        if (index != count) {
            throw differs(stream, index);
        }
    }

    private static DemoFailure differs(MessageStream stream, int index) {
        return new DemoFailure("the message with the uniform message id " + stream.uniformId(index)
                + " is missing, differs or should not be there");
    }
}
