package com.corvane.kestrova.engine.tabulo.store;

import java.lang.invoke.MethodHandles;
import java.lang.invoke.VarHandle;
import java.nio.ByteOrder;

/** The bytes of one message as they stand in a table's file; docs/file_format.md has the byte map of a frame. */
final class FrameBuffer {
    private static final VarHandle INT =
            MethodHandles.byteArrayViewVarHandle(int[].class, ByteOrder.nativeOrder());
    private static final VarHandle LONG =
            MethodHandles.byteArrayViewVarHandle(long[].class, ByteOrder.nativeOrder());
    private static final int UNIFORM_ID = 4;
    private static final int SEQ_NUM = 8;
    private static final int PREV_SEQ_NUM = 12;
    private static final int CONN_MSG_ID = 16;
    private static final int TIME = 20;
    private static final int TYPE = 28;
    private static final int TYPE_SIZE = 5;
    private static final int POSS_DUP = 33;
    private static final int OUT_OF_SEQUENCE = 34;
    private static final int METADATA_SIZE = 35;
    private static final int NUMBER_SIZE = 1 + Long.BYTES;
    private static final int SIZE_AND_NUL = Integer.BYTES + 1;
    private static final int BUILT_IN_TEXTS = 4;
    private static final int LARGEST = Integer.MAX_VALUE - 8;  // as large as an array can be
    private static final int FIRST_SIZE = 1024;
    private static final int KEPT_SIZE = 1024 * 1024;  // an array that a huge message has grown is given back

    private byte[] frame = new byte[FIRST_SIZE];

    byte[] bytes() {
        return frame;
    }

    /** Encodes a message; gives the length of its frame, which begins the array. */
    int encode(MessageParts message) {
        if (message.type == null) {
            throw new IllegalStateException("the message has no MsgType");
        }
        makeRoom(message);
        if (!message.hasTime) {
            message.setTimestamp(Times.now(message.layout.timeUnit()));
        }
        int at = putMetadata(message);
        at = putText(message.text0, at);
        at = putText(message.text1, at);
        for (String text : message.texts) {
            at = putText(text, at);
        }
        at = putPiece(message.nonMetadata, putPiece(message.wire, at));
        int length = at + Integer.BYTES;
        INT.set(frame, at, length);
        INT.set(frame, 0, length);
        return length;
    }

    /** Writes what is known only just before an encoded message is stored. */
    void setNumbers(MessageParts message) {
        INT.set(frame, UNIFORM_ID, message.uniformId);
        INT.set(frame, SEQ_NUM, message.seqNum);
        INT.set(frame, CONN_MSG_ID, message.connMsgId);
    }

    private int putMetadata(MessageParts message) {
        byte[] out = frame;
        setNumbers(message);
        INT.set(out, PREV_SEQ_NUM, message.prevSeqNum);
        LONG.set(out, TIME, message.timestamp);
        String type = message.type;
        for (int i = 0; i < TYPE_SIZE; ++i) {
            out[TYPE + i] = i < type.length() ? (byte) type.charAt(i) : 0;
        }
        out[POSS_DUP] = (byte) (message.possDup ? 1 : 0);
        out[OUT_OF_SEQUENCE] = (byte) (message.outOfSequence ? 1 : 0);
        int at = METADATA_SIZE;
        for (int i = 0; i < message.numberTypes.length; ++i) {
            byte numberType = message.numberTypes[i];
            out[at++] = numberType;
            if (numberType != MessageParts.ABSENT) {
                LONG.set(out, at, message.numbers[i]);
                at += Long.BYTES;
            }
        }
        return at;
    }

    private void makeRoom(MessageParts message) {
        long most = METADATA_SIZE + (long) message.numbers.length * NUMBER_SIZE + ModifiedUtf8.most(message.text0)
                + ModifiedUtf8.most(message.text1) + message.wire.mostBytes() + message.nonMetadata.mostBytes()
                + (message.texts.length + BUILT_IN_TEXTS) * SIZE_AND_NUL + Integer.BYTES;
        for (String text : message.texts) {
            most += ModifiedUtf8.most(text);
        }
        if (most > LARGEST) {
            throw new IllegalArgumentException("the message may take " + most + " bytes, and an array holds "
                    + LARGEST);
        }
        if (most > frame.length || frame.length > KEPT_SIZE && most <= KEPT_SIZE) {
            frame = new byte[(int) Math.min(LARGEST, Math.max(FIRST_SIZE, most + most / 2))];
        }
    }

    /** A text behind its size, with a NUL; an absent one is a size of 0. */
    private int putText(String text, int at) {
        if (text == null) {
            return putAbsent(at);
        }
        return end(at, ModifiedUtf8.put(text, frame, at + Integer.BYTES));
    }

    private int putPiece(Piece piece, int at) {
        if (piece.isAbsent()) {
            return putAbsent(at);
        }
        return end(at, piece.put(frame, at + Integer.BYTES));
    }

    private int putAbsent(int at) {
        INT.set(frame, at, 0);
        return at + Integer.BYTES;
    }

    private int end(int begin, int end) {
        frame[end] = 0;
        INT.set(frame, begin, end + 1 - begin - Integer.BYTES);
        return end + 1;
    }
}
