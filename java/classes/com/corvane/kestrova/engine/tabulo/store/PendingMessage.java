package com.corvane.kestrova.engine.tabulo.store;

/**
 * A message that is stored and waits to be sent, see {@link Append#pending()} and {@link MessageStore#pending()}.
 * Messages are sent in the order in which they were stored; sending one stores it again, with its MsgSeqNum. Objects
 * are immutable.
 */
public final class PendingMessage {
    private final MessageStore store;
    private final StoredMessage message;

    PendingMessage(MessageStore store, StoredMessage message) {
        this.store = store;
        this.message = message;
    }

    /**
     * The number under which the message waits.
     *
     * @return the number, -1 or below
     */
    public int number() {
        return message.seqNum();
    }

    /**
     * The message as it was stored to wait.
     *
     * @return the message
     */
    public StoredMessage message() {
        return message;
    }

    /**
     * Begins the sending of the message: everything but its time and its MsgSeqNum is as it was stored, and may be
     * given anew, as the wire message usually is. {@link Append#store()} then stores the message as sent, and it waits
     * no more.
     *
     * @return the message, to be given its MsgSeqNum and stored
     * @throws IllegalStateException when it was sent before, or another message waits in front of it
     * @throws TabuloException as {@link MessageStore#pending()} does
     */
    public Append send() {
        return store.send(message);
    }

    /**
     * Says which message waits.
     *
     * @return its number and the message on one line
     */
    @Override
    public String toString() {
        return "waiting as " + number() + ": " + message;
    }
}
