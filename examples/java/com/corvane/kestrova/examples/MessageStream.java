package com.corvane.kestrova.examples;

import com.corvane.kestrova.engine.tabulo.MessageClass;
import com.corvane.kestrova.engine.tabulo.store.MessageStore;
import com.corvane.kestrova.engine.tabulo.store.StoredMessage;
import java.util.Arrays;
import java.util.List;

/**
 * Recorded messages over and over, without end. A store gives each its ids by its place in the stream, so that whoever
 * knows how many were stored knows what the table must hold.
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

    /** Whether a message is the one that was stored from a place of the stream. */
    boolean isAt(StoredMessage stored, int index) {
        RecordedMessage expected = message(index);
        return stored.uniformId() == uniformId(index) && stored.id() == connMsgId(index)
                && stored.seqNum() == expected.seqNum && stored.time().equals(expected.time)
                && Arrays.equals(stored.wire(), expected.wire)
                && Arrays.equals(stored.nonMetadata(), expected.nonMetadata);
    }

    /** Stores the message at a place; returning means that the table has taken it. */
    void store(MessageStore store, int index) {
        int id = message(index).store(store);
        if (id != connMsgId(index)) {
            throw new DemoFailure("the message " + index + " was given the id " + id + " instead of "
                    + connMsgId(index));
        }
    }
}
