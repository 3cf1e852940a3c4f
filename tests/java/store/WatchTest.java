package com.corvane.kestrova.engine.tabulo.jni;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;
import static org.junit.jupiter.api.Assertions.assertSame;
import static org.junit.jupiter.api.Assertions.assertThrows;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.corvane.kestrova.engine.tabulo.TableConfiguration;
import com.corvane.kestrova.engine.tabulo.store.MessageStore;
import com.corvane.kestrova.engine.tabulo.store.StoredMessage;
import com.corvane.kestrova.engine.tabulo.store.TabuloException;
import com.corvane.kestrova.engine.tabulo.store.UniformIds;
import com.corvane.kestrova.engine.tabulo.store.Watch;
import com.corvane.kestrova.engine.tabulo.store.WatchState;
import java.io.IOException;
import java.io.UncheckedIOException;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.List;
import java.util.Map;
import java.util.concurrent.BlockingQueue;
import java.util.concurrent.CompletionException;
import java.util.concurrent.CountDownLatch;
import java.util.concurrent.ExecutorService;
import java.util.concurrent.Executors;
import java.util.concurrent.LinkedBlockingQueue;
import java.util.concurrent.RejectedExecutionException;
import java.util.concurrent.TimeUnit;
import org.junit.jupiter.api.AfterEach;
import org.junit.jupiter.api.BeforeEach;
import org.junit.jupiter.api.Test;

/** Watches of several stores. */
class WatchTest extends OnStores {
    private static final int LONGEST_WAIT = 60;

    private final BlockingQueue<Delivered> delivered = new LinkedBlockingQueue<>();
    private ExecutorService executor;
    private MessageStore first;
    private MessageStore second;

    private record Delivered(MessageStore store, StoredMessage message) {
    }

    @BeforeEach
    void open() {
        executor = Executors.newCachedThreadPool();
        UniformIds ids = new UniformIds();
        first = orders().useIds(ids);
        second = opened(MessageStore.create(directory.resolve("second"), ORDERS)).useIds(ids);
    }

    @AfterEach
    void shutDown() throws InterruptedException {
        executor.shutdownNow();
        assertTrue(executor.awaitTermination(LONGEST_WAIT, TimeUnit.SECONDS), "a watch does not end");
    }

    /** Stores in turns that are not regular, numbered by the uniform ids to come. */
    private void store(int from, int to) {
        for (int id = from; id <= to; ++id) {
            numbered(id % 3 == 0 ? second : first, id).store();
        }
    }

    private Watch.Builder both() {
        return Watch.of(first, second);
    }

    private void take(MessageStore store, StoredMessage message) {
        delivered.add(new Delivered(store, message));
    }

    private void assertDelivers(int from, int to) throws InterruptedException {
        for (int id = from; id <= to; ++id) {
            Delivered next = delivered.poll(LONGEST_WAIT, TimeUnit.SECONDS);
            assertEquals(id, next == null ? 0 : next.message().uniformId());
            assertSame(id % 3 == 0 ? second : first, next.store());
            assertEquals(next.store().name(), next.message().table());
            assertEquals("wire " + id, next.message().wireText());
            assertEquals("order-" + id, next.message().text("ClOrdID").orElseThrow());
            assertEquals(id, next.message().seqNum());
        }
    }

    @Test
    void theMessagesOfSeveralStoresComeInTheOrderOfTheirIdsWithTheirStores() throws InterruptedException {
        store(1, 2500);
        Watch watch = both().start(executor, this::take);
        assertDelivers(1, 2500);
        store(2501, 3600);  // while it is watching
        assertDelivers(2501, 3600);
        assertFalse(watch.isDone());
        watch.close();
        assertTrue(watch.isDone());
        watch.await();
        assertEquals(Map.of("orders", 3599, "second", 3600), watch.state().lastIds());
        assertTrue(delivered.isEmpty());
    }

    @Test
    void aWatchBeginsWithAnId() throws InterruptedException {
        store(1, 1500);
        try (Watch watch = both().fromId(1234).start(executor, this::take)) {
            assertDelivers(1234, 1500);
            assertEquals(2, watch.state().lastIds().size());
        }
        assertThrows(IllegalArgumentException.class, () -> both().fromId(0));
    }

    @Test
    void aSavedStateLetsALaterWatchGoOnBehindTheLastMessage() throws InterruptedException {
        Path file = directory.resolve("state");
        store(1, 100);
        assertEquals(WatchState.none(), WatchState.load(file));
        for (int run = 0; run < 4; ++run) {
            int last = 25 + 25 * run;
            CountDownLatch enough = new CountDownLatch(1);
            Watch[] self = new Watch[1];
            CountDownLatch isKnown = new CountDownLatch(1);
            self[0] = both().from(WatchState.load(file)).start(executor, (store, message) -> {
                isKnown.await();
                take(store, message);
                if (message.uniformId() == last) {
                    self[0].stop();
                    enough.countDown();
                }
            });
            isKnown.countDown();
            assertTrue(enough.await(LONGEST_WAIT, TimeUnit.SECONDS));
            self[0].await();
            assertDelivers(last - 24, last);
            assertTrue(delivered.isEmpty(), "behind a stop nothing is delivered");
            self[0].state().save(file);
            assertEquals(self[0].state(), WatchState.load(file));
        }
        assertEquals(Map.of("orders", 100, "second", 99), WatchState.load(file).lastIds());
    }

