package com.corvane.kestrova.engine.tabulo.store;

import com.corvane.kestrova.engine.tabulo.MessageClass;
import java.time.Instant;
import java.util.Objects;

/**
 * A message that is being put together to be stored, see {@link MessageStore#append()}: say which way it goes and its
 * type, then what else there is, and {@link #store()} it.
 *
 * <p>One thread uses such an object, for one message: behind {@link #store()} or {@link #pending()} the store gives it
 * to the next one. Texts become modified UTF-8; byte arrays are stored as they are and must not change before the
 * message is stored.
 */
public final class Append {
    private final MessageStore store;
    private final StoreWriter writer;
    private final MessageParts parts;
    private final FrameBuffer frame = new FrameBuffer();
    private boolean isDone;
    private Direction direction;
    private MessageClass messageClass;
    private StoreWriter.Attempt failedAttempt;

    Append(MessageStore store, StoreWriter writer) {
        this.store = store;
        this.writer = writer;
        parts = new MessageParts(store.layout());
    }

    /** Makes it ready for a message. */
    Append begin() {
        parts.clear();
        isDone = false;
        direction = null;
        messageClass = null;
        failedAttempt = null;
        return this;
    }

    /** Makes it ready for the sending of a message that has waited. */
    Append beginSending(StoredMessage waiting) {
        begin();
        parts.setContent(waiting);
        parts.prevSeqNum = waiting.seqNum();
        messageClass = MessageClass.APP_TO;
        return this;
    }

    /**
     * The message goes to the counterparty. Its class is ADMIN_TO for the MsgTypes 0 to 5 and A, FIX's session
     * messages, and APP_TO for all others.
     *
     * @return this message
     */
    public Append sent() {
        return going(Direction.SENT, null);
    }

    /**
     * The message came from the counterparty. Its class is ADMIN_FROM for the MsgTypes 0 to 5 and A, and APP_FROM for
     * all others.
     *
     * @return this message
     */
    public Append received() {
        return going(Direction.RECEIVED, null);
    }

    /**
     * The message is sent again, as after a resend request. Its class is RESENT, and it counts in no sequence.
     *
     * @return this message
     */
    public Append resent() {
        return going(null, MessageClass.RESENT);
    }

    /**
     * The message's class, where neither the direction nor the type tells it.
     *
     * @param value the class
     * @return this message
     */
    public Append messageClass(MessageClass value) {
        return going(null, Objects.requireNonNull(value, "value"));
    }

    /**
     * Sets the MsgSeqNum.
     *
     * @param number the number, above 0; without one the message has 0, for none
     * @return this message
     * @throws IllegalArgumentException when the number is not above 0: messages that wait are numbered by
     *         {@link #pending()}
     */
    public Append seqNum(int number) {
        if (number <= 0) {
            throw new IllegalArgumentException("a MsgSeqNum is above 0, not " + number);
        }
        open().seqNum = number;
        return this;
    }

    /**
     * Sets the message's time; without one it is the time of its storing.
     *
     * @param time the time; a fraction that is finer than the table's unit is dropped
     * @return this message
     * @throws IllegalArgumentException when the time lies beyond what the unit can count
     */
    public Append time(Instant time) {
        open().setTime(time);
        return this;
    }

    /**
     * Sets the message's time as the number that is stored.
     *
     * @param stamp the time in the table's unit
     * @return this message
     */
    public Append timestamp(long stamp) {
        open().setTimestamp(stamp);
        return this;
    }

    /**
     * Sets the MsgType, which a message must have.
     *
     * @param msgType one to five ASCII characters
     * @return this message
     * @throws IllegalArgumentException for any other text
     */
    public Append type(String msgType) {
        open().setType(msgType);
        return this;
    }

    /**
     * Marks the message as a possible duplicate, or not, as at the beginning.
     *
     * @param flag whether it is one
     * @return this message
     */
    public Append possDup(boolean flag) {
        open().possDup = flag;
        return this;
    }

    /**
     * Marks the message as out of sequence, or not, as at the beginning; one that is has no part in the counting.
     *
     * @param flag whether it is
     * @return this message
     */
    public Append outOfSequence(boolean flag) {
        open().outOfSequence = flag;
        return this;
    }

    /**
     * Sets the first text that every table has, for what the engine likes.
     *
     * @param value the text, or null for none
     * @return this message
     */
    public Append text0(String value) {
        open().text0 = value;
        return this;
    }

    /**
     * Sets the second text that every table has, for what the engine likes.
     *
     * @param value the text, or null for none
     * @return this message
     */
    public Append text1(String value) {
        open().text1 = value;
        return this;
    }

    /**
     * Sets an indexed text.
     *
     * @param name its name in the layout
     * @param value the text, or null for none
     * @return this message
     * @throws IllegalArgumentException when the layout has no such text
     */
    public Append text(String name, String value) {
        open().setText(name, value);
        return this;
    }

