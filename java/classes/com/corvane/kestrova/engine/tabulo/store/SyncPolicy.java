package com.corvane.kestrova.engine.tabulo.store;

import com.corvane.kestrova.engine.tabulo.jni.JNITboLibLoader;
import java.time.Duration;

/**
 * When stored messages are forced to the disk, so that they survive the loss of power. Whatever the policy, a stored
 * message survives the end of its process.
 *
 * <p>A commit happens while a message is stored or a table is closed, at no other time: the last message before a pause
 * waits for the next one. A commit that the disk refuses is logged as a warning, and the message counts as stored. Each
 * table counts for itself. Objects are immutable.
 *
 * @see Tabulo#sync(SyncPolicy)
 */
public final class SyncPolicy {
    private static final SyncPolicy OFF = new SyncPolicy(false, 0, 0, "off");
    private static final SyncPolicy ALWAYS = new SyncPolicy(true, 0, 0, "always");

    private final boolean isOn;
    private final int seconds;
    private final int halfMessages;
    private final String text;

    private SyncPolicy(boolean isOn, int seconds, int halfMessages, String text) {
        this.isOn = isOn;
        this.seconds = seconds;
        this.halfMessages = halfMessages;
        this.text = text;
    }

    /**
     * Commits nothing: the operating system writes to the disk when it likes.
     *
     * @return the policy with which the library begins
     */
    public static SyncPolicy off() {
        return OFF;
    }

    /**
     * Commits with the first message that is stored so long after the last commit or later.
     *
     * @param interval at least a second, at most 2147483647 seconds; a fraction of a second behind that is dropped, so
     *        that commits come the sooner
     * @return the policy
     * @throws IllegalArgumentException when the interval is shorter or longer
     */
    public static SyncPolicy every(Duration interval) {
        long whole = interval.getSeconds();
        if (whole < 1 || whole > Integer.MAX_VALUE) {
            throw new IllegalArgumentException("the interval " + interval + " is not between a second and "
                    + Integer.MAX_VALUE + " seconds");
        }
        return new SyncPolicy(true, (int) whole, 0, "every " + interval);
    }

    /**
     * Commits with every n-th message at the latest.
     *
     * @param count how many messages a commit takes at most: 1 is {@link #always()}; of an odd number above that the
     *        library takes one less
     * @return the policy
     * @throws IllegalArgumentException when the number is below 1
     */
    public static SyncPolicy everyMessages(int count) {
        if (count < 1) {
            throw new IllegalArgumentException("a commit cannot take " + count + " messages");
        }
        // The library is told half of the number: see setDoSyncToDisk.
        return count == 1 ? ALWAYS : new SyncPolicy(true, 0, count / 2, "every " + count + " messages");
    }

    /**
     * Commits every message before its store returns.
     *
     * @return the policy under which no stored message is lost with the power
     */
    public static SyncPolicy always() {
        return ALWAYS;
    }

    void apply() {
        JNITboLibLoader.setDoSyncToDisk(isOn, seconds, halfMessages);
    }

    /**
     * Says what the policy is.
     *
     * @return words for people
     */
    @Override
    public String toString() {
        return "sync " + text;
    }
}
