package com.corvane.kestrova.engine.tabulo.jni;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.corvane.kestrova.engine.tabulo.MessageQueryConditions;
import com.corvane.kestrova.engine.tabulo.TableConfiguration;
import java.nio.charset.StandardCharsets;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.List;
import java.util.Random;
import java.util.concurrent.atomic.AtomicInteger;
import java.util.concurrent.atomic.AtomicLong;
import java.util.concurrent.atomic.AtomicReference;
import org.junit.jupiter.api.BeforeAll;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.io.TempDir;

/** Many threads on the same peers: what was acknowledged is there, whole and in the order of each thread. */
class SharedPeersTest {
    private static final int THREADS = 8;
    private static final long LONG_RUN = 20;  // seconds
    private static final int MOST_MESSAGES = 400_000;

    @TempDir
    Path directory;

    private TableConfiguration configuration;
    private final AtomicReference<Throwable> wrong = new AtomicReference<>();

    @BeforeAll
    static void load() {
        Natives.load();
        JNITboLibLoader.uninitLibrary();  // nobody wants the notes of all these tables
    }

    private static void store(JNITboMessageTable table, int thread, int number) {
        table.writeMessage(number, number, 0, number, thread, 'D', null, false, false, null, null,
                thread + " " + number + " " + "x".repeat(number % 200), null, new String[] {"T" + thread}, null);
    }

    /** The number of a message that is whole. */
    private static int numberOf(byte[] wire, long thread) {
        String[] parts = new String(wire, StandardCharsets.ISO_8859_1).split(" ", -1);
        int number = Integer.parseInt(parts[1]);
        assertEquals(String.valueOf(thread), parts[0], "the message of another thread");
        assertEquals("x".repeat(number % 200), parts[2], "a torn message");
        return number;
    }

    private void run(List<Thread> threads) throws InterruptedException {
        threads.forEach(Thread::start);
        for (Thread thread : threads) {
            thread.join();
        }
        if (wrong.get() != null) {
            throw new AssertionError("a thread has failed", wrong.get());
        }
    }

    private Thread thread(Runnable body) {
        return new Thread(() -> {
            try {
                body.run();
            } catch (Throwable thrown) {
                wrong.compareAndSet(null, thrown);
            }
        });
    }

    private JNITboMessageTable open(String name) {
        configuration = TableConfiguration.builder(name, directory).stringFields("Thread").build();
        return JNITboMessageTable.open(configuration, JNITboMessageTable.MODE_WRITE);
    }

    /** Reads all and compares with what each thread has stored since the last drop. */
    private static void assertHolds(JNITboMessageTable table, TableConfiguration configuration, int[] acknowledged) {
        int[] next = new int[acknowledged.length];
        Arrays.fill(next, 1);
        try (JNITboMessageTableIterator all =
                table.getMessages(MessageQueryConditions.builder(configuration).build())) {
            while (all.next()) {
                int thread = (int) all.getTimestamp();
                assertEquals(next[thread]++, numberOf(all.getWireMessageAsByteArray(), thread),
                        "the order of thread " + thread);
            }
        }
        for (int i = 0; i < next.length; ++i) {
            assertEquals(acknowledged[i], next[i] - 1, "messages of thread " + i);
        }
    }

    @Test
    void whatTwoThreadsHaveWrittenCanBeReadBack() throws InterruptedException {
        int[] acknowledged = new int[2];
        try (JNITboMessageTable table = open("orders")) {
            List<Thread> writers = new ArrayList<>();
            for (int i = 0; i < acknowledged.length; ++i) {
                int self = i;
                writers.add(thread(() -> {
                    for (int number = 1; number <= 50_000; ++number) {
                        store(table, self, number);
                        acknowledged[self] = number;
                    }
                }));
            }
            run(writers);
            assertHolds(table, configuration, acknowledged);
        }
        try (JNITboMessageTable again = open("orders")) {
            assertHolds(again, configuration, acknowledged);
        }
    }

    private static int step(JNITboMessageTable table, TableConfiguration configuration, Random random) {
        int found = 0;
        try (JNITboMessageTableIterator some = table.getMessages(random.nextBoolean()
                ? MessageQueryConditions.builder(configuration).backward().build()
                : MessageQueryConditions.builder(configuration).build())) {
            while (found < 200 && some.next()) {
                numberOf(some.getWireMessageAsByteArray(), some.getTimestamp());
                ++found;
            }
        } catch (JNITboException closed) {
            // A drop or a close on another thread has closed the iterator, or the table before it.
            assertTrue(closed.getErrorCode() == JNITboErrorCodes.ITERATOR_CLOSED_ERROR
                    || closed.getErrorCode() == JNITboErrorCodes.TABLE_CLOSED_ERROR, closed::toString);
        }
        return found;
    }