    /**
     * Sets an indexed number.
     *
     * @param name its name in the layout
     * @param value the number; one that is not a number is as absent
     * @return this message
     * @throws IllegalArgumentException when the layout has no such number
     */
    public Append number(String name, double value) {
        open().setNumber(name, MessageParts.DOUBLE, Double.doubleToRawLongBits(value));
        return this;
    }

    /**
     * Sets an indexed number that is whole, exactly.
     *
     * @param name its name in the layout
     * @param value the number
     * @return this message
     * @throws IllegalArgumentException when the layout has no such number
     */
    public Append number(String name, long value) {
        open().setNumber(name, MessageParts.WHOLE, value);
        return this;
    }

    /**
     * Sets the wire message.
     *
     * @param bytes the message, not copied before it is stored
     * @return this message
     */
    public Append wire(byte[] bytes) {
        return wire(bytes, 0, bytes.length);
    }

    /**
     * Sets the wire message.
     *
     * @param bytes holds the message, not copied before it is stored
     * @param offset where it begins
     * @param length how many bytes it has
     * @return this message
     * @throws IndexOutOfBoundsException when it does not lie in the array
     */
    public Append wire(byte[] bytes, int offset, int length) {
        open().wire.set(bytes, offset, length);
        return this;
    }

    /**
     * Sets the wire message as a text. For a message that is not plain ASCII use its bytes.
     *
     * @param text the message
     * @return this message
     */
    public Append wire(String text) {
        open().wire.set(text);
        return this;
    }

    /**
     * Sets the message's fields without its metadata, which are stored beside the wire message.
     *
     * @param bytes the fields, not copied before they are stored
     * @return this message
     */
    public Append nonMetadata(byte[] bytes) {
        open().nonMetadata.set(bytes, 0, bytes.length);
        return this;
    }

    /**
     * Stores the message. When this returns, the operating system has it: it survives the end of the process, and under
     * {@link SyncPolicy#always()} the loss of power.
     *
     * <p>When the file has failed, as on a full disk, the table is closed, opened again, and asked whether the message
     * is there; if it is not, it is stored again, once. When that fails, too, this throws, and the message may be
     * stored later by calling this again on the same object: whatever had happened before, it is stored once. All else
     * that is thrown leaves the table as it was and the object as it is.
     *
     * @return the connection message id that the message was given
     * @throws IllegalStateException when the message has no type or no direction, was stored before, or when all ids of
     *         its class are used
     * @throws IllegalArgumentException when the message is larger than an array can be
     * @throws TabuloFullException when the disk, a quota or the file-size limit is exhausted
     * @throws TabuloException {@code FILE_SEEK_ERROR}, {@code FILE_WRITE_ERROR}, {@code FILE_FLUSH_ERROR} when the file
     *         did not take it, with what prevented the table's opening as a suppressed exception of the cause;
     *         {@code OUT_OF_MEMORY_ERROR}, {@code STREAM_EXTENSION_ERROR} for a message near 2 GiB;
     *         {@code TABLE_CLOSED_ERROR} when the store is closed
     */
    public int store() {
        MessageParts message = open();
        if (message.type == null) {
            throw new IllegalStateException("the message has no MsgType");
        }
        int id = writer.store(message, theClass(), frame, this);
        isDone = true;
        store.takeBack(this);
        return id;
    }

    /**
     * Stores the message as one that waits to be sent, under the next number of those: -1, -2 and so on. Its class is
     * APP_TO, whatever was said of it. What is said of failures at {@link #store()} holds here too.
     *
     * @return the message that waits, which can be sent
     * @throws IllegalStateException when the message has no type, was stored before, or has a sequence number
     * @throws TabuloException as {@link #store()} does
     */
    public PendingMessage pending() {
        MessageParts message = open();
        if (message.type == null || message.seqNum > 0 || message.prevSeqNum != 0) {
            throw new IllegalStateException("a message that is to wait has a MsgType and no sequence number");
        }
        writer.storePending(message, frame, this);
        PendingMessage pending = new PendingMessage(store, message.message(store.name()));
        isDone = true;
        store.takeBack(this);
        return pending;
    }

    StoreWriter.Attempt failedAttempt() {
        return failedAttempt;
    }

    void setFailedAttempt(StoreWriter.Attempt attempt) {
        failedAttempt = attempt;
    }

    private Append going(Direction way, MessageClass given) {
        open();
        if (parts.prevSeqNum != 0) {
            throw new IllegalStateException("a message that has waited is sent");
        }
        direction = way;
        messageClass = given;
        return this;
    }

    private MessageClass theClass() {
        if (messageClass != null) {
            return messageClass;
        }
        if (direction == null) {
            throw new IllegalStateException("say whether the message is sent(), received() or resent()");
        }
        return direction.classOf(parts.type);
    }

    private MessageParts open() {
        if (isDone) {
            throw new IllegalStateException("the message is stored: begin the next one with append()");
        }
        return parts;
    }
}
