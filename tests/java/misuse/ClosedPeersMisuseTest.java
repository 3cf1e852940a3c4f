package com.corvane.kestrova.engine.tabulo.jni;

import static com.corvane.kestrova.engine.tabulo.jni.JNITboErrorCodes.ITERATOR_CLOSED_ERROR;
import static com.corvane.kestrova.engine.tabulo.jni.JNITboErrorCodes.NULL_POINTER_ERROR;
import static com.corvane.kestrova.engine.tabulo.jni.JNITboErrorCodes.TABLE_CLOSED_ERROR;
import static org.junit.jupiter.api.Assertions.assertDoesNotThrow;
import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertThrows;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.corvane.kestrova.engine.tabulo.MessageQueryConditions;
import com.corvane.kestrova.engine.tabulo.TableConfiguration;
import java.lang.reflect.Array;
import java.lang.reflect.InvocationTargetException;
import java.lang.reflect.Method;
import java.lang.reflect.Modifier;
import java.nio.file.Path;
import java.util.Arrays;
import java.util.List;
import java.util.Random;
import java.util.Set;
import java.util.concurrent.atomic.AtomicInteger;
import java.util.concurrent.atomic.AtomicReference;
import java.util.concurrent.locks.LockSupport;
import java.util.stream.Stream;
import org.junit.jupiter.api.BeforeAll;
import org.junit.jupiter.api.BeforeEach;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.function.Executable;
import org.junit.jupiter.api.io.TempDir;

/** Peers after their close, by every public method that they have, and closes that race with uses on another thread. */
class ClosedPeersMisuseTest {
    private static final int RACES = 200;
    private static final int MOST_USES = 1_000_000;
    private static final int USES_AT_A_STRETCH = 8;
    private static final long PAUSE = 20_000;  // nanoseconds

    @TempDir
    Path directory;

    private TableConfiguration configuration;
    private JNITboMessageTable table;
    private JNITboMessageTableIterator iterator;
    private JNITboMessageWatcher watcher;
    private JNITboSessionInfoTable session;

    @BeforeAll
    static void load() {
        Natives.load();
        JNITboLibLoader.uninitLibrary();  // nobody wants the notes of all these watches
    }

    @BeforeEach
    void open() {
        configuration = TableConfiguration.builder("orders", directory).build();
        table = JNITboMessageTable.open(configuration, JNITboMessageTable.MODE_WRITE);
        for (int i = 1; i <= 3; ++i) {
            store(table, i);
        }
        iterator = table.getMessages(MessageQueryConditions.builder(configuration).build());
        watcher = JNITboMessageWatcher.open(table);
        session = JNITboSessionInfoTable.open(TableConfiguration.builder("session", directory).build(),
                JNITboSessionInfoTable.MODE_WRITE);
    }

    private void closeAll() {
        watcher.close();
        iterator.close();
        table.close();
        session.close();
    }

    private static void store(JNITboMessageTable table, int number) {
        table.writeMessage(number, number, 0, number, number, 'D', null, false, false, null, null, "wire", null, null,
                null);
    }

    /** What does nothing to a closed peer, and is no failure. */
    private static final Set<String> HARMLESS = Set.of("close", "stop", "toString");

    /** The public methods of an object that use what is behind it. */
    private static List<Method> uses(AutoCloseable peer) {
        return Arrays.stream(peer.getClass().getDeclaredMethods())
                .filter(method -> Modifier.isPublic(method.getModifiers()) && !Modifier.isStatic(method.getModifiers()))
                .filter(method -> !HARMLESS.contains(method.getName())).toList();
    }

    private static Object harmless(Class<?> type) {
        if (!type.isPrimitive()) {
            return type.isArray() ? Array.newInstance(type.getComponentType(), 1) : null;
        }
        return type == boolean.class ? (Object) false : type == char.class ? (Object) 'D'
                : type == long.class ? (Object) 0L : (Object) 0;
    }

    private static Executable callOf(AutoCloseable peer, Method method) {
        Object[] arguments = Arrays.stream(method.getParameterTypes()).map(ClosedPeersMisuseTest::harmless).toArray();
        return () -> {
            try {
                method.invoke(peer, arguments);
            } catch (InvocationTargetException wrapped) {
                throw wrapped.getCause();
            }
        };
    }

    private static void assertRefusesAll(int code, int methods, AutoCloseable peer) {
        List<Method> uses = uses(peer);
        assertEquals(methods, uses.size(), () -> "other uses than were known: " + uses);
        for (int round = 0; round < 2; ++round) {
            uses.forEach(method -> assertEquals(code,
                    assertThrows(JNITboException.class, callOf(peer, method)).getErrorCode(), method::toString));
            assertDoesNotThrow(peer::close, "closing again does nothing");
            assertTrue(peer.toString().contains("closed"), peer::toString);
        }
    }

    @Test
    void everyUseOfAClosedPeerIsRefusedWithItsError() {
        closeAll();
        assertRefusesAll(TABLE_CLOSED_ERROR, 11, table);
        assertRefusesAll(ITERATOR_CLOSED_ERROR, 16, iterator);
        assertRefusesAll(NULL_POINTER_ERROR, 2, watcher);
        assertRefusesAll(TABLE_CLOSED_ERROR, 4, session);
    }

