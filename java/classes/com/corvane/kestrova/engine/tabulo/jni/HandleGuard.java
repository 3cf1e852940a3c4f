package com.corvane.kestrova.engine.tabulo.jni;

import java.util.concurrent.atomic.AtomicInteger;
import java.util.function.Supplier;

/**
 * Keeps a native object alive while it is used: it cannot be closed from a callback that runs inside one of its own
 * operations, nor from another thread, and it cannot be used once it is closed. It does not serialise uses.
 */
final class HandleGuard {
    private static final int CLOSED = Integer.MIN_VALUE;

    private final AtomicInteger uses = new AtomicInteger();
    private final Supplier<JNITboException> whenClosed;

    HandleGuard(Supplier<JNITboException> whenClosed) {
        this.whenClosed = whenClosed;
    }

    /** Begins a use; every one must be followed by {@link #leave()}. */
    void enter() {
        if (uses.incrementAndGet() < 0) {
            uses.decrementAndGet();
            throw whenClosed.get();
        }
    }

    void leave() {
        uses.decrementAndGet();
    }

    /** Closes the guard; false when it is closed already. */
    boolean shut() {
        if (uses.compareAndSet(0, CLOSED)) {
            return true;
        }
        if (uses.get() < 0) {
            return false;
        }
        throw new IllegalStateException("cannot be closed or dropped while one of its operations is running");
    }

    /** Takes back a {@link #shut()} that returned true. */
    void reopen() {
        uses.addAndGet(-CLOSED);
    }
}
