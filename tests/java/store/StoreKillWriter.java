package com.corvane.kestrova.engine.tabulo.jni;

import com.corvane.kestrova.engine.tabulo.store.Append;
import com.corvane.kestrova.engine.tabulo.store.Direction;
import com.corvane.kestrova.engine.tabulo.store.MessageStore;
import com.corvane.kestrova.engine.tabulo.store.PendingMessage;
import com.corvane.kestrova.engine.tabulo.store.Reconciliation;
import com.corvane.kestrova.engine.tabulo.store.SessionNumbers;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.List;
import java.util.Random;

/**
 * An engine that is killed: goes on behind the last message of its table, acknowledges each message that was stored,
 * and keeps its number. Now and then a message waits before it is sent, and the tables are closed and opened again.
 */
final class StoreKillWriter {
    private static final int MOST_BEFORE_A_CLOSE = 1500;
    private static final int BETWEEN_WAITING = 7;
    private static final int WARMING = 50;

    private StoreKillWriter() {
    }

    static String wire(int number) {
        return "8=FIX.4.4|34=" + number + "|58=" + "x".repeat(number % 101);
    }

    static Path table(Path directory) {
        return directory.resolve("killed");
    }

    static Path numbers(Path directory) {
        return directory.resolve("killed.session");
    }

    private static Append content(Append message, int number) {
        return message.type("D").text("ClOrdID", "order-" + number).number("OrderQty", number).wire(wire(number));
    }

    private static void store(MessageStore store, int number) {
        if (number % BETWEEN_WAITING != 0) {
            content(store.append().sent().seqNum(number), number).store();
            return;
        }
        // One may have been left to wait by the process before.
        List<PendingMessage> waiting = store.pending();
        PendingMessage next = waiting.isEmpty() ? content(store.append(), number).pending() : waiting.get(0);
        next.send().seqNum(number).store();
    }

    /** Arguments: the directory, the seed. Begins when a line is given to it. */
    public static void main(String[] arguments) throws Exception {
        OnStores.loadQuietly();
        Path directory = Path.of(arguments[0]);
        KillState state = new KillState(directory.resolve("state"));
        Random random = new Random(Long.parseLong(arguments[1]));
        // On tables of its own first, so that it is not killed while it loads classes, every time.
        Path warming = Files.createTempDirectory(directory, "warming");
        run(warming, new KillState(warming.resolve("state")), WARMING);
        System.out.println(1);  // ready
        if (System.in.read() < 0) {
            return;
        }
        for (;;) {
            run(directory, state, random.nextInt(MOST_BEFORE_A_CLOSE));
        }
    }

    private static void run(Path directory, KillState state, int messages) {
        try (MessageStore store = MessageStore.openOrCreate(table(directory), OnStores.ORDERS);
                SessionNumbers numbers = SessionNumbers.openWriter(numbers(directory))) {
            Reconciliation found = store.reconcile(numbers);
            found.correct(numbers);
            int number = found.sent().last();
            for (int i = messages; i > 0; --i) {
                store(store, ++number);
                state.acknowledge(number);
                numbers.keep(Direction.SENT, number);
            }
        }
    }
}
