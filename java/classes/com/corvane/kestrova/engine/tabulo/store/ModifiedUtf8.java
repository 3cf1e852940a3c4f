package com.corvane.kestrova.engine.tabulo.store;

/** The bytes that the library makes of a Java string: each character by itself, and a zero character as two bytes. */
final class ModifiedUtf8 {
    private static final int MOST_BYTES_OF_A_CHARACTER = 3;

    private ModifiedUtf8() {
    }

    /** At most so many bytes; 0 for null. */
    static long most(String text) {
        return text == null ? 0 : (long) MOST_BYTES_OF_A_CHARACTER * text.length();
    }

    /** Puts a text into an array that has room for the most bytes; gives the place behind it. */
    static int put(String text, byte[] out, int from) {
        int length = text.length();
        int at = from;
        for (int i = 0; i < length; ++i) {
            char c = text.charAt(i);
            if (c == 0 || c > 0x7F) {
                return putRest(text, i, out, at);
            }
            out[at++] = (byte) c;
        }
        return at;
    }

    private static int putRest(String text, int first, byte[] out, int from) {
        int at = from;
        for (int i = first; i < text.length(); ++i) {
            char c = text.charAt(i);
            if (c != 0 && c <= 0x7F) {
                out[at++] = (byte) c;
            } else if (c <= 0x7FF) {
                out[at++] = (byte) (0xC0 | c >> 6);
                out[at++] = (byte) (0x80 | c & 0x3F);
            } else {
                out[at++] = (byte) (0xE0 | c >> 12);
                out[at++] = (byte) (0x80 | c >> 6 & 0x3F);
                out[at++] = (byte) (0x80 | c & 0x3F);
            }
        }
        return at;
    }
}
