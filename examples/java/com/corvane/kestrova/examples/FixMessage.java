package com.corvane.kestrova.examples;

import java.io.ByteArrayOutputStream;
import java.nio.charset.StandardCharsets;
import java.util.ArrayList;
import java.util.List;
import java.util.Set;

/** Finds the fields of a FIX message. A data field may hold any byte, the delimiter included. */
final class FixMessage {
    private static final byte DELIMITER = 1;

    private final byte[] bytes;
    private final List<Field> fields = new ArrayList<>();

    /** A field's place: it starts with its tag, and its end is that of its value, before the delimiter. */
    private record Field(int tag, int start, int valueStart, int end) {
    }

    FixMessage(byte[] bytes) {
        this.bytes = bytes;
        Field previous = null;
        for (int at = 0; at < bytes.length; at = previous.end() + 1) {
            previous = parseField(at, previous);
            fields.add(previous);
        }
    }

    /** The value of the first field with a tag, as characters of one byte each; null when there is none. */
    String text(int tag) {
        Field field = find(tag);
        return field == null ? null : value(field);
    }

    /** The value of a field that must be there as a whole number. */
    int number(int tag) {
        String value = text(tag);
        if (value == null) {
            throw new IllegalArgumentException("no field " + tag + " in " + this);
        }
        return Integer.parseInt(value);
    }

    /** The value of a field as a decimal number; null when there is none, or when it is no number as FIX writes it. */
    Double decimal(int tag) {
        String value = text(tag);
        return value == null || !value.matches("-?[0-9]+(\\.[0-9]*)?") ? null : Double.valueOf(value);
    }

    boolean isSet(int flagTag) {
        return "Y".equals(text(flagTag));
    }

    /** The message without some fields; all others are as they were, each with its delimiter. */
    byte[] without(Set<Integer> tags) {
        ByteArrayOutputStream rest = new ByteArrayOutputStream(bytes.length);
        for (Field field : fields) {
            if (!tags.contains(field.tag())) {
                rest.write(bytes, field.start(), field.end() + 1 - field.start());
            }
        }
        return rest.toByteArray();
    }

    @Override
    public String toString() {
        return new String(bytes, StandardCharsets.ISO_8859_1).replace((char) DELIMITER, '|');
    }

    private Field parseField(int start, Field previous) {
        int equals = indexOf((byte) '=', start);
        int tag = Integer.parseInt(new String(bytes, start, equals - start, StandardCharsets.US_ASCII));
        int end = indexOf(DELIMITER, equals);
        if (previous != null && FixTag.dataOf(previous.tag()) == tag) {
            end = equals + 1 + Integer.parseInt(value(previous));
            if (end < 0 || end >= bytes.length || bytes[end] != DELIMITER) {
                throw new IllegalArgumentException("data field " + tag + " has another length in " + this);
            }
        }
        return new Field(tag, start, equals + 1, end);
    }

    private Field find(int tag) {
        for (Field field : fields) {
            if (field.tag() == tag) {
                return field;
            }
        }
        return null;
    }

    private String value(Field field) {
        return new String(bytes, field.valueStart(), field.end() - field.valueStart(), StandardCharsets.ISO_8859_1);
    }

    private int indexOf(byte wanted, int from) {
        for (int i = from; i < bytes.length; ++i) {
            if (bytes[i] == wanted) {
                return i;
            }
        }
        throw new IllegalArgumentException("a field is cut in " + this);
    }
}
