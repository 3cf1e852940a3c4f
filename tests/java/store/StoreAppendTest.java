package com.corvane.kestrova.engine.tabulo.jni;

import static org.junit.jupiter.api.Assertions.assertArrayEquals;
import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertNotSame;
import static org.junit.jupiter.api.Assertions.assertThrows;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.corvane.kestrova.engine.tabulo.MessageClass;
import com.corvane.kestrova.engine.tabulo.TableConfiguration;
import com.corvane.kestrova.engine.tabulo.store.Append;
import com.corvane.kestrova.engine.tabulo.store.FrameEncoder;
import com.corvane.kestrova.engine.tabulo.store.Layout;
import com.corvane.kestrova.engine.tabulo.store.MessageStore;
import com.corvane.kestrova.engine.tabulo.store.StoredMessage;
import com.corvane.kestrova.engine.tabulo.store.TabuloException;
import com.corvane.kestrova.engine.tabulo.store.UniformIds;
import java.time.Instant;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.HashSet;
import java.util.List;
import java.util.Map;
import java.util.Optional;
import java.util.Set;
import java.util.concurrent.TimeUnit;
import java.util.stream.IntStream;
import org.junit.jupiter.api.Test;

/** Messages that are stored with one call, and come back. */
class StoreAppendTest extends OnStores {
    @Test
    void aMessageComesBackAsItWasStored() {
        byte[] wire = {'3', '5', '=', 0, 1, (byte) 0xFF};
        MessageStore store = orders();
        int id = store.append().received().seqNum(7).time(NOON).type("8").possDup(true).outOfSequence(true)
                .text0("here").text1("there").text("ClOrdID", "A1\u00e9").number("Price", 10.5)
                .number("OrderQty", Long.MAX_VALUE).wire(wire).nonMetadata(new byte[] {9}).store();
        StoredMessage message = all(store).get(0);
        assertEquals(MessageClass.APP_FROM.firstId(), id);
        assertEquals(new StoredMessage("orders", 1, id, MessageClass.APP_FROM, 7, 0, NOON, "8", true, true,
                Optional.of("here"), Optional.of("there"), Map.of("ClOrdID", "A1\u00e9"),
                Map.of("Price", 10.5, "OrderQty", Long.MAX_VALUE), wire, new byte[] {9}), message);
        assertEquals(Optional.of("A1\u00e9"), message.text("ClOrdID"));
        assertEquals(Optional.empty(), message.text("Symbol"));
        assertEquals(Optional.of(10.5), message.number("Price"));
    }

    @Test
    void whatIsNotGivenIsAbsent() {
        MessageStore store = orders();
        Instant before = Instant.now();
        store.append().sent().type("D").store();
        StoredMessage message = all(store).get(0);
        assertEquals(0, message.seqNum());
        assertEquals(Map.of(), message.texts());
        assertEquals(Map.of(), message.numbers());
        assertEquals(Optional.empty(), message.text0());
        assertEquals(0, message.wire().length);
        assertTrue(!message.time().isBefore(before.minusMillis(1)) && !message.time().isAfter(Instant.now()),
                "the time is that of its storing, and not " + message.time());
    }

    @Test
    void aStoredMessageCannotBeChangedThroughItsArrays() {
        MessageStore store = orders();
        numbered(store, 1).store();
        StoredMessage message = all(store).get(0);
        assertNotSame(message.wire(), message.wire());
        message.wire()[0] = 'X';
        assertEquals("wire 1", message.wireText());
        assertTrue(message.wireBuffer().isReadOnly());
        assertThrows(UnsupportedOperationException.class, () -> message.texts().clear());
        assertThrows(UnsupportedOperationException.class, () -> message.numbers().clear());
    }

    @Test
    void theClassComesFromTheDirectionAndTheType() {
        MessageStore store = orders();
        for (String admin : List.of("0", "1", "2", "3", "4", "5", "A")) {
            store.append().sent().type(admin).store();
            store.append().received().type(admin).store();
        }
        for (String application : List.of("D", "8", "6", "AE", "00")) {
            store.append().sent().type(application).store();
            store.append().received().type(application).store();
        }
        store.append().resent().type("D").store();
        store.append().messageClass(MessageClass.APP_TO).type("0").store();
        List<MessageClass> classes = all(store).stream().map(StoredMessage::messageClass).toList();
        for (int i = 0; i < 14; ++i) {
            assertEquals(i % 2 == 0 ? MessageClass.ADMIN_TO : MessageClass.ADMIN_FROM, classes.get(i), "message " + i);
        }
        for (int i = 14; i < 24; ++i) {
            assertEquals(i % 2 == 0 ? MessageClass.APP_TO : MessageClass.APP_FROM, classes.get(i), "message " + i);
        }
        assertEquals(List.of(MessageClass.RESENT, MessageClass.APP_TO), classes.subList(24, 26));
    }

    @Test
    void idsCountUpInEachClassAndGoOnAfterTheTableWasOpenedAgain() {
        List<Integer> sent = new ArrayList<>();
        List<Integer> received = new ArrayList<>();
        for (int run = 0; run < 3; ++run) {
            try (MessageStore store = MessageStore.openOrCreate(file(), ORDERS)) {
                for (int i = 0; i < 700; ++i) {
                    sent.add(store.append().sent().type("D").store());
                }
                received.add(store.append().received().type("8").store());
            }
        }
        assertEquals(IntStream.range(0, 2100).boxed().toList(), sent);
        int first = MessageClass.APP_FROM.firstId();
        assertEquals(List.of(first, first + 1, first + 2), received);
        List<StoredMessage> all = all(orders());
        assertEquals(IntStream.rangeClosed(1, 2103).boxed().toList(),
                all.stream().map(StoredMessage::uniformId).toList());
    }

