package com.corvane.kestrova.engine.tabulo.jni;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertInstanceOf;
import static org.junit.jupiter.api.Assertions.assertThrows;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.corvane.kestrova.engine.tabulo.store.Append;
import com.corvane.kestrova.engine.tabulo.store.Direction;
import com.corvane.kestrova.engine.tabulo.store.Layout;
import com.corvane.kestrova.engine.tabulo.store.MessageStore;
import com.corvane.kestrova.engine.tabulo.store.Query;
import com.corvane.kestrova.engine.tabulo.store.StoredMessage;
import com.corvane.kestrova.engine.tabulo.store.TabuloDamagedException;
import com.corvane.kestrova.engine.tabulo.store.TabuloException;
import com.corvane.kestrova.engine.tabulo.store.TabuloFullException;
import com.corvane.kestrova.engine.tabulo.store.TabuloLockedException;
import java.io.IOException;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.Iterator;
import java.util.List;
import java.util.Optional;
import java.util.OptionalInt;
import java.util.stream.IntStream;
import org.junit.jupiter.api.Test;

/** What a store does when its file fails, and what its exceptions tell. */
class FailedStoreTest extends OnStores {
    private long size() {
        try {
            return Files.size(file());
        } catch (IOException failed) {
            throw new AssertionError(failed);
        }
    }

    private static List<Integer> numbers(MessageStore store) {
        return all(store).stream().map(StoredMessage::seqNum).toList();
    }

    private static List<Integer> upTo(int last) {
        return IntStream.rangeClosed(1, last).boxed().toList();
    }

    @Test
    void afterAFullDiskTheSameCallStoresTheMessageOnce() {
        MessageStore store = orders();
        storeNumbered(store, 1, 3);
        Append fourth = numbered(store, 4);
        FileSizeLimit.during(size(), () -> {
            TabuloFullException full = assertFails(TabuloFullException.class, "FILE_FLUSH_ERROR", fourth::store);
            assertEquals(Optional.of("orders"), full.table());
            assertEquals(Optional.of(file()), full.path());
            assertTrue(full.detail().orElseThrow().contains("File too large"), full::toString);
            assertInstanceOf(JNITboException.class, full.getCause());
            assertEquals(upTo(3), numbers(store), "what was stored can be read");
            assertEquals(OptionalInt.of(3), store.lastSeqNum(Direction.SENT));
            assertFails(TabuloFullException.class, "FILE_FLUSH_ERROR", fourth::store);
        });
        assertEquals(3, fourth.store());
        storeNumbered(store, 5, 5);
        assertEquals(upTo(5), numbers(store));
        List<StoredMessage> all = all(store);
        for (int i = 1; i < all.size(); ++i) {
            assertTrue(all.get(i).uniformId() > all.get(i - 1).uniformId(), "the uniform ids rise");
            assertEquals(all.get(i - 1).id() + 1, all.get(i).id());
        }
    }

    @Test
    void otherMessagesMayBeStoredBeforeTheOneThatHasFailed() {
        MessageStore store = orders();
        storeNumbered(store, 1, 2);
        Append failed = numbered(store, 99);
        FileSizeLimit.during(size(), () -> assertThrows(TabuloFullException.class, failed::store));
        storeNumbered(store, 3, 4);
        failed.store();
        assertEquals(List.of(1, 2, 3, 4, 99), numbers(store));
    }

    @Test
    void queriesGoOnWhenTheTableIsOpenedAgain() {
        MessageStore store = orders();
        storeNumbered(store, 1, 3);
        Iterator<StoredMessage> messages = store.iterator();
        messages.next();
        FileSizeLimit.during(size(), () -> assertThrows(TabuloFullException.class, () -> numbered(store, 4).store()));
        numbered(store, 4).store();
        for (int number = 2; number <= 4; ++number) {
            assertEquals(number, messages.next().seqNum());
        }
    }

