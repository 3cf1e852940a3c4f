package com.corvane.kestrova.engine.tabulo.store;

import com.corvane.kestrova.engine.tabulo.jni.JNITboException;
import com.corvane.kestrova.engine.tabulo.jni.JNITboMessageTable;
import java.time.Instant;
import java.util.Objects;

/**
 * Makes the bytes of whole messages as they stand in a table's file, in one array that is used again and again: a
 * message then goes to the library in one piece instead of in up to 23 arguments, and no object is made for it.
 *
 * <p>{@link MessageStore#append()} uses one by itself. On its own it is for engines that number their messages
 * themselves, over a {@link JNITboMessageTable} with the same fields:
 *
 * <pre>
 * encoder.begin(uniformId, connMsgId).seqNum(7).time(now).type("D").text("Symbol", "ACME").wire(bytes).storeIn(table);
 * </pre>
 *
 * <p>One thread at a time uses an encoder. Texts become modified UTF-8, as they do in the overload of
 * {@code writeMessage} that takes strings; byte arrays are stored as they are.
 */
public final class FrameEncoder {
    private final MessageParts parts;
    private final FrameBuffer buffer = new FrameBuffer();

    /**
     * Makes an encoder for the tables with a layout.
     *
     * @param layout the fields and the unit of time
     */
    public FrameEncoder(Layout layout) {
        parts = new MessageParts(Objects.requireNonNull(layout, "layout"));
    }

    /**
     * Begins a message; all of the one before is forgotten.
     *
     * @param uniformId its uniform message id, above those of all messages before it
     * @param connMsgId its connection message id, which tells its class
     * @return this encoder
     */
    public FrameEncoder begin(int uniformId, int connMsgId) {
        parts.clear();
        parts.uniformId = uniformId;
        parts.connMsgId = connMsgId;
        return this;
    }

    /**
     * Sets the MsgSeqNum.
     *
     * @param number the number; 0, as at the beginning, for none, negative for a message that waits to be sent
     * @return this encoder
     */
    public FrameEncoder seqNum(int number) {
        parts.seqNum = number;
        return this;
    }

    /**
     * Sets the number under which the message had waited to be sent.
     *
     * @param number the number, which is negative; 0, as at the beginning, for none
     * @return this encoder
     */
    public FrameEncoder prevSeqNum(int number) {
        parts.prevSeqNum = number;
        return this;
    }

    /**
     * Sets the message's time; without one it is the time of its encoding.
     *
     * @param time the time; a fraction that is finer than the layout's unit is dropped
     * @return this encoder
     * @throws IllegalArgumentException when the time lies beyond what the unit can count
     */
    public FrameEncoder time(Instant time) {
        parts.setTime(time);
        return this;
    }

    /**
     * Sets the message's time as the number that is stored.
     *
     * @param stamp the time in the layout's unit
     * @return this encoder
     */
    public FrameEncoder timestamp(long stamp) {
        parts.setTimestamp(stamp);
        return this;
    }

    /**
     * Sets the MsgType, which a message must have.
     *
     * @param msgType one to five ASCII characters
     * @return this encoder
     * @throws IllegalArgumentException for any other text
     */
    public FrameEncoder type(String msgType) {
        parts.setType(msgType);
        return this;
    }

    /**
     * Marks the message as a possible duplicate, or not, as at the beginning.
     *
     * @param flag whether it is one
     * @return this encoder
     */
    public FrameEncoder possDup(boolean flag) {
        parts.possDup = flag;
        return this;
    }

    /**
     * Marks the message as out of sequence, or not, as at the beginning.
     *
     * @param flag whether it is
     * @return this encoder
     */
    public FrameEncoder outOfSequence(boolean flag) {
        parts.outOfSequence = flag;
        return this;
    }

    /**
     * Sets the first text that every table has, for what the engine likes; queries find it.
     *
     * @param value the text, or null for none
     * @return this encoder
     */
    public FrameEncoder text0(String value) {
        parts.text0 = value;
        return this;
    }

    /**
     * Sets the second text that every table has, for what the engine likes; queries find it.
     *
     * @param value the text, or null for none
     * @return this encoder
     */
    public FrameEncoder text1(String value) {
        parts.text1 = value;
        return this;
    }

    /**
     * Sets an indexed text.
     *
     * @param name its name in the layout
     * @param value the text, or null for none
     * @return this encoder
     * @throws IllegalArgumentException when the layout has no such text
     */
    public FrameEncoder text(String name, String value) {
        parts.setText(name, value);
        return this;
    }

    /**
     * Sets an indexed number.
     *
     * @param name its name in the layout
     * @param value the number; one that is not a number is found by no query
     * @return this encoder
     * @throws IllegalArgumentException when the layout has no such number
     */
    public FrameEncoder number(String name, double value) {
        parts.setNumber(name, MessageParts.DOUBLE, Double.doubleToRawLongBits(value));
        return this;
    }

    /**
     * Sets an indexed number that is whole, exactly.
     *
     * @param name its name in the layout
     * @param value the number
     * @return this encoder
     * @throws IllegalArgumentException when the layout has no such number
     */
    public FrameEncoder number(String name, long value) {
        parts.setNumber(name, MessageParts.WHOLE, value);
        return this;
    }

    /**
     * Sets the wire message.
     *
     * @param bytes holds it; not copied before the message is encoded
     * @param offset where it begins
     * @param length how many bytes it has
     * @return this encoder
     * @throws IndexOutOfBoundsException when it does not lie in the array
     */
    public FrameEncoder wire(byte[] bytes, int offset, int length) {
        parts.wire.set(bytes, offset, length);
        return this;
    }

    /**
     * Sets the wire message as a text. For a message that is not plain ASCII use its bytes.
     *
     * @param text the message
     * @return this encoder
     */
    public FrameEncoder wire(String text) {
        parts.wire.set(text);
        return this;
    }

    /**
     * Sets the message's fields without its metadata, which are stored beside the wire message.
     *
     * @param bytes holds them; not copied before the message is encoded
     * @param offset where they begin
     * @param length how many bytes they have
     * @return this encoder
     * @throws IndexOutOfBoundsException when they do not lie in the array
     */
    public FrameEncoder nonMetadata(byte[] bytes, int offset, int length) {
        parts.nonMetadata.set(bytes, offset, length);
        return this;
    }

    /**
     * Encodes the message.
     *
     * @return the number of bytes at the beginning of {@link #frame()} that are its frame
     * @throws IllegalStateException when it has no MsgType
     * @throws IllegalArgumentException when it is larger than an array can be
     */
    public int encode() {
        return buffer.encode(parts);
    }

    /**
     * The array that holds the frame that was encoded last.
     *
     * @return the encoder's own array; the next message may be in another one
     */
    public byte[] frame() {
        return buffer.bytes();
    }

    /**
     * Encodes the message and stores it. What is said of failures at the overloads of {@code writeMessage} holds here
     * too.
     *
     * @param table a table with the fields of this encoder's layout, open for writing
     * @throws IllegalStateException when the message has no MsgType
     * @throws IllegalArgumentException when it is larger than an array can be
     * @throws JNITboException as {@link JNITboMessageTable#writeMessage(byte[], int, int)} does
     */
    public void storeIn(JNITboMessageTable table) {
        int length = encode();  // which may make another array
        table.writeMessage(buffer.bytes(), 0, length);
    }
}
