package com.corvane.kestrova.engine.tabulo.store;

import com.corvane.kestrova.engine.tabulo.jni.JNITboException;
import com.corvane.kestrova.engine.tabulo.jni.JNITboMessageTable;
import com.corvane.kestrova.engine.tabulo.jni.JNITboMessageTableIterator;
import java.util.Iterator;
import java.util.NoSuchElementException;
import java.util.Spliterator;
import java.util.Spliterators;
import java.util.stream.Stream;
import java.util.stream.StreamSupport;

/** Steps through the messages of a query, and lets go of it at its end. */
final class MessageCursor implements Iterator<StoredMessage>, AutoCloseable {
    private final MessageReader reader;
    private final JNITboMessageTableIterator messages;
    private StoredMessage next;
    private boolean isAtEnd;

    private MessageCursor(MessageReader reader, JNITboMessageTableIterator messages) {
        this.reader = reader;
        this.messages = messages;
    }

    static MessageCursor open(JNITboMessageTable table, MessageReader reader, Query query) {
        try {
            return new MessageCursor(reader, table.getMessages(
                    query.conditions(reader.configuration(), reader.layout().timeUnit())));
        } catch (JNITboException failed) {
            throw TabuloException.of(failed, reader.file());
        }
    }

    @Override
    public boolean hasNext() {
        if (!hasNextSoFar() && !isAtEnd) {
            close();
        }
        return next != null;
    }

    /** As hasNext, but where there is no further message this can be asked again: one may be stored meanwhile. */
    boolean hasNextSoFar() {
        if (next == null && !isAtEnd) {
            try {
                if (messages.next()) {
                    next = reader.read(messages);
                }
            } catch (JNITboException failed) {
                isAtEnd = true;
                throw TabuloException.of(failed, reader.file());
            }
        }
        return next != null;
    }

    @Override
    public StoredMessage next() {
        if (!hasNext()) {
            throw new NoSuchElementException("the query has no further message");
        }
        StoredMessage message = next;
        next = null;
        return message;
    }

    @Override
    public void close() {
        isAtEnd = true;
        messages.close();
    }

    /** The rest of the messages; closing it, or coming to its end, closes this. */
    Stream<StoredMessage> stream() {
        Spliterator<StoredMessage> rest = Spliterators.spliteratorUnknownSize(this,
                Spliterator.ORDERED | Spliterator.NONNULL | Spliterator.IMMUTABLE);
        return StreamSupport.stream(rest, false).onClose(this::close);
    }
}
