package com.corvane.kestrova.engine.tabulo.store;

import com.corvane.kestrova.engine.tabulo.jni.JNITboErrorCodes;
import com.corvane.kestrova.engine.tabulo.jni.JNITboException;
import com.corvane.kestrova.engine.tabulo.jni.JNITboMessageTable;

/**
 * A table of a watch. The watcher tells which message comes next by its id and its wire message; a query that goes
 * along has the whole of it.
 */
final class FollowedTable implements AutoCloseable {
    private final MessageStore store;
    private final JNITboMessageTable table;
    private final int first;
    private MessageCursor messages;

    FollowedTable(MessageStore store, int first) {
        this.store = store;
        this.first = Math.max(1, first);
        try {
            table = JNITboMessageTable.open(store.reader().configuration(), JNITboMessageTable.MODE_READ);
        } catch (JNITboException refused) {
            throw TabuloException.of(refused, store.path());
        }
    }

    MessageStore store() {
        return store;
    }

    JNITboMessageTable table() {
        return table;
    }

    /** The next message with an id, which the watcher has seen. */
    StoredMessage message(int uniformId) {
        if (messages == null) {
            messages = MessageCursor.open(table, store.reader(), Query.all().uniformIdsFrom(first));
        }
        StoredMessage message = find(uniformId);
        if (message == null) {
            // The table was emptied meanwhile: the watcher is at its beginning again.
            messages.close();
            messages = MessageCursor.open(table, store.reader(), Query.all());
            message = find(uniformId);
        }
        if (message == null) {
            throw TabuloException.of(JNITboErrorCodes.NO_DATA_ERROR, "Internal error: no data", store.path(),
                    "the message with the uniform id " + uniformId + " is not there any more");
        }
        return message;
    }

    private StoredMessage find(int uniformId) {
        while (messages.hasNextSoFar()) {
            StoredMessage message = messages.next();
            if (message.uniformId() == uniformId) {
                return message;
            }
        }
        return null;
    }

    @Override
    public void close() {
        table.close();
    }
}
