package com.corvane.kestrova.engine.tabulo.jni;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;
import static org.junit.jupiter.api.Assertions.assertThrows;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.corvane.kestrova.engine.tabulo.MessageClass;
import com.corvane.kestrova.engine.tabulo.NumericFieldFilter;
import com.corvane.kestrova.engine.tabulo.StringFieldFilter;
import com.corvane.kestrova.engine.tabulo.store.Append;
import com.corvane.kestrova.engine.tabulo.store.Direction;
import com.corvane.kestrova.engine.tabulo.store.MessageStore;
import com.corvane.kestrova.engine.tabulo.store.Query;
import com.corvane.kestrova.engine.tabulo.store.StoredMessage;
import com.corvane.kestrova.engine.tabulo.store.TabuloDamagedException;
import com.corvane.kestrova.engine.tabulo.store.TabuloException;
import java.io.IOException;
import java.io.RandomAccessFile;
import java.nio.charset.StandardCharsets;
import java.time.Instant;
import java.util.ArrayList;
import java.util.Collections;
import java.util.Iterator;
import java.util.List;
import java.util.NoSuchElementException;
import java.util.OptionalInt;
import java.util.function.Predicate;
import java.util.stream.Stream;
import org.junit.jupiter.api.BeforeEach;
import org.junit.jupiter.api.Test;

/** What is asked of a store, beside what a look at every message gives. */
class StoreQueryTest extends OnStores {
    private static final int MESSAGES = 2500;

    private MessageStore store;
    private List<StoredMessage> stored;

    @BeforeEach
    void storeMessages() {
        store = orders();
        for (int i = 1; i <= MESSAGES; ++i) {
            Append message = store.append().type(i % 7 == 0 ? "0" : i % 3 == 0 ? "8" : "D").time(NOON.plusMillis(i))
                    .possDup(i % 11 == 0).outOfSequence(i % 13 == 0).wire("wire " + i);
            if (i % 5 != 0) {
                message.text("ClOrdID", "order-" + i / 3).number("OrderQty", i);
            }
            if (i % 17 == 0) {
                message.resent().seqNum(i / 4 + 1);
            } else if (i % 2 == 0) {
                message.sent().seqNum(i / 2);
            } else {
                message.received().seqNum(i / 2 + 1);
            }
            message.store();
        }
        stored = all(store);
        assertEquals(MESSAGES, stored.size());
    }

    private void assertAnswer(Predicate<StoredMessage> condition, Query query) {
        List<StoredMessage> expected = stored.stream().filter(condition).toList();
        assertFalse(expected.isEmpty() || expected.size() == MESSAGES, "the question tells nothing: " + query);
        assertEquals(expected, all(store, query), query::toString);
        List<StoredMessage> reversed = new ArrayList<>(expected);
        Collections.reverse(reversed);
        assertEquals(reversed, all(store, query.backward()), query + ", backward");
    }

    private static boolean isOf(Direction direction, StoredMessage message) {
        MessageClass messageClass = message.messageClass();
        return direction == Direction.SENT
                ? messageClass == MessageClass.APP_TO || messageClass == MessageClass.ADMIN_TO
                : messageClass == MessageClass.APP_FROM || messageClass == MessageClass.ADMIN_FROM;
    }

    @Test
    void everyConditionSelectsWhatItSays() {
        assertAnswer(m -> isOf(Direction.SENT, m), Query.all().sent());
        assertAnswer(m -> isOf(Direction.RECEIVED, m), Query.all().received());
        assertAnswer(m -> m.messageClass() == MessageClass.RESENT, Query.all().classes(MessageClass.RESENT));
        assertAnswer(m -> m.seqNum() >= 100 && m.seqNum() <= 700, Query.all().seqNums(100, 700));
        assertAnswer(m -> m.seqNum() >= 1000, Query.all().seqNumsFrom(1000));
        assertAnswer(m -> m.id() >= 5 && m.id() <= 900, Query.all().ids(5, 900));
        assertAnswer(m -> m.uniformId() >= 1200, Query.all().uniformIdsFrom(1200));
        assertAnswer(m -> m.type().equals("8") || m.type().equals("0"), Query.all().types("8", "0"));
        assertAnswer(m -> !m.type().equals("0"), Query.all().withoutTypes("0"));
        assertAnswer(StoredMessage::possDup, Query.all().possDup(true));
        assertAnswer(m -> !m.possDup(), Query.all().possDup(false));
        assertAnswer(StoredMessage::outOfSequence, Query.all().outOfSequence(true));
        assertAnswer(m -> !m.outOfSequence(), Query.all().outOfSequence(false));
        assertAnswer(m -> m.text("ClOrdID").orElse("").equals("order-321"), Query.all().text("ClOrdID", "order-321"));
        assertAnswer(m -> m.text("ClOrdID").isEmpty(),
                Query.all().text("ClOrdID", StringFieldFilter.anyOf().orAbsent()));
        assertAnswer(m -> m.number("OrderQty").map(n -> n.longValue() > 40 && n.longValue() < 90).orElse(false),
                Query.all().number("OrderQty", NumericFieldFilter.betweenLongs(40, 90)));
    }

