package com.corvane.kestrova.engine.tabulo;

/**
 * Receives a time stamp from a lookup that returns something else, see
 * {@link com.corvane.kestrova.engine.tabulo.jni.JNITboMessageTable#getLastGoodMsgSeqNum(long, Object)}.
 */
public final class TimestampHolder {
    private long value;

    /** Makes a holder of 0. */
    public TimestampHolder() {
    }

    /**
     * Stores a time stamp; the library calls this when it found one that is not 0.
     *
     * @param timestamp the time stamp, in the unit in which the messages were written
     */
    public void setValue(long timestamp) {
        value = timestamp;
    }

    /**
     * The time stamp that was stored last.
     *
     * @return the time stamp, 0 when none was found
     */
    public long getValue() {
        return value;
    }
}
