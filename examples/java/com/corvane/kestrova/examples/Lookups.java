package com.corvane.kestrova.examples;

import com.corvane.kestrova.engine.tabulo.MessageClass;
import com.corvane.kestrova.engine.tabulo.store.Direction;
import com.corvane.kestrova.engine.tabulo.store.MessageStore;
import java.util.OptionalInt;
import java.util.function.Predicate;
import java.util.function.ToIntFunction;
import java.util.stream.IntStream;

/** Asks a table what an engine asks after a restart, and compares the answers with the messages that were stored. */
final class Lookups {
    private final MessageStream stream;
    private final int count;

    Lookups(MessageStream stream, int count) {
        this.stream = stream;
        this.count = count;
    }

    void printAndCompare(MessageStore store) {
        for (MessageClass messageClass : MessageClass.values()) {
            print("last id of class " + messageClass, store.lastId(messageClass),
                    last(message -> message.messageClass == messageClass, stream::connMsgId));
        }
        for (Direction direction : Direction.values()) {
            print("last MsgSeqNum " + direction, store.lastSeqNum(direction),
                    last(message -> message.isCounted() && message.isSent() == (direction == Direction.SENT),
                            index -> stream.message(index).seqNum));
        }
        // The recording holds no message that waited to be sent.
        print("messages that wait", OptionalInt.of(store.pending().size()), OptionalInt.of(0));
        print("last uniform message id", store.lastUniformId(), OptionalInt.of(stream.uniformId(count - 1)));
    }

    private OptionalInt last(Predicate<RecordedMessage> condition, ToIntFunction<Integer> answer) {
        return IntStream.iterate(count - 1, index -> index >= 0, index -> index - 1)
                .filter(index -> condition.test(stream.message(index))).map(answer::applyAsInt).findFirst();
    }

    private static void print(String what, OptionalInt answer, OptionalInt expected) {
        System.out.printf("   %-28s %s%n", what, answer.isPresent() ? String.valueOf(answer.getAsInt()) : "none");
        if (!answer.equals(expected)) {
            throw new DemoFailure(what + " is " + answer + " and should be " + expected);
        }
    }
}
