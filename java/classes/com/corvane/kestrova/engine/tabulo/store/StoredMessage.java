package com.corvane.kestrova.engine.tabulo.store;

import com.corvane.kestrova.engine.tabulo.MessageClass;
import java.nio.ByteBuffer;
import java.nio.charset.StandardCharsets;
import java.time.Instant;
import java.util.Arrays;
import java.util.Collections;
import java.util.LinkedHashMap;
import java.util.Map;
import java.util.Optional;

/**
 * A message as it stands in a table. Objects are immutable and belong to whoever has them: they outlive the table.
 *
 * @param table the table's name
 * @param uniformId the uniform message id, which counts through all tables of an engine
 * @param id the connection message id, which tells the class
 * @param messageClass the message's class; <b>null</b> when the id is negative, which no message of this package has
 * @param seqNum the MsgSeqNum; negative for a message that waits to be sent, 0 for none
 * @param prevSeqNum the number under which the message had waited to be sent; 0 when it had not
 * @param time the message's time, as exact as the table's unit
 * @param type the MsgType
 * @param possDup whether the message is a possible duplicate
 * @param outOfSequence whether the message was out of sequence
 * @param text0 the first text that every table has
 * @param text1 the second text that every table has
 * @param texts the indexed texts that the message has, by their names
 * @param numbers the indexed numbers that the message has, by their names: each a {@link Double}, but for a whole
 *        number of 2<sup>53</sup> and more to either side, where doubles have gaps, a {@link Long}
 * @param wire the wire message; empty also when none was stored
 * @param nonMetadata the message's fields without its metadata; empty also when none were stored
 */
public record StoredMessage(String table, int uniformId, int id, MessageClass messageClass, int seqNum, int prevSeqNum,
        Instant time, String type, boolean possDup, boolean outOfSequence, Optional<String> text0,
        Optional<String> text1, Map<String, String> texts, Map<String, Number> numbers, byte[] wire,
        byte[] nonMetadata) {

    private static final double EXACT = 1L << 53;

    /**
     * Copies the maps and the arrays.
     *
     * @param table the table's name
     * @param uniformId the uniform message id
     * @param id the connection message id
     * @param messageClass the message's class, or null
     * @param seqNum the MsgSeqNum
     * @param prevSeqNum the number under which the message had waited
     * @param time the message's time
     * @param type the MsgType
     * @param possDup whether the message is a possible duplicate
     * @param outOfSequence whether the message was out of sequence
     * @param text0 the first text that every table has
     * @param text1 the second text that every table has
     * @param texts the indexed texts
     * @param numbers the indexed numbers
     * @param wire the wire message
     * @param nonMetadata the message's fields without its metadata
     */
    public StoredMessage {
        texts = Collections.unmodifiableMap(new LinkedHashMap<>(texts));
        numbers = Collections.unmodifiableMap(new LinkedHashMap<>(numbers));
        wire = wire.clone();
        nonMetadata = nonMetadata.clone();
    }

    /**
     * The wire message.
     *
     * @return a copy; {@link #wireBuffer()} copies nothing
     */
    @Override
    public byte[] wire() {
        return wire.clone();
    }

    /**
     * The message's fields without its metadata.
     *
     * @return a copy
     */
    @Override
    public byte[] nonMetadata() {
        return nonMetadata.clone();
    }

    /**
     * The wire message, without copying it.
     *
     * @return a new buffer that cannot be written
     */
    public ByteBuffer wireBuffer() {
        return ByteBuffer.wrap(wire).asReadOnlyBuffer();
    }

    /**
     * The wire message as text.
     *
     * @return one character for each byte
     */
    public String wireText() {
        return new String(wire, StandardCharsets.ISO_8859_1);
    }

    /**
     * An indexed text.
     *
     * @param name its name in the layout
     * @return the text; empty when the message has none, or the table no such text
     */
    public Optional<String> text(String name) {
        return Optional.ofNullable(texts.get(name));
    }

    /**
     * An indexed number.
     *
     * @param name its name in the layout
     * @return the number; empty when the message has none, or the table no such number
     */
    public Optional<Number> number(String name) {
        return Optional.ofNullable(numbers.get(name));
    }

    /**
     * Compares all parts, the arrays by what is in them.
     *
     * @param other anything
     * @return whether it is a message with the same parts
     */
    @Override
    public boolean equals(Object other) {
        return other instanceof StoredMessage that && uniformId == that.uniformId && id == that.id
                && seqNum == that.seqNum && prevSeqNum == that.prevSeqNum && possDup == that.possDup
                && outOfSequence == that.outOfSequence && table.equals(that.table) && time.equals(that.time)
                && type.equals(that.type) && text0.equals(that.text0) && text1.equals(that.text1)
                && texts.equals(that.texts) && numbers.equals(that.numbers) && Arrays.equals(wire, that.wire)
                && Arrays.equals(nonMetadata, that.nonMetadata);
    }

    /**
     * A hash that equal messages share.
     *
     * @return the hash
     */
    @Override
    public int hashCode() {
        return 31 * (31 * uniformId + id) + Arrays.hashCode(wire);
    }

    /**
     * The message on one line.
     *
     * @return its ids, numbers, time and type, and the wire message with "|" for what does not print
     */
    @Override
    public String toString() {
        return table + " " + uniformId + " " + messageClass + " id " + id + " seqNum " + seqNum + " " + time + " type "
                + type + " " + wireText().replaceAll("\\p{Cntrl}", "|");
    }

    static <T> void put(Map<String, T> map, String name, T value) {
        if (value != null) {
            map.put(name, value);
        }
    }

    /** A stored number by both ways of reading it; null when it is absent or not a number. */
    static Number number(double number, long whole) {
        if (Double.isNaN(number)) {
            return null;
        }
        if (Math.abs(number) >= EXACT && (double) whole == number) {
            return Long.valueOf(whole);
        }
        return Double.valueOf(number);
    }
}