    @Test
    void conditionsNarrowEachOther() {
        Instant from = NOON.plusMillis(900);
        Instant until = NOON.plusMillis(2100);
        assertAnswer(m -> isOf(Direction.SENT, m) && m.type().equals("D") && !m.time().isBefore(from)
                && !m.time().isAfter(until), Query.all().sent().types("D").from(from).until(until));
    }

    @Test
    void timesBetweenTwoOfTheUnitSelectWhatLiesBetween() {
        Instant between = NOON.plusMillis(1000).plusNanos(1);
        assertAnswer(m -> !m.time().isBefore(between), Query.all().from(between));
        assertAnswer(m -> !m.time().isAfter(between), Query.all().until(between));
    }

    @Test
    void theFirstMomentOf1970IsATimeAsOthers() {
        MessageStore old = opened(MessageStore.create(directory.resolve("old"), ORDERS));
        for (int i = -2; i <= 2; ++i) {
            old.append().sent().type("D").seqNum(i + 3).timestamp(i).store();
        }
        assertEquals(List.of(3, 4, 5), seqNums(old.query(Query.all().from(Instant.EPOCH))));
        assertEquals(List.of(1, 2, 3), seqNums(old.query(Query.all().until(Instant.EPOCH))));
        assertEquals(List.of(4, 5), seqNums(old.query(Query.all().from(Instant.EPOCH.plusNanos(1)))));
        assertEquals(List.of(3), seqNums(old.query(Query.all().from(Instant.EPOCH).until(Instant.EPOCH))));
    }

    @Test
    void aResendRequestIsAnsweredWithWhatWasSentTheFirstTime() {
        List<StoredMessage> expected = stored.stream()
                .filter(m -> isOf(Direction.SENT, m) && m.seqNum() >= 300 && m.seqNum() <= 310).toList();
        try (Stream<StoredMessage> answer = store.resend(300, 310)) {
            assertEquals(expected, answer.toList());
        }
        assertEquals(stored.stream().filter(m -> isOf(Direction.SENT, m) && m.seqNum() >= 1200)
                .map(StoredMessage::seqNum).toList(), seqNums(store.resend(1200, 0)));
        assertThrows(IllegalArgumentException.class, () -> store.resend(10, 9));
    }

    @Test
    void aStreamSeesWhatIsStoredWhileItIsRead() {
        Iterator<StoredMessage> messages = store.iterator();
        for (int i = 0; i < MESSAGES; ++i) {
            messages.next();
        }
        numbered(store, 9999).store();
        assertEquals(9999, messages.next().seqNum());
        assertFalse(messages.hasNext());
        assertThrows(NoSuchElementException.class, messages::next);
    }

    @Test
    void whatIsNotReadToItsEndIsClosedByTheStreamOrTheStore() {
        Stream<StoredMessage> stream = store.query(Query.all());
        Iterator<StoredMessage> messages = stream.iterator();
        messages.next();
        stream.close();
        assertFalse(messages.hasNext() && messages.next() != null && messages.hasNext());
        Iterator<StoredMessage> left = store.iterator();
        left.next();
        store.close();
        assertFails(TabuloException.class, "ITERATOR_CLOSED_ERROR", left::hasNext);
        assertFails(TabuloException.class, "TABLE_CLOSED_ERROR", () -> store.query(Query.all()));
        assertFails(TabuloException.class, "TABLE_CLOSED_ERROR", () -> numbered(store, 1).store());
        assertFails(TabuloException.class, "TABLE_CLOSED_ERROR", store::lastUniformId);
        store.close();
    }

    @Test
    void aReaderBesideTheWriterSeesEachMessage() {
        MessageStore reader = opened(MessageStore.openReader(file()));
        assertEquals(stored, all(reader));
        numbered(store, 4711).store();
        assertEquals(4711, all(reader).get(MESSAGES).seqNum());
        assertEquals(store.lastUniformId(), reader.lastUniformId());
        assertEquals(store.lastSeqNum(Direction.SENT), reader.lastSeqNum(Direction.SENT));
    }

