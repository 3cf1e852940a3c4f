package com.corvane.kestrova.engine.tabulo.jni;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;
import static org.junit.jupiter.api.Assertions.assertSame;
import static org.junit.jupiter.api.Assertions.assertThrows;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.util.concurrent.atomic.AtomicReference;
import org.junit.jupiter.api.Test;

/** Who may use a native object, and who may close it. */
class HandleGuardTest {
    private final JNITboException closed = JNITboException.createUnderlyingError(3, "closed");
    private final HandleGuard guard = new HandleGuard(() -> closed);

    @Test
    void anUnusedGuardIsShutOnce() {
        assertTrue(guard.isClosable());
        guard.shut();
        assertFalse(guard.isClosable());
    }

    @Test
    void aShutGuardIsNotUsedHoweverOftenItIsTried() {
        guard.shut();
        for (int i = 0; i < 3; ++i) {
            assertSame(closed, assertThrows(JNITboException.class, guard::begin));
            assertFalse(guard.tryBegin());
            assertSame(closed, assertThrows(JNITboException.class, guard::beginWatch));
        }
        assertEquals(0, guard.uses);
        assertEquals(0, guard.watches);
    }

    @Test
    void aGuardInUseIsNotClosed() {
        guard.begin();
        guard.begin();
        assertThrows(IllegalStateException.class, guard::isClosable);
        --guard.uses;
        assertThrows(IllegalStateException.class, guard::isClosable);
        --guard.uses;
        assertTrue(guard.isClosable());
    }

    @Test
    void aWatchedGuardIsUsedByItsWatchAloneAndClosedByNobody() throws InterruptedException {
        guard.beginWatch();
        guard.begin();
        --guard.uses;
        assertThrows(IllegalStateException.class, guard::isClosable);
        AtomicReference<Throwable> wrong = new AtomicReference<>();
        Thread other = new Thread(() -> {
            try {
                assertThrows(IllegalStateException.class, guard::begin);
                assertThrows(IllegalStateException.class, guard::tryBegin);
                assertThrows(IllegalStateException.class, guard::isClosable);
                assertThrows(IllegalStateException.class, guard::beginWatch);
            } catch (Throwable thrown) {
                wrong.set(thrown);
            }
        });
        other.start();
        other.join();
        assertEquals(null, wrong.get());
        assertEquals(1, guard.watches);
    }
}
