package com.corvane.kestrova.examples;

import com.corvane.kestrova.engine.tabulo.MessageClass;
import com.corvane.kestrova.engine.tabulo.jni.JNITboMessageTable;
import java.util.List;

/**
 * Recorded messages over and over, without end. Each has its ids by its place in the stream, so that whoever knows how
 * many were stored knows what the table must hold.
 */
final class MessageStream {
    private final RecordedMessage[] messages;
    private final int firstUniformId;
    private final int[] placeInClass;
    private final int[] perRound = new int[MessageClass.values().length];

    MessageStream(List<RecordedMessage> messages, int firstUniformId) {
        this.messages = messages.toArray(new RecordedMessage[0]);
        this.firstUniformId = firstUniformId;
        placeInClass = new int[this.messages.length];
        for (int i = 0; i < this.messages.length; ++i) {
            placeInClass[i] = perRound[this.messages[i].messageClass.ordinal()]++;
        }
    }

    RecordedMessage message(int index) {
        return messages[index % messages.length];
    }

    int uniformId(int index) {
        return firstUniformId + index;
    }

    /** The ids of each class count up from the class's first one. */
    int connMsgId(int index) {
        MessageClass messageClass = message(index).messageClass;
        int round = index / messages.length;
        return messageClass.firstId() + round * perRound[messageClass.ordinal()]
                + placeInClass[index % messages.length];
    }

    /** Stores the message at a place; returning means that the table has taken it. */
    void store(JNITboMessageTable table, int index) {
        message(index).store(table, uniformId(index), connMsgId(index));
    }
}
