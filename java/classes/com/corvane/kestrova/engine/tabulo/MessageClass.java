package com.corvane.kestrova.engine.tabulo;

import java.util.Arrays;
import java.util.stream.Collectors;

/**
 * The class of a message, told by the range of its connection message id.
 *
 * <p>The ranges cover all ids from 0 to 2147483647 without a gap; a negative id belongs to no class. The order of the
 * constants is the order in which table files store per-class values; it is not the order of the ranges.
 */
public enum MessageClass {
    /** An application message received from the counterparty: 536870911 to 1073741822. */
    APP_FROM(0x1FFFFFFF, 0x3FFFFFFE),
    /** An application message sent to the counterparty: 0 to 536870910. */
    APP_TO(0, 0x1FFFFFFE),
    /** An administrative message received from the counterparty: 1342177279 to 1610612734. */
    ADMIN_FROM(0x4FFFFFFF, 0x5FFFFFFE),
    /** An administrative message sent to the counterparty: 1073741823 to 1342177278. */
    ADMIN_TO(0x3FFFFFFF, 0x4FFFFFFE),
    /** A message sent again: 1610612735 to 2147483647. */
    RESENT(0x5FFFFFFF, 0x7FFFFFFF);

    private final int firstId;
    private final int lastId;

    MessageClass(int firstId, int lastId) {
        this.firstId = firstId;
        this.lastId = lastId;
    }

    /**
     * The lowest connection message id of this class.
     *
     * @return the id, inclusive
     */
    public int firstId() {
        return firstId;
    }

    /**
     * The highest connection message id of this class.
     *
     * @return the id, inclusive
     */
    public int lastId() {
        return lastId;
    }

    /** The ranges of all classes, for people. */
    static String ranges() {
        return Arrays.stream(values()).map(c -> c + " " + c.firstId + " to " + c.lastId)
                .collect(Collectors.joining(", "));
    }

    /**
     * Finds the class of a connection message id.
     *
     * @param connMsgId any id
     * @return its class, or null when the id is negative
     */
    public static MessageClass of(int connMsgId) {
        for (MessageClass candidate : values()) {
            if (connMsgId >= candidate.firstId && connMsgId <= candidate.lastId) {
                return candidate;
            }
        }
        return null;
    }
}