    @Test
    void whatATablesCloseTakesAlongIsRefusedToo() {
        JNITboMessageWatcher other = JNITboMessageWatcher.open(table);
        table.close();
        assertRefusesAll(ITERATOR_CLOSED_ERROR, 16, iterator);
        uses(other).forEach(method -> Errors.assertFails(TABLE_CLOSED_ERROR, method.toString(), callOf(other, method)));
        assertDoesNotThrow(other::close, "a watcher whose table is gone can be freed");
        Errors.assertFails(TABLE_CLOSED_ERROR, () -> JNITboMessageWatcher.open(table));
        closeAll();
    }

    @Test
    void whatWasMadeOfATableThatIsOpenedAgainStaysClosed() {
        table.close();
        JNITboMessageTable again = JNITboMessageTable.open(configuration, JNITboMessageTable.MODE_WRITE);
        assertRefusesAll(ITERATOR_CLOSED_ERROR, 16, iterator);
        Errors.assertFails(TABLE_CLOSED_ERROR, () -> watcher.startWatching(new int[] {1}, (n, times, w, o) -> 1));
        assertEquals(3, again.getLastUniformMessageId());
        again.close();
        closeAll();
    }

    /** What a thread that uses an object may see while another one closes it. */
    private static void assertIsClean(Throwable thrown, int code) {
        boolean isClosed = thrown instanceof JNITboException error && error.getErrorCode() == code;
        assertTrue(thrown == null || isClosed, () -> "a use beside a close ended with " + thrown);
    }

    /** One thread uses, until it is refused; this one closes after some uses, as often as it is refused. */
    private static void race(Random random, int code, Runnable use, Runnable close) throws InterruptedException {
        AtomicReference<Throwable> end = new AtomicReference<>();
        AtomicInteger uses = new AtomicInteger();
        Thread user = new Thread(() -> {
            try {
                for (int i = 0; i < MOST_USES; ++i) {
                    use.run();
                    if (uses.incrementAndGet() % USES_AT_A_STRETCH == 0) {
                        LockSupport.parkNanos(PAUSE);  // or a close would be refused for ever
                    }
                }
            } catch (Throwable thrown) {
                end.set(thrown);
            }
        });
        user.start();
        int before = random.nextInt(20);
        while (uses.get() < before && user.isAlive()) {
            Thread.onSpinWait();
        }
        for (int pause = random.nextInt(2000); pause > 0; --pause) {
            Thread.onSpinWait();
        }
        for (boolean isClosed = false; !isClosed;) {
            try {
                close.run();
                isClosed = true;
            } catch (IllegalStateException inUse) {
                Thread.onSpinWait();
            }
        }
        user.join();
        assertTrue(end.get() != null, "the use was never refused");
        assertIsClean(end.get(), code);
    }

    @Test
    void aCloseOnAnotherThreadEndsEveryKindOfUseWithItsErrorAndNothingElse() throws InterruptedException {
        closeAll();
        Random random = new Random(TestRun.seed());
        int[] id = {1};
        for (int i = 0; i < RACES * TestRun.effort(); ++i) {
            switch (i % 4) {
                case 0 -> {
                    open();
                    List<Runnable> uses = Stream.<Runnable>of(() -> store(table, ++id[0]),
                            table::getLastUniformMessageId, () -> table.getLastMessageId(1),
                            () -> table.readMessages(new int[] {1}, (n, times, wires, others) -> 1),
                            () -> table.getMessages(new RawConditions()).close()).toList();
                    race(random, TABLE_CLOSED_ERROR, uses.get(i / 4 % uses.size()), table::close);
                }
                case 1 -> {
                    open();
                    Runnable use = () -> {
                        iterator.next();
                        iterator.getWireMessage();
                    };
                    // By its own close or by its table's.
                    race(random, ITERATOR_CLOSED_ERROR, use, i % 8 == 1 ? iterator::close : table::close);
                }
                case 2 -> {
                    open();
                    Runnable use = () -> watcher.startWatching(new int[] {-1}, (n, times, wires, others) -> 1);
                    boolean ownClose = i % 8 == 2;
                    race(random, ownClose ? NULL_POINTER_ERROR : TABLE_CLOSED_ERROR, use,
                            ownClose ? watcher::close : table::close);
                }
                default -> {
                    open();
                    race(random, TABLE_CLOSED_ERROR, i % 8 == 3 ? () -> session.write(1, 5) : () -> session.read(1, 2),
                            session::close);
                }
            }
            closeAll();
        }
    }

    @Test
    void twoThreadsThatCloseTheSameObjectsFreeThemOnce() throws InterruptedException {
        closeAll();
        for (int i = 0; i < RACES; ++i) {
            open();
            AtomicReference<Throwable> thrown = new AtomicReference<>();
            Thread other = new Thread(() -> {
                try {
                    closeAll();
                } catch (IllegalStateException inUse) {
                    // The other thread is just closing it.
                } catch (RuntimeException unexpected) {
                    thrown.set(unexpected);
                }
            });
            other.start();
            for (Runnable close : List.<Runnable>of(iterator::close, table::close, watcher::close, session::close)) {
                try {
                    close.run();
                } catch (IllegalStateException inUse) {
                    // As above.
                }
            }
            other.join();
            assertEquals(null, thrown.get());
            closeAll();
        }
    }
}