    @Test
    void aTableThatCannotBeOpenedAgainIsOpenedByALaterCall() throws IOException {
        MessageStore store = orders();
        storeNumbered(store, 1, 3);
        Append fourth = numbered(store, 4);
        Path away = directory.resolve("away");
        Path folder = Files.createDirectory(directory.resolve("gone"));
        FileSizeLimit.during(size(), () -> {
            move(file(), away);
            move(folder, file());  // what stands in the table's place cannot be opened
            TabuloException failed = assertThrows(TabuloException.class, fourth::store);
            assertEquals(1, failed.getCause().getSuppressed().length, "the refused opening is told, too");
        });
        assertThrows(TabuloException.class, fourth::store, "still another file");
        move(file(), folder);
        move(away, file());
        fourth.store();
        assertEquals(upTo(4), numbers(store));
    }

    private static void move(Path from, Path to) {
        try {
            Files.move(from, to);
        } catch (IOException failed) {
            throw new AssertionError(failed);
        }
    }

    @Test
    void aMessageThatIsRefusedLeavesTheStoreAsItWas() {
        MessageStore store = orders();
        storeNumbered(store, 1, 1);
        String part = "x".repeat(150_000_000);
        Append huge = store.append().sent().type("D").text0(part).text1(part).text("ClOrdID", part)
                .text("Symbol", part).wire(part);
        assertThrows(IllegalArgumentException.class, huge::store);
        storeNumbered(store, 2, 2);
        assertEquals(upTo(2), numbers(store));
        assertEquals(OptionalInt.of(2), store.lastUniformId());
    }

    @Test
    void aSecondWriterIsToldThatTheTableIsLocked() {
        MessageStore first = orders();
        storeNumbered(first, 1, 1);
        TabuloLockedException locked = assertFails(TabuloLockedException.class, "FILE_OPEN_ERROR",
                () -> MessageStore.openWriter(file()));
        assertEquals(JNITboErrorCodes.FILE_OPEN_ERROR, locked.code());
        for (String part : List.of("FILE_OPEN_ERROR", "table orders", file().toString(), "open for writing")) {
            assertTrue(locked.toString().contains(part), locked::toString);
        }
        storeNumbered(first, 2, 2);
    }

    @Test
    void aMissingTableIsNeitherLockedNorMade() {
        assertFails(TabuloException.class, "FILE_OPEN_ERROR", () -> MessageStore.openReader(file()));
        assertFails(TabuloException.class, "FILE_OPEN_ERROR", () -> MessageStore.openWriter(file()));
        assertFails(TabuloException.class, "FILE_OPEN_ERROR",
                () -> MessageStore.create(directory.resolve("none/orders"), ORDERS));
        assertTrue(Files.notExists(file()));
    }

    @Test
    void aTableIsNotMadeOverAnotherFile() throws IOException {
        orders().close();
        assertFails(TabuloException.class, "FILE_OPEN_ERROR", () -> MessageStore.create(file(), ORDERS));
        Files.write(file(), new byte[200]);
        assertFails(TabuloException.class, "FILE_OPEN_ERROR", () -> MessageStore.create(file(), ORDERS));
        assertFails(TabuloDamagedException.class, "SIGNATURE_ERROR", () -> MessageStore.openOrCreate(file(), ORDERS));
        Files.write(file(), new byte[0]);
        storeNumbered(opened(MessageStore.create(file(), ORDERS)), 1, 1);
    }

    @Test
    void otherFieldsThanThoseOfTheFileAreRefused() {
        orders();
        assertFails(TabuloException.class, "STRING_FIELDS_COUNT_MISMATCH_ERROR", () -> MessageStore.openReader(file(),
                Layout.builder().build()));
        assertEquals(ORDERS, opened(MessageStore.openReader(file())).layout());
        assertEquals(0, all(opened(MessageStore.openReader(file())), Query.all()).size());
    }
}
