package com.corvane.kestrova.engine.tabulo.jni;

import java.io.IOException;
import java.nio.ByteBuffer;
import java.nio.ByteOrder;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.List;

/**
 * A message as its bytes stand in a table file, read by the tests' own reading of the format.
 *
 * @param msgType its five bytes
 * @param numerics null, a Double or a Long for each numeric field
 * @param strings the bytes of each string field, the ending NUL included; null for length 0
 */
record StoredMessage(int uniformId, int seqNum, int prevSeqNum, int connMsgId, long timestamp, byte[] msgType,
        int possDup, int outOfSequence, List<Object> numerics, List<byte[]> strings) {

    private static final int HEADER_SIZE_OFFSET = 15;
    private static final int STRING_COUNT_OFFSET = 40;
    private static final int NUMERIC_COUNT_OFFSET = 48;
    private static final int FULL_BLOCK = 1000;
    static final int TAIL_SIZE = 88;

    /** The MsgType up to its padding, each byte as a character. */
    String msgTypeText() {
        String text = new String(msgType, StandardCharsets.ISO_8859_1);
        int end = text.indexOf('\0');
        return end < 0 ? text : text.substring(0, end);
    }

    /** A string field's bytes as characters, NUL included; null when it is absent. */
    String string(int index) {
        byte[] bytes = strings.get(index);
        return bytes == null ? null : new String(bytes, StandardCharsets.ISO_8859_1);
    }

    /** All messages of a table file. */
    static List<StoredMessage> readAll(Path file) throws IOException {
        ByteBuffer in = ByteBuffer.wrap(Files.readAllBytes(file)).order(ByteOrder.nativeOrder());
        int strings = in.getInt(STRING_COUNT_OFFSET);
        int numerics = in.getInt(NUMERIC_COUNT_OFFSET);
        in.position(in.getInt(HEADER_SIZE_OFFSET));
        List<StoredMessage> messages = new ArrayList<>();
        while (in.hasRemaining()) {
            int block = in.position();
            long length = in.getLong();
            for (int i = 0; i < FULL_BLOCK && in.hasRemaining(); ++i) {
                messages.add(read(in, numerics, strings));
            }
            if (length != 0) {
                in.position(Math.toIntExact(block + length));
            }
        }
        return messages;
    }

    private static StoredMessage read(ByteBuffer in, int numericCount, int stringCount) {
        int start = in.position();
        int length = in.getInt();
        int uniformId = in.getInt();
        int seqNum = in.getInt();
        int prevSeqNum = in.getInt();
        int connMsgId = in.getInt();
        long timestamp = in.getLong();
        byte[] msgType = new byte[5];
        in.get(msgType);
        int possDup = in.get();
        int outOfSequence = in.get();
        List<Object> numerics = new ArrayList<>();
        for (int i = 0; i < numericCount; ++i) {
            byte type = in.get();
            numerics.add(type == 0 ? null : type == 1 ? (Object) in.getDouble() : (Object) in.getLong());
        }
        List<byte[]> strings = new ArrayList<>();
        for (int i = 0; i < stringCount; ++i) {
            byte[] text = new byte[in.getInt()];
            in.get(text);
            strings.add(text.length == 0 ? null : text);
        }
        int again = in.getInt();
        if (again != length || in.position() - start != length) {
            throw new AssertionError("the frame at " + start + " does not have the length that it says");
        }
        return new StoredMessage(uniformId, seqNum, prevSeqNum, connMsgId, timestamp, msgType, possDup, outOfSequence,
                numerics, strings);
    }

    /** The bytes of a frame without numeric fields, as a caller of the raw overload would encode it. */
    static ByteBuffer frame(int uniformId, int seqNum, int connMsgId, long timestamp, String msgType,
            byte[]... strings) {
        int length = 39;
        for (byte[] text : strings) {
            length += Integer.BYTES + (text == null ? 0 : text.length);
        }
        ByteBuffer out = ByteBuffer.allocate(length).order(ByteOrder.nativeOrder());
        out.putInt(length).putInt(uniformId).putInt(seqNum).putInt(0).putInt(connMsgId).putLong(timestamp);
        out.put(Arrays.copyOf(msgType.getBytes(StandardCharsets.ISO_8859_1), 5));
        out.put((byte) 0).put((byte) 0);
        for (byte[] text : strings) {
            out.putInt(text == null ? 0 : text.length);
            if (text != null) {
                out.put(text);
            }
        }
        return out.putInt(length).flip();
    }
}
