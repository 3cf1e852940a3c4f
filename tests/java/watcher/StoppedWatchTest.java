package com.corvane.kestrova.engine.tabulo.jni;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;
import static org.junit.jupiter.api.Assertions.assertThrows;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.corvane.kestrova.engine.tabulo.IKSVTboMessageListener;
import com.corvane.kestrova.engine.tabulo.TableConfiguration;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.Collections;
import java.util.List;
import java.util.Random;
import java.util.concurrent.CountDownLatch;
import java.util.concurrent.TimeUnit;
import java.util.concurrent.atomic.AtomicReference;
import org.junit.jupiter.api.AfterEach;
import org.junit.jupiter.api.BeforeAll;
import org.junit.jupiter.api.BeforeEach;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.io.TempDir;

/** Watches that are ended from other threads, and what others may do meanwhile. */
class StoppedWatchTest {
    private static final long LONGEST_WAIT = 60;  // seconds

    @TempDir
    Path directory;

    private JNITboMessageTable writer;
    private JNITboMessageTable table;
    private JNITboMessageTable other;
    private JNITboMessageWatcher watcher;
    private Thread watching;
    private final CountDownLatch isIdle = new CountDownLatch(20);  // passes: it is then in its pauses
    private final AtomicReference<Throwable> end = new AtomicReference<>();
    private final List<Integer> tables = Collections.synchronizedList(new ArrayList<>());
    private boolean wasInterrupted;

    @BeforeAll
    static void load() {
        Natives.load();
        JNITboLibLoader.uninitLibrary();
    }

    private JNITboMessageTable open(String name, int mode) {
        return JNITboMessageTable.open(TableConfiguration.builder(name, directory).build(), mode);
    }

    private static void store(JNITboMessageTable to, int number) {
        to.writeMessage(number, number, 0, number, number, 'D', null, false, false, null, null, "w" + number, null, null,
                null);
    }

    @BeforeEach
    void open() {
        writer = open("orders", JNITboMessageTable.MODE_WRITE);
        store(writer, 1);
        store(writer, 3);
        other = open("others", JNITboMessageTable.MODE_WRITE);
        store(other, 2);
        table = open("orders", JNITboMessageTable.MODE_READ);
        watcher = JNITboMessageWatcher.open(table, other);
    }

    @AfterEach
    void close() {
        watcher.close();
        other.close();
        table.close();
        writer.close();
    }

    private IKSVTboMessageListener listener() {
        return new IKSVTboMessageListener() {
            @Override
            public int onGetMessages(int count, long[] timestamps, byte[][] wires, byte[][] others) {
                isIdle.countDown();
                return 0;
            }

            @Override
            public void onBatchTables(int[] tableIndexes) {
                for (int index : tableIndexes) {
                    tables.add(index);
                }
            }
        };
    }

    private void start() throws InterruptedException {
        watching = new Thread(() -> {
            try {
                watcher.startWatching(new int[] {-1, -1}, listener());
            } catch (Throwable thrown) {
                end.set(thrown);
            }
            wasInterrupted = Thread.currentThread().isInterrupted();
        });
        watching.start();
        assertTrue(isIdle.await(LONGEST_WAIT, TimeUnit.SECONDS), "the watch does not idle");
    }

    private void join() throws InterruptedException {
        watching.join(LONGEST_WAIT * 1000);
        assertFalse(watching.isAlive(), "the watch goes on");
        assertEquals(null, end.get());
    }

    @Test
    void stopEndsAnIdleWatchAndTheNextOneBeginsAnew() throws InterruptedException {
        watcher.stop();  // nothing is running
        start();
        watcher.stop();
        watcher.stop();
        join();
        assertFalse(wasInterrupted);
        assertEquals(List.of(0, 1, 0), tables, "the tables of the messages");
        int[] again = new int[1];
        watcher.startWatchingCompact(new int[] {-1, -1}, (count, ids, wires) -> {
            again[0] += count;
            return 1;
        });
        assertEquals(3, again[0]);
    }

    @Test
    void anInterruptEndsAWatchAndItsFlagStays() throws InterruptedException {
        start();
        watching.interrupt();
        join();
        assertTrue(wasInterrupted, "the flag is gone");
    }

    @Test
    void aThreadThatIsInterruptedAlreadyWatchesNothing() {
        Thread.currentThread().interrupt();
        watcher.startWatching(new int[] {-1, -1}, listener());
        assertTrue(Thread.interrupted(), "the flag is gone");
        assertEquals(20, isIdle.getCount(), "a batch came");
    }

    @Test
    void aListenerMayStopItsWatch() {
        int[] calls = new int[1];
        watcher.startWatching(new int[] {-1, -1}, (count, timestamps, wires, others) -> {
            ++calls[0];
            watcher.stop();
            return 0;
        });
        assertEquals(1, calls[0]);
    }

    @Test
    void aCloseOnAnotherThreadStopsTheWatchWaitsForItAndFrees() throws InterruptedException {
        start();
        watcher.close();
        join();
        assertEquals(JNITboErrorCodes.NULL_POINTER_ERROR, assertThrows(JNITboException.class,
                () -> watcher.startWatching(new int[] {-1, -1}, listener())).getErrorCode());
        table.close();
    }

    @Test
    void theTablesOfAWatchAreRefusedToOtherThreadsUntilItEnds() throws InterruptedException {
        JNITboMessageTableIterator iterator = table.getMessages(new RawConditions());
        start();
        assertThrows(IllegalStateException.class, table::getLastUniformMessageId);
        assertThrows(IllegalStateException.class, table::close);
        assertThrows(IllegalStateException.class, other::drop);
        assertThrows(IllegalStateException.class, iterator::next);
        assertThrows(IllegalStateException.class, iterator::close);
        assertThrows(IllegalStateException.class,
                () -> watcher.startWatching(new int[] {-1, -1}, listener()), "it is watching already");
        try (JNITboMessageWatcher second = JNITboMessageWatcher.open(writer)) {
            store(writer, 4);  // a table of its own on the same file
            second.startWatchingCompact(new int[] {-1}, (count, ids, wires) -> 1);
        }
        watcher.stop();
        join();
        assertEquals(4, table.getLastUniformMessageId());
        iterator.close();
    }

    @Test
    void hundredsOfStopsAtAnyMomentEndTheirWatches() throws InterruptedException {
        Random random = new Random(TestRun.seed());
        for (int i = 0; i < 300; ++i) {
            Thread watched = new Thread(() -> {
                try {
                    watcher.startWatching(new int[] {-1, -1}, (count, timestamps, wires, others) -> 0);
                } catch (Throwable thrown) {
                    end.compareAndSet(null, thrown);
                }
            });
            watched.start();
            for (int pause = random.nextInt(20_000); pause > 0; --pause) {
                Thread.onSpinWait();
            }
            while (watched.isAlive()) {
                if (i % 3 == 0) {
                    watched.interrupt();
                } else {
                    watcher.stop();
                }
                watched.join(5);
            }
            assertEquals(null, end.get());
        }
    }
}