    @Test
    void aFieldThatTheTableDoesNotHaveIsRefused() {
        assertThrows(IllegalArgumentException.class, () -> store.query(Query.all().text("Account", "A")));
        assertThrows(IllegalArgumentException.class,
                () -> store.query(Query.all().number("Symbol", NumericFieldFilter.anyOfLongs(1))));
        assertThrows(IllegalArgumentException.class, () -> Query.all().classes());
        assertThrows(IllegalArgumentException.class, () -> Query.all().ids(0, MessageClass.APP_FROM.firstId()));
        assertThrows(IllegalArgumentException.class, () -> Query.all().seqNums(2, 1));
    }

    @Test
    void lookUpsTellTheLastOfEachKind() {
        for (MessageStore each : List.of(store, opened(MessageStore.openReader(file())))) {
            for (MessageClass messageClass : MessageClass.values()) {
                assertEquals(stored.stream().filter(m -> m.messageClass() == messageClass).mapToInt(StoredMessage::id)
                        .reduce((first, second) -> second), each.lastId(messageClass), messageClass::toString);
            }
            for (Direction direction : Direction.values()) {
                assertEquals(stored.stream().filter(m -> isOf(direction, m) && !m.outOfSequence())
                        .mapToInt(StoredMessage::seqNum).reduce((first, second) -> second),
                        each.lastSeqNum(direction), direction::toString);
            }
            assertEquals(OptionalInt.of(MESSAGES), each.lastUniformId());
        }
    }

    @Test
    void lookUpsOfAnEmptyTableAreEmptyAndTheFirstMessageOfAClassIsNoted() {
        MessageStore empty = opened(MessageStore.create(directory.resolve("empty"), ORDERS));
        MessageStore reader = opened(MessageStore.openReader(empty.path()));
        for (MessageStore each : List.of(empty, reader)) {
            assertEquals(OptionalInt.empty(), each.lastUniformId());
            assertEquals(OptionalInt.empty(), each.lastSeqNum(Direction.SENT));
            assertEquals(OptionalInt.empty(), each.lastId(MessageClass.APP_TO));
        }
        numbered(empty, 5).store();
        for (MessageStore each : List.of(empty, reader)) {
            assertEquals(OptionalInt.of(5), each.lastSeqNum(Direction.SENT));
            assertEquals(OptionalInt.empty(), each.lastSeqNum(Direction.RECEIVED));
            assertEquals(OptionalInt.of(0), each.lastId(MessageClass.APP_TO));
            assertEquals(OptionalInt.empty(), each.lastId(MessageClass.RESENT));
        }
        empty.close();
        try (MessageStore again = MessageStore.openWriter(empty.path())) {
            assertEquals(OptionalInt.of(0), again.lastId(MessageClass.APP_TO), "the id 0 is an id, and not none");
            assertEquals(1, numbered(again, 6).store());
        }
    }

    @Test
    void theNumbersOfAWriterFollowWhatItStores() {
        assertTrue(store.lastSeqNum(Direction.SENT).isPresent());
        store.append().sent().type("D").seqNum(5000).store();
        assertEquals(OptionalInt.of(5000), store.lastSeqNum(Direction.SENT));
        store.append().sent().type("D").seqNum(6000).outOfSequence(true).store();
        store.append().resent().type("D").seqNum(7000).store();
        assertEquals(OptionalInt.of(5000), store.lastSeqNum(Direction.SENT));
        store.append().sent().type("4").seqNum(1).store();
        assertEquals(OptionalInt.of(1), store.lastSeqNum(Direction.SENT), "the newest, not the highest");
    }

    @Test
    void messagesInFrontOfADamageComeBeforeItIsTold() throws IOException {
        store.close();
        try (RandomAccessFile bytes = new RandomAccessFile(file().toFile(), "rw")) {
            byte[] whole = new byte[(int) bytes.length()];
            bytes.readFully(whole);
            int place = new String(whole, StandardCharsets.ISO_8859_1).indexOf("wire 500\0");
            bytes.seek(place - 4);
            bytes.writeInt(-1);
        }
        MessageStore damaged = opened(MessageStore.openReader(file()));
        List<StoredMessage> found = new ArrayList<>();
        assertThrows(TabuloDamagedException.class, () -> damaged.forEach(found::add));
        assertEquals(stored.subList(0, 499), found);
    }
}