    @Test
    void storesOfOneEngineCountUniformIdsTogether() {
        try (MessageStore earlier = MessageStore.openOrCreate(file(), ORDERS)) {
            storeNumbered(earlier, 1, 5);
        }
        UniformIds ids = new UniformIds();
        MessageStore first = orders().useIds(ids);
        MessageStore second = opened(MessageStore.create(directory.resolve("other"), ORDERS)).useIds(ids);
        for (int i = 0; i < 3; ++i) {
            numbered(second, 1).store();
            numbered(first, 1).store();
        }
        assertEquals(List.of(6, 8, 10), all(second).stream().map(StoredMessage::uniformId).toList());
        assertEquals(List.of(7, 9, 11), all(first).stream().skip(5).map(StoredMessage::uniformId).toList());
        assertEquals(11, ids.last());
    }

    @Test
    void everyUnitOfTimeGivesBackTheTimeAsExactlyAsItCounts() {
        Instant time = Instant.parse("2026-03-02T12:00:00.123456789Z");
        Map<TimeUnit, String> expected = Map.of(TimeUnit.SECONDS, "2026-03-02T12:00:00Z", TimeUnit.MILLISECONDS,
                "2026-03-02T12:00:00.123Z", TimeUnit.MICROSECONDS, "2026-03-02T12:00:00.123456Z", TimeUnit.NANOSECONDS,
                "2026-03-02T12:00:00.123456789Z");
        expected.forEach((unit, text) -> {
            Layout layout = Layout.builder().timeUnit(unit).build();
            try (MessageStore store = MessageStore.create(directory.resolve(unit.name()), layout)) {
                store.append().sent().type("D").time(time).store();
                store.append().sent().type("D").time(Instant.EPOCH.minusNanos(1)).store();
                store.append().sent().type("D").timestamp(Long.MIN_VALUE).store();
                assertEquals(Instant.parse(text), all(store).get(0).time());
                assertTrue(all(store).get(1).time().isBefore(Instant.EPOCH), "before 1970 in " + unit);
                assertEquals(3, all(store).size());
                if (unit != TimeUnit.SECONDS) {
                    assertThrows(IllegalArgumentException.class, () -> store.append().time(Instant.MAX));
                }
            }
        });
    }

    @Test
    void manyThreadsStoreWithoutTearingAMessageOrGivingAnIdTwice() throws InterruptedException {
        MessageStore store = orders();
        int threads = 4;
        int each = 2500;
        Set<Integer> ids = new HashSet<>();
        List<Thread> running = new ArrayList<>();
        for (int t = 0; t < threads; ++t) {
            int from = 1 + t * each;
            Thread thread = new Thread(() -> {
                for (int number = from; number < from + each; ++number) {
                    int id = numbered(store, number).store();
                    synchronized (ids) {
                        ids.add(id);
                    }
                }
            });
            thread.start();
            running.add(thread);
        }
        for (Thread thread : running) {
            thread.join();
        }
        assertEquals(threads * each, ids.size());
        Set<Integer> numbers = new HashSet<>();
        for (StoredMessage message : store) {
            numbers.add(message.seqNum());
            assertEquals("wire " + message.seqNum(), message.wireText());
            assertEquals(Optional.of("order-" + message.seqNum()), message.text("ClOrdID"));
        }
        assertEquals(threads * each, numbers.size());
    }

    @Test
    void aMessageThatIsNotCompleteIsRefusedAndCanBeCompleted() {
        MessageStore store = orders();
        Append append = store.append();
        assertThrows(IllegalStateException.class, append::store, "without a type");
        append.type("D");
        assertThrows(IllegalStateException.class, append::store, "without a direction");
        assertThrows(IllegalArgumentException.class, () -> append.text("Account", "A"));
        assertThrows(IllegalArgumentException.class, () -> append.number("ClOrdID", 1));
        assertThrows(IllegalArgumentException.class, () -> append.seqNum(0));
        assertEquals(0, append.sent().store());
        assertThrows(IllegalStateException.class, append::store, "a second time");
        assertThrows(IllegalStateException.class, () -> append.type("8"), "behind its storing");
        assertEquals(1, all(store).size());
    }

    @Test
    void theIdsOfAClassCanBeUsedUp() {
        byte[] last = frameWithId(MessageClass.APP_TO.lastId());
        try (JNITboMessageTable table = JNITboMessageTable.open(
                TableConfiguration.builder("orders", directory)
                        .stringFields("ClOrdID", "Symbol").numericFields("Price", "OrderQty").build(),
                JNITboMessageTable.MODE_WRITE)) {
            table.writeMessage(last, 0, last.length);
        }
        MessageStore store = orders();
        Append append = store.append().sent().type("D");
        assertThrows(IllegalStateException.class, append::store);
        assertEquals(MessageClass.ADMIN_TO.firstId(), append.type("0").store());
    }

    private static byte[] frameWithId(int connMsgId) {
        var encoder = new FrameEncoder(ORDERS);
        int length = encoder.begin(1, connMsgId).type("D").encode();
        byte[] frame = Arrays.copyOf(encoder.frame(), length);
        assertArrayEquals(frame, Arrays.copyOf(encoder.frame(), encoder.encode()));
        return frame;
    }

    @Test
    void aReaderStoresNothing() {
        numbered(orders(), 1).store();
        try (MessageStore reader = MessageStore.openReader(file())) {
            assertFails(TabuloException.class, "READ_ONLY_ERROR", reader::append);
            assertEquals(1, all(reader).size());
        }
    }
}
