package com.corvane.kestrova.engine.tabulo.jni;

import java.util.function.Consumer;

/** The arguments of the two big writeMessage overloads, with values that fit a table without indexed fields. */
final class Message {
    int uniformId = 1;
    int seqNum = 1;
    int prevSeqNum;
    int connMsgId;
    long timestamp = 1;
    char msgTypeChar = 'D';
    String msgType;
    boolean possDup;
    boolean outOfSequence;
    String builtIn0;
    String builtIn1;
    String wire;
    String nonMetadata;
    String[] strings;
    double[] doubles;
    byte[] bytes1;
    int offset1;
    int length1;
    byte[] bytes2;
    int offset2;
    int length2;
    byte[] bytes3;
    int offset3;
    int length3;
    int[] typeMap;
    long[] longs;

    static Message of(Consumer<Message> settings) {
        Message message = new Message();
        settings.accept(message);
        return message;
    }

    /** A message that differs from others by its number alone. */
    static Message numbered(int number) {
        return of(m -> {
            m.uniformId = number;
            m.seqNum = number;
            m.connMsgId = number;
            m.timestamp = 1_000L + number;
            m.wire = "8=FIX.4.4|34=" + number;
            m.nonMetadata = "58=" + number;
        });
    }

    void setWire(byte[] bytes) {
        bytes1 = bytes;
        offset1 = 0;
        length1 = bytes.length;
    }

    void setNonMetadata(byte[] bytes) {
        bytes3 = bytes;
        offset3 = 0;
        length3 = bytes.length;
    }
}
