package com.corvane.kestrova.engine.tabulo.jni;

import static org.junit.jupiter.api.Assertions.assertFalse;
import static org.junit.jupiter.api.Assertions.assertSame;
import static org.junit.jupiter.api.Assertions.assertThrows;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.util.concurrent.locks.LockSupport;
import org.junit.jupiter.api.Test;

/** Who may use a native object, and who may close it. */
class HandleGuardTest {
    private final JNITboException closed = JNITboException.createUnderlyingError(3, "closed");
    private final HandleGuard guard = new HandleGuard(() -> closed);

    @Test
    void anUnusedGuardIsShutOnce() {
        assertTrue(guard.shut());
        assertFalse(guard.shut());
    }

    @Test
    void aShutGuardIsNotEnteredHoweverOftenItIsTried() {
        guard.shut();
        for (int i = 0; i < 3; ++i) {
            assertSame(closed, assertThrows(JNITboException.class, guard::enter));
        }
        assertFalse(guard.shut());
    }

    @Test
    void aGuardInUseIsNotShut() {
        guard.enter();
        guard.enter();
        assertThrows(IllegalStateException.class, guard::shut);
        guard.leave();
        assertThrows(IllegalStateException.class, guard::shut);
        guard.leave();
        assertTrue(guard.shut());
    }

    @Test
    void aGuardThatWasReopenedIsEnteredAgain() {
        guard.shut();
        guard.reopen();
        guard.enter();
        guard.leave();
        assertTrue(guard.shut());
    }

    @Test
    void useAndCloseByManyThreadsNeverOverlap() throws InterruptedException {
        boolean[] wrong = new boolean[1];
        boolean[] isShut = new boolean[1];
        Thread[] users = new Thread[4];
        for (int i = 0; i < users.length; ++i) {
            users[i] = new Thread(() -> {
                try {
                    for (;;) {
                        guard.enter();
                        synchronized (isShut) {
                            wrong[0] |= isShut[0];
                        }
                        guard.leave();
                        LockSupport.parkNanos(50_000);
                    }
                } catch (JNITboException end) {
                    // The guard is shut.
                }
            });
            users[i].start();
        }
        for (boolean done = false; !done;) {
            try {
                synchronized (isShut) {
                    done = guard.shut();
                    isShut[0] = done;
                }
            } catch (IllegalStateException inUse) {
                Thread.onSpinWait();
            }
        }
        for (Thread user : users) {
            user.join();
        }
        assertFalse(wrong[0], "a use was running after the guard was shut");
    }
}
