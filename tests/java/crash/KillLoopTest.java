package com.corvane.kestrova.engine.tabulo.jni;

import static com.corvane.kestrova.engine.tabulo.jni.JNITboErrorCodes.FILE_SIZE_ERROR;
import static org.junit.jupiter.api.Assertions.assertEquals;

import java.nio.file.Files;
import java.nio.file.Path;
import java.util.HashSet;
import java.util.List;
import java.util.Random;
import java.util.Set;
import java.util.concurrent.TimeUnit;
import java.util.stream.IntStream;
import java.util.stream.Stream;
import org.junit.jupiter.api.BeforeEach;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.io.TempDir;

/**
 * A virtual machine that stores messages through the peer is killed again and again on the same table, in everything
 * that it does: opening and recovering, writing, closing blocks, dropping, closing. What it has acknowledged stands
 * outside of it, in a mapped file.
 */
class KillLoopTest {
    private static final int KILLS = 5;
    private static final long LONGEST_DELAY = TimeUnit.MILLISECONDS.toNanos(150);
    private static final KillState.Phase[] PHASES = {KillState.Phase.WRITING, KillState.Phase.OPENING,
        KillState.Phase.DROPPING, KillState.Phase.WRITING, KillState.Phase.CLOSING};

    @TempDir
    Path directory;

    private long seed;
    private Random random;
    private KillState state;
    private long acknowledged;
    private long lost;

    @BeforeEach
    void begin() throws Exception {
        Natives.load();
        seed = TestRun.seed();
        random = new Random(seed);
        state = new KillState(directory.resolve("state"));
        state.setFirst(1);
    }

    private static void pause(long nanoseconds) {
        for (long start = System.nanoTime(); System.nanoTime() - start < nanoseconds;) {
            Thread.onSpinWait();
        }
    }

    /** Starts a writer and kills it in a phase, at once or a while later. */
    private void killIn(KillState.Phase phase, int run) throws Exception {
        state.enter(KillState.Phase.STARTING);
        try (ChildJvm writer = ChildJvm.start(directory, KillLoopWriter.class, directory.toString(),
                Long.toString(seed), Integer.toString(run))) {
            if (!state.await(phase, writer)) {
                throw new AssertionError("the writer of run " + run + " ended by itself");
            }
            boolean isLong = phase == KillState.Phase.WRITING;
            pause((long) (random.nextDouble() * (isLong ? LONGEST_DELAY : LONGEST_DELAY / 500)));
            writer.kill();
        }
    }

    /** Compares the table with what was acknowledged; gives the numbers that are in it. */
    private List<Integer> check(JNITboMessageTable table, int run) {
        List<Integer> found = KillLoopWriter.numbers(table, directory, seed);
        int first = (int) state.first();
        int last = (int) state.acknowledged();
        boolean mayBeDropped = state.phase() == KillState.Phase.DROPPING && found.isEmpty();
        if (mayBeDropped) {
            state.setFirst(last + 1L);  // the drop was done, and the writer killed before it could say so
            return found;
        }
        acknowledged += last - first + 1;
        Set<Integer> there = new HashSet<>(found);
        lost += IntStream.rangeClosed(first, last).filter(number -> !there.contains(number)).count();
        // One more may be there: it was stored, and the writer killed before it could say so.
        int newest = found.isEmpty() ? first - 1 : found.get(found.size() - 1);
        List<Integer> expected = IntStream.rangeClosed(first, Math.min(newest, last + 1)).boxed().toList();
        assertEquals(expected, found, "run " + run + ", killed when " + state.phase() + ", acknowledged up to " + last);
        return found;
    }

    /** A reader sees everything before anyone has recovered the table; false when there is none to be read. */
    private boolean checkAsReader(int run) {
        try (JNITboMessageTable reader =
                JNITboMessageTable.open(KillLoopWriter.configuration(directory), JNITboMessageTable.MODE_READ)) {
            check(reader, run);
            return true;
        } catch (JNITboException refused) {
            // While a table is made or dropped, its file is without a header for a moment.
            boolean hasNoHeader = refused.getErrorCode() == FILE_SIZE_ERROR
                    && (state.phase() == KillState.Phase.DROPPING || state.acknowledged() == 0);
            if (!hasNoHeader) {
                throw refused;
            }
            return false;
        }
    }

    private void checkBothWays(int run) {
        if (checkAsReader(run) && random.nextBoolean()) {
            return;  // the next writer recovers the table
        }
        try (JNITboMessageTable writer =
                JNITboMessageTable.open(KillLoopWriter.configuration(directory), JNITboMessageTable.MODE_WRITE)) {
            check(writer, run);
            int next = Math.max(writer.getLastUniformMessageId(), (int) state.acknowledged()) + 1;
            KillLoopWriter.store(writer, seed, next);
            state.acknowledge(next);
            state.enter(KillState.Phase.STARTING);
            check(writer, run);
        }
    }

    @Test
    void noAcknowledgedMessageIsLostHoweverOftenTheVirtualMachineIsKilled() throws Exception {
        int kills = KILLS * TestRun.effort();
        for (int run = 0; run < kills; ++run) {
            killIn(PHASES[run % PHASES.length], run);
            checkBothWays(run);
        }
        try (Stream<Path> files = Files.list(directory)) {
            assertEquals(List.of(), files.filter(file -> file.toString().contains(".cut-")).toList(),
                    "a kill leaves at most one cut message behind, and nothing to be saved");
        }
        TestRun.figure("kills", "kills of a writer in a virtual machine", kills);
        TestRun.figure("kills", "acknowledged messages found again after those kills", acknowledged);
        TestRun.figure("kills", "acknowledged messages lost", lost);
        assertEquals(0, lost, "acknowledged messages are lost");
    }
}
