package com.corvane.kestrova.engine.tabulo.store;

import java.util.Arrays;
import java.util.Objects;

/** Bytes that are stored as they are, or a text, or neither. */
final class Piece {
    private byte[] bytes;
    private int offset;
    private int length;
    private String text;

    void clear() {
        bytes = null;
        text = null;
    }

    void set(byte[] given, int from, int count) {
        Objects.checkFromIndexSize(from, count, given.length);
        bytes = given;
        offset = from;
        length = count;
        text = null;
    }

    void set(String given) {
        bytes = null;
        text = Objects.requireNonNull(given, "text");
    }

    long mostBytes() {
        return bytes != null ? length : ModifiedUtf8.most(text);
    }

    boolean isAbsent() {
        return bytes == null && text == null;
    }

    /** Puts what is there; gives the place behind it. */
    int put(byte[] out, int at) {
        if (bytes == null) {
            return ModifiedUtf8.put(text, out, at);
        }
        System.arraycopy(bytes, offset, out, at, length);
        return at + length;
    }

    /** What is stored, without its NUL; empty when nothing is. */
    byte[] copy() {
        if (isAbsent()) {
            return new byte[0];
        }
        byte[] out = new byte[Math.toIntExact(mostBytes())];
        return Arrays.copyOf(out, put(out, 0));
    }
}
