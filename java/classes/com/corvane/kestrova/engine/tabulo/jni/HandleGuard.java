package com.corvane.kestrova.engine.tabulo.jni;

import java.util.function.Supplier;

/**
 * The lock of a native object and of what was opened through it, and what happens under it. Whoever uses the object
 * synchronises on the guard; a callback may use the object that it is called for, and may not close it. While a watch
 * runs on the object, it belongs to the thread of the watch, and uses on others are refused.
 *
 * <p>Uses are written out as a synchronized block with {@link #begin()}, and {@code --guard.uses} in its finally part:
 * that takes no stack, so that no lock stays behind where the stack ends.
 */
final class HandleGuard {
    private final Supplier<JNITboException> whenClosed;
    /** Uses under way, one inside another, all on the thread that has the lock. */
    int uses;
    /** Watches under way, one inside another. */
    int watches;
    /** The thread of these watches, null for none. */
    Thread watcher;
    private boolean isClosed;

    HandleGuard(Supplier<JNITboException> whenClosed) {
        this.whenClosed = whenClosed;
    }

    /** Begins a use, under the lock; it ends with {@code --uses}. */
    void begin() {
        if (!tryBegin()) {
            throw whenClosed.get();
        }
    }

    /** Begins a use, under the lock, unless the guard is closed. */
    boolean tryBegin() {
        if (!isUsable()) {
            return false;
        }
        ++uses;
        return true;
    }

    /** Under the lock: false when the guard is closed; throws when the object belongs to a watch on another thread. */
    boolean isUsable() {
        if (isClosed) {
            return false;
        }
        if (watcher != null && watcher != Thread.currentThread()) {
            throw new IllegalStateException("a watch is running on the table, on another thread");
        }
        return true;
    }

    /** Under the lock: may the object be closed or dropped? False when it is closed already. */
    boolean isClosable() {
        if (!isUsable()) {
            return false;
        }
        if (uses > 0 || watches > 0) {
            throw new IllegalStateException("cannot be closed or dropped while one of its operations is running");
        }
        return true;
    }

    /** Under the lock: closes the guard for good. */
    void shut() {
        isClosed = true;
    }

    /** Gives the object to the calling thread, for a watch on it; see the fields for its end. */
    synchronized void beginWatch() {
        begin();
        --uses;
        ++watches;
        watcher = Thread.currentThread();
    }
}
