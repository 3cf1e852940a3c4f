package com.corvane.kestrova.examples;

import com.corvane.kestrova.engine.tabulo.MessageClass;
import com.corvane.kestrova.engine.tabulo.jni.JNITboMessageTable;
import com.corvane.kestrova.engine.tabulo.jni.JNITboMessageTableIterator;
import java.util.Arrays;
import java.util.List;

/**
 * Recorded messages over and over, without end. Each has its ids by its place in the stream, so that whoever knows how
 * many were stored knows what the table must hold.
 */
final class MessageStream {
    private final RecordedMessage[] messages;
    private final int firstUniformId;
    private final int uniformIdStep;
    private final int[] placeInClass;
    private final int[] perRound = new int[MessageClass.values().length];

    MessageStream(List<RecordedMessage> messages, int firstUniformId) {
        this(messages, firstUniformId, 1);
    }

    /** A stream whose uniform ids leave room for those of other streams between them. */
    MessageStream(List<RecordedMessage> messages, int firstUniformId, int uniformIdStep) {
        this.messages = messages.toArray(new RecordedMessage[0]);
        this.firstUniformId = firstUniformId;
        this.uniformIdStep = uniformIdStep;
        placeInClass = new int[this.messages.length];
        for (int i = 0; i < this.messages.length; ++i) {
            placeInClass[i] = perRound[this.messages[i].messageClass.ordinal()]++;
        }
    }

    RecordedMessage message(int index) {
        return messages[index % messages.length];
    }

    int uniformId(int index) {
        return firstUniformId + index * uniformIdStep;
    }

    /** How many messages were stored when the last one has this uniform id; 0 stands for none. */
    int countUpTo(int lastUniformId) {
        return lastUniformId == 0 ? 0 : (lastUniformId - firstUniformId) / uniformIdStep + 1;
    }

    /** The ids of each class count up from the class's first one. */
    int connMsgId(int index) {
        MessageClass messageClass = message(index).messageClass;
        int round = index / messages.length;
        return messageClass.firstId() + round * perRound[messageClass.ordinal()]
                + placeInClass[index % messages.length];
    }

    /** Whether an iterator is at the message that was stored from a place of the stream. */
    boolean isAt(JNITboMessageTableIterator messages, int index) {
        RecordedMessage expected = message(index);
        return messages.getUniformMessageId() == uniformId(index) && messages.getConnectionMsgId() == connMsgId(index)
                && messages.getMsgSeqNum() == expected.seqNum && messages.getTimestamp() == expected.timestamp
                && Arrays.equals(messages.getWireMessageAsByteArray(), expected.wire)
                && Arrays.equals(messages.getNonMetadataFieldsAsByteArray(), expected.nonMetadata);
    }

    /** Stores the message at a place; returning means that the table has taken it. */
    void store(JNITboMessageTable table, int index) {
        message(index).store(table, uniformId(index), connMsgId(index));
    }
}
