package com.corvane.kestrova.engine.tabulo.jni;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;
import static org.junit.jupiter.api.Assertions.assertThrows;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.corvane.kestrova.engine.tabulo.store.Direction;
import com.corvane.kestrova.engine.tabulo.store.MessageStore;
import com.corvane.kestrova.engine.tabulo.store.Reconciliation;
import com.corvane.kestrova.engine.tabulo.store.SessionNumbers;
import com.corvane.kestrova.engine.tabulo.store.TabuloException;
import com.corvane.kestrova.engine.tabulo.store.TabuloLockedException;
import java.util.OptionalInt;
import org.junit.jupiter.api.AfterEach;
import org.junit.jupiter.api.BeforeEach;
import org.junit.jupiter.api.Test;

/** A session's numbers, and what they and the message table say of each other. */
class ReconcileTest extends OnStores {
    private MessageStore store;
    private SessionNumbers numbers;

    @BeforeEach
    void open() {
        store = orders();
        numbers = SessionNumbers.openWriter(directory.resolve("orders.session"));
    }

    @AfterEach
    void close() {
        numbers.close();
    }

    private void sent(int seqNum) {
        store.append().sent().type("D").seqNum(seqNum).store();
    }

    private void assertSide(Reconciliation.Ahead ahead, int message, int kept, String reason) {
        Reconciliation.Side side = store.reconcile(numbers).sent();
        assertEquals(ahead, side.ahead(), side::toString);
        assertEquals(message, side.message().orElse(0));
        assertEquals(kept, side.kept().orElse(0));
        assertEquals(message, side.last());
        assertTrue(side.reason().contains(reason), side::reason);
        assertEquals(ahead == Reconciliation.Ahead.NEITHER, store.reconcile(numbers).isEven());
    }

    @Test
    void whatIsKeptComesBackAlsoAfterARestartAndBesideTheWriter() {
        assertEquals(OptionalInt.empty(), numbers.last(Direction.SENT));
        numbers.keep(Direction.SENT, 7);
        numbers.keep(Direction.RECEIVED, 9);
        try (SessionNumbers reader = SessionNumbers.openReader(numbers.path())) {
            assertEquals(OptionalInt.of(7), reader.last(Direction.SENT));
            numbers.keep(Direction.SENT, 8);
            assertEquals(OptionalInt.of(8), reader.last(Direction.SENT));
            assertFails(TabuloException.class, "READ_ONLY_ERROR", () -> reader.keep(Direction.SENT, 9));
        }
        numbers.close();
        assertFails(TabuloException.class, "TABLE_CLOSED_ERROR", () -> numbers.keep(Direction.SENT, 1));
        numbers = SessionNumbers.openWriter(numbers.path());
        assertEquals(OptionalInt.of(8), numbers.last(Direction.SENT));
        assertEquals(OptionalInt.of(9), numbers.last(Direction.RECEIVED));
        assertThrows(IllegalArgumentException.class, () -> numbers.keep(Direction.SENT, -1));
        assertFails(TabuloLockedException.class, "FILE_OPEN_ERROR", () -> SessionNumbers.openWriter(numbers.path()));
        assertFails(TabuloException.class, "TABLE_TYPE_ERROR", () -> SessionNumbers.openReader(file()));
    }

    @Test
    void anEmptySessionIsEven() {
        assertSide(Reconciliation.Ahead.NEITHER, 0, 0, "nothing is stored");
    }

    @Test
    void aSessionWhoseNumbersWereKeptIsEven() {
        sent(1);
        numbers.keep(Direction.SENT, 1);
        assertSide(Reconciliation.Ahead.NEITHER, 1, 1, "both end with 1");
    }

    @Test
    void aMessageWhoseNumberIsNotKeptPutsTheTableAhead() {
        sent(1);
        assertSide(Reconciliation.Ahead.MESSAGES, 1, 0, "the process ended between the two");
        numbers.keep(Direction.SENT, 1);
        sent(2);
        sent(3);
        assertSide(Reconciliation.Ahead.MESSAGES, 3, 1, "the messages from 2 to 3");
    }

    @Test
    void aNumberWhoseMessageIsNotStoredPutsTheNumbersAhead() {
        sent(1);
        numbers.keep(Direction.SENT, 2);
        assertSide(Reconciliation.Ahead.NUMBERS, 1, 2, "is not the last");
    }

    @Test
    void aSequenceThatBeganAnewIsToldFromALostMessage() {
        sent(1);
        sent(2);
        numbers.keep(Direction.SENT, 2);
        sent(1);
        assertSide(Reconciliation.Ahead.MESSAGES, 1, 2, "begins the sequence anew");
        sent(2);
        numbers.keep(Direction.SENT, 3);
        assertSide(Reconciliation.Ahead.NUMBERS, 2, 3, "kept before messages");
    }

    @Test
    void theDirectionsAreComparedEachForItself() {
        sent(5);
        numbers.keep(Direction.SENT, 5);
        store.append().received().type("8").seqNum(3).store();
        Reconciliation found = store.reconcile(numbers);
        assertEquals(Reconciliation.Ahead.NEITHER, found.sent().ahead());
        assertEquals(Reconciliation.Ahead.MESSAGES, found.received().ahead());
        assertFalse(found.isEven());
        found.correct(numbers);
        assertEquals(OptionalInt.of(3), numbers.last(Direction.RECEIVED));
        assertTrue(store.reconcile(numbers).isEven());
    }

    @Test
    void messagesSentAgainAndOutOfSequenceDoNotCount() {
        sent(5);
        numbers.keep(Direction.SENT, 5);
        store.append().resent().type("D").seqNum(2).store();
        store.append().sent().type("D").seqNum(9).outOfSequence(true).store();
        assertTrue(store.reconcile(numbers).isEven());
    }
}
