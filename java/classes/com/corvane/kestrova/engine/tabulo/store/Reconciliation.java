package com.corvane.kestrova.engine.tabulo.store;

import java.util.OptionalInt;
import java.util.stream.Stream;

/**
 * What a message table and a session's numbers say of the last messages, see
 * {@link MessageStore#reconcile(SessionNumbers)}.
 *
 * @param sent of the messages that were sent
 * @param received of those that were received
 */
public record Reconciliation(Side sent, Side received) {
    /** Which of the two knows of more. */
    public enum Ahead {
        /** Both end with the same number. */
        NEITHER,
        /** The message table has messages whose numbers were not kept. */
        MESSAGES,
        /** A number was kept whose message is neither the last one of the table nor the one before it. */
        NUMBERS
    }

    /**
     * One direction.
     *
     * @param direction which way
     * @param message the MsgSeqNum of the last message of the table; empty when there is none
     * @param kept the number that was kept; empty when there is none
     * @param ahead which of the two is ahead
     * @param reason how that comes about, in words for people
     */
    public record Side(Direction direction, OptionalInt message, OptionalInt kept, Ahead ahead, String reason) {
        /**
         * The number to go on behind: that of the last message that is stored, since a message is evidence and a number
         * is a note of it.
         *
         * @return the MsgSeqNum, 0 when no message is stored
         */
        public int last() {
            return message.orElse(0);
        }
    }

    /**
     * Whether both agree in both directions.
     *
     * @return true when nothing is to be done
     */
    public boolean isEven() {
        return sent.ahead() == Ahead.NEITHER && received.ahead() == Ahead.NEITHER;
    }

    /**
     * Makes the numbers those of the messages, in the directions where they differ.
     *
     * @param numbers what was compared
     * @throws TabuloException as {@link SessionNumbers#keep(Direction, int)} does
     */
    public void correct(SessionNumbers numbers) {
        for (Side side : new Side[] {sent, received}) {
            if (side.ahead() != Ahead.NEITHER) {
                numbers.keep(side.direction(), side.last());
            }
        }
    }

    static Side compare(MessageStore store, SessionNumbers numbers, Direction direction) {
        OptionalInt message = store.lastSeqNum(direction);
        OptionalInt kept = numbers.last(direction);
        int last = message.orElse(0);
        int number = kept.orElse(0);
        if (last == number) {
            return new Side(direction, message, kept, Ahead.NEITHER,
                    last == 0 ? "nothing is stored and no number is kept" : "both end with " + last);
        }
        if (last > number) {
            return new Side(direction, message, kept, Ahead.MESSAGES, last == number + 1
                    ? "message " + last + " is stored and its number is not kept: the process ended between the two"
                    : "the messages from " + (number + 1) + " to " + last + " are stored and their numbers are not"
                            + " kept: they are not kept for each message, or what was kept did not reach the disk");
        }
        if (secondLast(store, direction) == number) {
            return new Side(direction, message, kept, Ahead.MESSAGES, "message " + last + " begins the sequence anew"
                    + " behind message " + number + " and its number is not kept: the process ended between the two");
        }
        return new Side(direction, message, kept, Ahead.NUMBERS, "number " + number + " is kept and its message is not"
                + " the last: numbers are kept before messages, or messages did not reach the disk");
    }

    private static int secondLast(MessageStore store, Direction direction) {
        try (Stream<StoredMessage> newestFirst = store.query(MessageStore.counted(direction))) {
            return newestFirst.skip(1).findFirst().map(StoredMessage::seqNum).orElse(0);
        }
    }
}
