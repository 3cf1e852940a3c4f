package com.corvane.kestrova.engine.tabulo.store;

import com.corvane.kestrova.engine.tabulo.MessageClass;

/** Which way a message went, as the engine sees it. Each direction counts its own sequence numbers. */
public enum Direction {
    /** To the counterparty: the classes APP_TO and ADMIN_TO. Messages sent again have no part in the counting. */
    SENT(MessageClass.APP_TO, MessageClass.ADMIN_TO),
    /** From the counterparty: the classes APP_FROM and ADMIN_FROM. */
    RECEIVED(MessageClass.APP_FROM, MessageClass.ADMIN_FROM);

    private final MessageClass application;
    private final MessageClass administrative;

    Direction(MessageClass application, MessageClass administrative) {
        this.application = application;
        this.administrative = administrative;
    }

    /** The class of a message of this direction; FIX's session messages are the administrative ones. */
    MessageClass classOf(String type) {
        return isAdministrative(type) ? administrative : application;
    }

    MessageClass[] classes() {
        return new MessageClass[] {application, administrative};
    }

    boolean includes(MessageClass messageClass) {
        return messageClass == application || messageClass == administrative;
    }

    /** Heartbeat, TestRequest, ResendRequest, Reject, SequenceReset, Logout and Logon. */
    private static boolean isAdministrative(String type) {
        if (type.length() != 1) {
            return false;
        }
        char c = type.charAt(0);
        return c >= '0' && c <= '5' || c == 'A';
    }
}