    /** What the threads have in common: the table, which one of them replaces, and what each has stored in it. */
    private final class Shared {
        private JNITboMessageTable table = open("shared");
        private final JNITboSessionInfoTable session = JNITboSessionInfoTable.open(
                TableConfiguration.builder("session", directory).build(), JNITboSessionInfoTable.MODE_WRITE);
        private final int[] acknowledged = new int[THREADS];
        private final AtomicInteger epoch = new AtomicInteger();
        private final AtomicLong messages = new AtomicLong();
        private final AtomicLong uses = new AtomicLong();

        synchronized JNITboMessageTable table() {
            return table;
        }

        synchronized void replace() {
            table.close();
            table = open("shared");
        }
    }

    /** Writes; the number starts anew after a drop, which happens only while nobody else writes. */
    private void write(Shared shared, int self, Object[] locks) {
        // The order between a drop and the writes is the caller's to arrange; so is the count of what is acknowledged.
        synchronized (locks[self]) {
            try {
                store(shared.table(), self, shared.acknowledged[self] + 1);
                shared.acknowledged[self] += 1;
                shared.messages.incrementAndGet();
            } catch (JNITboException closed) {
                assertEquals(JNITboErrorCodes.TABLE_CLOSED_ERROR, closed.getErrorCode());
            }
        }
    }

    private static void withAll(Object[] locks, int from, Runnable body) {
        if (from == locks.length) {
            body.run();
            return;
        }
        synchronized (locks[from]) {
            withAll(locks, from + 1, body);
        }
    }

    private void useOnce(Shared shared, Object[] locks, int self, Random random) {
        shared.uses.incrementAndGet();
        JNITboMessageTable table = shared.table();
        int choice = random.nextInt(1000);
        try {
            if (choice < 700) {
                write(shared, self, locks);
            } else if (choice < 800) {
                table.readMessages(new int[] {1, 2, 3, 4, 5}, (count, threads, wires, others) -> {
                    for (int i = 0; i < count; ++i) {
                        numberOf(wires[i], threads[i]);
                    }
                    return 0;
                });
            } else if (choice < 900) {
                step(table, configuration, random);
            } else if (choice < 950) {
                table.getLastUniformMessageId();
                shared.session.write(self % 6 + 1, random.nextLong());
            } else if (choice < 990) {
                shared.session.read(1, 2, 3, 4, 5, 6);
            } else if (choice < 995) {
                shared.replace();
            } else if (choice == 999 || shared.messages.get() > MOST_MESSAGES) {
                withAll(locks, 0, () -> {
                    shared.table().drop();
                    Arrays.fill(shared.acknowledged, 0);
                    shared.messages.set(0);
                });
            }
        } catch (JNITboException closed) {
            assertEquals(JNITboErrorCodes.TABLE_CLOSED_ERROR, closed.getErrorCode());
        }
    }

    @Test
    void eightThreadsWriteReadQueryIterateDropAndCloseTheSamePeers() throws InterruptedException {
        long seed = TestRun.seed();
        Shared shared = new Shared();
        Object[] locks = new Object[THREADS];
        Arrays.setAll(locks, i -> new Object());
        long end = System.nanoTime() + LONG_RUN * TestRun.effort() * 1_000_000_000L;
        List<Thread> threads = new ArrayList<>();
        for (int i = 0; i < THREADS; ++i) {
            int self = i;
            threads.add(thread(() -> {
                Random random = new Random(seed + self);
                while (System.nanoTime() < end && wrong.get() == null) {
                    useOnce(shared, locks, self, random);
                }
            }));
        }
        run(threads);
        assertHolds(shared.table(), configuration, shared.acknowledged);
        shared.table().close();
        shared.session.close();
        try (JNITboMessageTable again = open("shared")) {
            assertHolds(again, configuration, shared.acknowledged);
        }
        assertTrue(shared.uses.get() > THREADS, "nothing was done");
        TestRun.figure("Java threads", "uses of the same peers by eight threads", shared.uses.get());
    }
}
