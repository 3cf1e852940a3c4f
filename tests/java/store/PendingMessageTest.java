package com.corvane.kestrova.engine.tabulo.jni;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertThrows;

import com.corvane.kestrova.engine.tabulo.MessageClass;
import com.corvane.kestrova.engine.tabulo.store.Append;
import com.corvane.kestrova.engine.tabulo.store.Direction;
import com.corvane.kestrova.engine.tabulo.store.MessageStore;
import com.corvane.kestrova.engine.tabulo.store.PendingMessage;
import com.corvane.kestrova.engine.tabulo.store.Query;
import com.corvane.kestrova.engine.tabulo.store.StoredMessage;
import java.util.List;
import java.util.Map;
import java.util.OptionalInt;
import org.junit.jupiter.api.Test;

/** Messages that are stored before they can be sent. */
class PendingMessageTest extends OnStores {
    private static PendingMessage waiting(MessageStore store, int number) {
        return store.append().type("D").text("ClOrdID", "order-" + number).number("Price", number + 0.5)
                .number("OrderQty", Long.MAX_VALUE - number).text0("here").wire("waiting " + number).pending();
    }

    private static List<Integer> numbers(MessageStore store) {
        return store.pending().stream().map(PendingMessage::number).toList();
    }

    @Test
    void aMessageWaitsAndIsSentInOneChain() {
        MessageStore store = orders();
        int id = waiting(store, 1).send().seqNum(8).time(NOON).wire("sent 1").store();
        List<StoredMessage> all = all(store);
        assertEquals(List.of(-1, 8), all.stream().map(StoredMessage::seqNum).toList());
        StoredMessage sent = all.get(1);
        assertEquals(1, id);
        assertEquals(-1, sent.prevSeqNum());
        assertEquals(NOON, sent.time());
        assertEquals("sent 1", sent.wireText());
        assertEquals(MessageClass.APP_TO, sent.messageClass());
        assertEquals(Map.of("ClOrdID", "order-1"), sent.texts());
        assertEquals(Map.of("Price", 1.5, "OrderQty", Long.MAX_VALUE - 1), sent.numbers());
        assertEquals(all.get(0).text0(), sent.text0());
        assertEquals(OptionalInt.of(8), store.lastSeqNum(Direction.SENT));
        assertEquals(List.of(), store.pending());
    }

    @Test
    void whatWaitsIsTheMessageThatWasStored() {
        MessageStore store = orders();
        PendingMessage pending = waiting(store, 1);
        assertEquals(all(store).get(0), pending.message());
        assertEquals(all(store).get(0), store.pending().get(0).message());
    }

    @Test
    void theNumbersOfThoseThatWaitCountDownAndGoOnAfterARestart() {
        try (MessageStore store = MessageStore.openOrCreate(file(), ORDERS)) {
            for (int i = 1; i <= 3; ++i) {
                assertEquals(-i, waiting(store, i).number());
            }
            store.pending().get(0).send().seqNum(1).store();
        }
        MessageStore store = orders();
        assertEquals(List.of(-2, -3), numbers(store));
        try (MessageStore reader = MessageStore.openReader(file())) {
            assertEquals(List.of(-2, -3), numbers(reader));
        }
        assertEquals(-4, waiting(store, 4).number());
        for (PendingMessage pending : store.pending()) {
            pending.send().seqNum(-pending.number()).store();
        }
        assertEquals(List.of(), numbers(store));
        assertEquals(List.of(1, 2, 3, 4), seqNums(store.query(Query.all().seqNumsFrom(1))));
    }

    @Test
    void aMessageIsSentOnceAndInItsTurn() {
        MessageStore store = orders();
        PendingMessage first = waiting(store, 1);
        PendingMessage second = waiting(store, 2);
        assertThrows(IllegalStateException.class, second::send, "before the first");
        Append begun = first.send().seqNum(1);
        Append begunAgain = first.send().seqNum(2);
        begun.store();
        assertThrows(IllegalStateException.class, begunAgain::store, "a second time");
        assertThrows(IllegalStateException.class, first::send, "a third time");
        second.send().seqNum(2).store();
        assertEquals(4, all(store).size());
    }

    @Test
    void aMessageWithANumberDoesNotWait() {
        MessageStore store = orders();
        assertThrows(IllegalStateException.class, () -> store.append().type("D").seqNum(1).pending());
        assertThrows(IllegalStateException.class, () -> store.append().pending());
        assertThrows(IllegalStateException.class, () -> waiting(store, 1).send().received());
    }
}