    @Test
    void aStopReachesAWatchThatPauses() throws InterruptedException {
        store(1, 1);
        Watch watch = both().start(executor, this::take);
        assertDelivers(1, 1);
        Thread.sleep(400);  // now it sleeps between two looks, for longer and longer
        watch.stop();
        watch.stop();
        watch.await();
        assertTrue(watch.isDone());
        watch.close();
    }

    @Test
    void aWatchThatIsStoppedBeforeItsThreadBeginsDeliversNothing() throws InterruptedException {
        store(1, 10);
        List<Runnable> later = new ArrayList<>();
        Watch watch = both().start(later::add, this::take);
        watch.stop();
        later.get(0).run();
        watch.await();
        assertTrue(delivered.isEmpty());
    }

    @Test
    void whatTheListenerThrowsEndsTheWatchAndIsTold() throws InterruptedException {
        store(1, 10);
        Watch watch = both().start(executor, (store, message) -> {
            take(store, message);
            if (message.uniformId() == 4) {
                throw new IOException("on purpose");
            }
        });
        CompletionException thrown = assertThrows(CompletionException.class, watch::await);
        assertEquals("on purpose", thrown.getCause().getMessage());
        assertDelivers(1, 4);
        assertTrue(delivered.isEmpty());
        assertEquals(Map.of("orders", 2, "second", 3), watch.state().lastIds(), "the fourth is not done with");
        watch.close();
    }

    @Test
    void theStoresMayBeUsedAndClosedWhileTheyAreWatched() throws InterruptedException {
        store(1, 10);
        MessageStore reader = opened(MessageStore.openReader(file()));
        try (Watch watch = Watch.of(reader).start(executor, this::take)) {
            reader.close();
            for (int i = 0; i < 7; ++i) {
                assertSame(reader, delivered.poll(LONGEST_WAIT, TimeUnit.SECONDS).store());
            }
            assertEquals(10, all(first).size() + all(second).size());
            numbered(first, 11).store();
            assertEquals(11, delivered.poll(LONGEST_WAIT, TimeUnit.SECONDS).message().seqNum());
            assertFalse(watch.isDone());
        }
    }

    @Test
    void aListenerMayCloseItsOwnWatch() throws InterruptedException {
        store(1, 3);
        Watch[] self = new Watch[1];
        CountDownLatch isKnown = new CountDownLatch(1);
        self[0] = both().start(executor, (store, message) -> {
            isKnown.await();
            take(store, message);
            self[0].close();
        });
        isKnown.countDown();
        self[0].await();
        assertEquals(1, delivered.size());
    }

    @Test
    void aTableThatWasEmptiedIsFollowedFromItsBeginning() throws InterruptedException {
        storeNumbered(first, 1, 50);
        first.close();
        try (Watch watch = Watch.of(first).start(executor, this::take)) {
            for (int i = 1; i <= 50; ++i) {
                assertEquals(i, delivered.poll(LONGEST_WAIT, TimeUnit.SECONDS).message().seqNum());
            }
            try (JNITboMessageTable table = JNITboMessageTable.open(
                    TableConfiguration.builder("orders", directory)
                            .stringFields("ClOrdID", "Symbol").numericFields("Price", "OrderQty").build(),
                    JNITboMessageTable.MODE_WRITE)) {
                table.drop();
            }
            storeNumbered(orders(), 101, 103);
            for (int i = 101; i <= 103; ++i) {
                assertEquals(i, delivered.poll(LONGEST_WAIT, TimeUnit.SECONDS).message().seqNum());
            }
            assertFalse(watch.isDone());
        }
    }

    @Test
    void whatCannotBeWatchedIsRefusedAndLeavesNoFileOpen() throws IOException {
        assertThrows(IllegalArgumentException.class, Watch::of);
        assertThrows(IllegalArgumentException.class, () -> Watch.of(first, first));
        int open = TestRun.descriptorsBelow(directory);
        assertThrows(RejectedExecutionException.class, () -> both().start(task -> {
            throw new RejectedExecutionException("on purpose");
        }, this::take));
        assertEquals(open, TestRun.descriptorsBelow(directory));
        Files.delete(second.path());
        assertFails(TabuloException.class, "FILE_OPEN_ERROR", () -> both().start(executor, this::take));
        assertEquals(open, TestRun.descriptorsBelow(directory));
    }

    @Test
    void aFileThatIsNoSavedStateIsRefused() throws IOException {
        for (String text : List.of("x orders\n", "17\n", "\n")) {
            Path file = Files.writeString(directory.resolve("state"), text);
            assertThrows(UncheckedIOException.class, () -> WatchState.load(file), text);
        }
        WatchState state = new WatchState(Map.of("a table", 1, "b", -1));
        state.save(directory.resolve("state"));
        assertEquals(state, WatchState.load(directory.resolve("state")));
    }
}
