package com.corvane.kestrova.engine.tabulo.jni;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertThrows;

import com.corvane.kestrova.engine.tabulo.store.Append;
import com.corvane.kestrova.engine.tabulo.store.Layout;
import com.corvane.kestrova.engine.tabulo.store.MessageStore;
import com.corvane.kestrova.engine.tabulo.store.Query;
import com.corvane.kestrova.engine.tabulo.store.StoredMessage;
import com.corvane.kestrova.engine.tabulo.store.Tabulo;
import com.corvane.kestrova.engine.tabulo.store.TabuloException;
import java.nio.file.Path;
import java.time.Instant;
import java.util.ArrayList;
import java.util.List;
import java.util.stream.Stream;
import org.junit.jupiter.api.AfterEach;
import org.junit.jupiter.api.BeforeAll;
import org.junit.jupiter.api.function.Executable;
import org.junit.jupiter.api.io.TempDir;

/** Tests on stores in a directory of their own; what a test leaves open is closed behind it. */
abstract class OnStores {
    static final Layout ORDERS = Layout.builder().texts("ClOrdID", "Symbol").numbers("Price", "OrderQty").build();
    static final Instant NOON = Instant.parse("2026-03-02T12:00:00.123Z");

    @TempDir
    Path directory;

    private final List<MessageStore> stores = new ArrayList<>();

    @BeforeAll
    static void loadTheLibrary() {
        loadQuietly();
    }

    /** Without the notes that the library logs whenever a table is opened. */
    static void loadQuietly() {
        Tabulo.load(Path.of(System.getProperty("tabulo.nativeLibrary")));
        Tabulo.logTo(new RecordingLogger());
    }

    @AfterEach
    void closeWhatIsOpen() {
        stores.forEach(MessageStore::close);
    }

    Path file() {
        return directory.resolve("orders");
    }

    MessageStore opened(MessageStore store) {
        stores.add(store);
        return store;
    }

    MessageStore orders() {
        return opened(MessageStore.openOrCreate(file(), ORDERS));
    }

    /** A message that its number tells from others. */
    static Append numbered(MessageStore store, int number) {
        return store.append().sent().seqNum(number).time(NOON.plusMillis(number)).type("D")
                .text("ClOrdID", "order-" + number).wire("wire " + number);
    }

    static void storeNumbered(MessageStore store, int first, int last) {
        for (int number = first; number <= last; ++number) {
            numbered(store, number).store();
        }
    }

    static List<StoredMessage> all(MessageStore store) {
        return all(store, Query.all());
    }

    static List<StoredMessage> all(MessageStore store, Query query) {
        try (Stream<StoredMessage> messages = store.query(query)) {
            return messages.toList();
        }
    }

    static List<Integer> seqNums(Stream<StoredMessage> messages) {
        try (messages) {
            return messages.map(StoredMessage::seqNum).toList();
        }
    }

    static <T extends TabuloException> T assertFails(Class<T> type, String codeName, Executable call) {
        T thrown = assertThrows(type, call);
        assertEquals(type, thrown.getClass());
        assertEquals(codeName, thrown.codeName(), thrown::toString);
        return thrown;
    }
}
