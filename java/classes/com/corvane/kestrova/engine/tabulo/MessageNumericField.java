package com.corvane.kestrova.engine.tabulo;

/**
 * A number in every message's metadata; what a numeric filter may address besides the configured fields.
 *
 * <p>The order of the constants is the order of their field ids behind the configured numeric fields.
 */
public enum MessageNumericField {
    /** The uniform message id. */
    UNIFORM_ID,
    /** The MsgSeqNum; negative for a pending message. */
    SEQ_NUM,
    /** The sequence number that a pending message had before it was sent, else 0. */
    PREV_SEQ_NUM,
    /** The connection message id. */
    CONN_MSG_ID,
    /** The time stamp, in the unit in which the messages were written. */
    TIMESTAMP,
    /** 1 for a possible duplicate, else 0. */
    POSS_DUP,
    /** 1 for a message that was out of sequence, else 0. */
    OUT_OF_SEQUENCE
}
