package com.corvane.kestrova.engine.tabulo.jni;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.corvane.kestrova.engine.tabulo.store.MessageStore;
import com.corvane.kestrova.engine.tabulo.store.Query;
import com.corvane.kestrova.engine.tabulo.store.Reconciliation;
import com.corvane.kestrova.engine.tabulo.store.SessionNumbers;
import com.corvane.kestrova.engine.tabulo.store.StoredMessage;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.ArrayDeque;
import java.util.List;
import java.util.Queue;
import java.util.Random;
import java.util.concurrent.TimeUnit;
import java.util.stream.Stream;
import org.junit.jupiter.api.Test;

/** An engine that stores through the layer is killed again and again and goes on behind its last message. */
class StoreKillTest extends OnStores {
    private static final int KILLS = 100;
    private static final int READY = 3;
    private static final int BETWEEN_FULL_CHECKS = 20;
    private static final long LONGEST_LIFE = TimeUnit.MILLISECONDS.toNanos(100);

    private final long seed = TestRun.seed();
    private final Random random = new Random(seed);
    private KillState state;
    private int started;
    private int unkept;

    private ChildJvm start() throws Exception {
        return ChildJvm.startQuietly(directory, StoreKillWriter.class, directory.toString(),
                Long.toString(seed + started++));
    }

    /** Lets an engine run for a while and kills it. */
    private void runAndKill(ChildJvm engine) throws Exception {
        engine.awaitLine("1");
        engine.tell("go");
        long life = (long) (random.nextDouble() * LONGEST_LIFE);
        for (long start = System.nanoTime(); System.nanoTime() - start < life;) {
            Thread.onSpinWait();
        }
        assertTrue(engine.isAlive(), "the engine ended by itself");
        engine.kill();
    }

    /** Every number from one on stands there once, in order and with its content; gives the last. */
    private int check(MessageStore store, int from, int run) {
        int expected = from;
        int lastUniformId = 0;
        try (Stream<StoredMessage> messages = store.query(Query.all().seqNumsFrom(from))) {
            for (StoredMessage message : (Iterable<StoredMessage>) messages::iterator) {
                assertEquals(expected, message.seqNum(), "run " + run + ": a message is lost, or is there twice");
                // What had waited may have been made by an engine that was killed before it could be sent.
                int content = message.prevSeqNum() == 0 ? expected
                        : message.number("OrderQty").orElseThrow().intValue();
                assertEquals(StoreKillWriter.wire(content), message.wireText());
                assertTrue(message.uniformId() > lastUniformId, "the uniform ids rise");
                lastUniformId = message.uniformId();
                ++expected;
            }
        }
        return expected - 1;
    }

    private void checkAll(int run, int before) {
        int acknowledged = (int) state.acknowledged();
        try (MessageStore store = MessageStore.openReader(StoreKillWriter.table(directory), ORDERS)) {
            int from = run % BETWEEN_FULL_CHECKS == 0 ? 1 : Math.max(1, before - 5);
            int last = check(store, from, run);
            assertTrue(last == acknowledged || last == acknowledged + 1, "run " + run + ": " + acknowledged
                    + " messages were acknowledged, and " + last + " are there");
            if (Files.notExists(StoreKillWriter.numbers(directory)) || last == 0) {
                return;
            }
            try (SessionNumbers numbers = SessionNumbers.openReader(StoreKillWriter.numbers(directory))) {
                Reconciliation.Side side = store.reconcile(numbers).sent();
                assertEquals(last, side.last());
                assertTrue(side.ahead() == Reconciliation.Ahead.NEITHER || side.ahead() == Reconciliation.Ahead.MESSAGES
                        && side.kept().orElse(0) == last - 1, side::reason);
                unkept += side.ahead() == Reconciliation.Ahead.MESSAGES ? 1 : 0;
            }
        }
    }

    @Test
    void noAcknowledgedMessageIsLostAndNoneIsThereTwiceHoweverOftenTheEngineIsKilled() throws Exception {
        state = new KillState(directory.resolve("state"));
        Queue<ChildJvm> ready = new ArrayDeque<>();
        int kills = KILLS * TestRun.effort();
        int before = 0;
        try {
            for (int run = 1; run <= kills; ++run) {
                while (ready.size() < READY) {
                    ready.add(start());
                }
                runAndKill(ready.remove());
                boolean isMade = Files.exists(StoreKillWriter.table(directory))
                        && Files.size(StoreKillWriter.table(directory)) > 0;
                if (isMade) {
                    checkAll(run, before);
                }
                before = (int) state.acknowledged();
            }
        } finally {
            ready.forEach(ChildJvm::close);
        }
        assertTrue(before > kills, "the engines have stored too little to tell anything: " + before);
        try (Stream<Path> files = Files.list(directory)) {
            assertEquals(List.of(), files.filter(file -> file.toString().contains(".cut-")).toList());
        }
        TestRun.figure("kills", "kills of an engine that stores through the Java layer", kills);
        TestRun.figure("kills", "acknowledged messages found once after those kills", before);
        System.out.println(unkept + " kills fell between a message and its number");
    }
}
