package com.corvane.kestrova.examples;

import java.util.TreeSet;

/** Follows the sequence numbers of the received messages, and tells which came before an earlier one was there. */
final class SequenceTracker {
    private static final String SEQUENCE_RESET = "4";

    private final TreeSet<Integer> early = new TreeSet<>();
    private int expected = 1;

    /** Takes the next received message; true when messages before it are missing. */
    boolean isOutOfSequence(FixMessage message) {
        int number = message.number(FixTag.MSG_SEQ_NUM);
        boolean isReset = SEQUENCE_RESET.equals(message.text(FixTag.MSG_TYPE));
        if (message.isSet(FixTag.RESET_SEQ_NUM_FLAG)) {
            expected = number;
            early.clear();
        }
        if (isReset && !message.isSet(FixTag.GAP_FILL_FLAG)) {
            advanceTo(message.number(FixTag.NEW_SEQ_NO));
            return false;
        }
        if (number > expected) {
            early.add(number);
            return true;
        }
        advanceTo(isReset ? message.number(FixTag.NEW_SEQ_NO) : number + 1);
        return false;
    }

    /** The number that the next message in sequence has. */
    int expected() {
        return expected;
    }

    private void advanceTo(int next) {
        expected = Math.max(expected, next);
        early.headSet(expected).clear();
        while (early.remove(expected)) {
            ++expected;
        }
    }
}
